// From which records a clip was made, as JSON beside it: one record a line.
#ifndef TOOLS_QMTOOL_CLIP_MANIFEST_H
#define TOOLS_QMTOOL_CLIP_MANIFEST_H

#include <string>

#include "tools/qmtool/clip_file.h"
#include "tools/qmtool/clip_writer.h"

class ClipManifest {
  public:
    // What the clip is of.
    struct Origin {
        std::string file;  // name of the clip
        std::string database;
        std::string stream;
        int channel = 0;
    };

    bool create(const std::string& path, bool replace, const Origin& origin);
    // A record that went into the clip. `file` and `sha256` are those of a picture that is a file
    // of its own, else empty.
    bool add(const ClipFrame& frame, const std::string& file, const std::string& sha256);
    // `sha256` is empty when the clip is more than one file.
    bool settle(uint64_t bytes, const std::string& sha256);
    bool publish() { return m_file.publish(); }

    const std::string& path() const { return m_file.path(); }
    const std::string& error() const { return m_file.error(); }

  private:
    bool write(const std::string& text) { return m_file.write(text.data(), text.size()); }

    ClipFile m_file;
    bool m_any = false;
};

#endif  // TOOLS_QMTOOL_CLIP_MANIFEST_H
