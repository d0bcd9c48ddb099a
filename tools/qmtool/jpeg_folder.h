// JPEG pictures, one file each. They are written into a folder of their own below the one that they
// belong into, and moved from there when all are whole.
#ifndef TOOLS_QMTOOL_JPEG_FOLDER_H
#define TOOLS_QMTOOL_JPEG_FOLDER_H

#include <vector>

#include "tools/qmtool/clip_writer.h"

class JpegFolder final : public ClipWriter {
  public:
    JpegFolder() = default;
    // Unless they were published no files are left.
    ~JpegFolder() override;
    JpegFolder(const JpegFolder&) = delete;
    JpegFolder& operator=(const JpegFolder&) = delete;

    // The folder may be there already. Without `replace` no file of a name that is needed may be in
    // it.
    bool create(const std::string& path, bool replace);

    Taken picture(const ClipFrame& frame) override;
    Taken sound(const ClipFrame&) override { return Taken::written; }
    bool settle(int64_t usual_us) override;
    bool publish() override;
    bool digest(std::string& sha256) override { return sha256.clear(), true; }
    const std::string& error() const override { return m_error; }
    uint64_t bytes() const override { return m_bytes; }

    // Name and SHA-256 of the picture that was written last.
    const std::string& last_name() const { return m_last_name; }
    std::string last_digest() const;
    uint64_t files() const { return m_names.size(); }

  private:
    // A picture's name: where frame numbers begin again, the ones from there on have a number more.
    struct Name {
        uint32_t frame;
        uint32_t turn;
    };
    static std::string text_of(const Name& name);
    bool fail(const std::string& name, int error);
    bool write_file(const std::string& name);

    std::string m_path;  // ends with a slash
    std::string m_part;  // the folder of its own; likewise
    bool m_made = false;
    bool m_made_part = false;
    bool m_replace = false;
    size_t m_moved = 0;  // names that have left m_part
    std::vector<Name> m_names;
    std::string m_last_name;
    std::vector<uint8_t> m_picture;  // the last one
    uint64_t m_bytes = 0;
    int64_t m_first_us = 0;
    int64_t m_last_us = 0;
    std::string m_error;
};

#endif  // TOOLS_QMTOOL_JPEG_FOLDER_H
