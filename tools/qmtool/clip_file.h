// A file that an export writes: under another name until it is whole and durable. What is in it is
// the matter of others.
#ifndef TOOLS_QMTOOL_CLIP_FILE_H
#define TOOLS_QMTOOL_CLIP_FILE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// Counts what is written. Memory is as large as the pieces that are written at a time, 1 MiB.
class ClipFile {
  public:
    ClipFile() = default;
    // Unless it was published nothing is left of it.
    ~ClipFile();
    ClipFile(const ClipFile&) = delete;
    ClipFile& operator=(const ClipFile&) = delete;

    // `path` is where it will be; until then its name is `path`.part. Without `replace` there must
    // be no such file. False: error() says why.
    bool create(const std::string& path, bool replace);
    // Nothing more is written, and `why` is the error.
    void give_up(const char* why);

    // After a failure nothing is written any more, and error() says what failed.
    bool write(const void* bytes, size_t size);
    uint64_t written() const { return m_written; }
    // Writes over what was written.
    bool write_at(uint64_t offset, const void* bytes, size_t size);
    // What was written so far is in the file.
    bool flush();
    // SHA-256 of all that was written, read back from the file.
    bool digest(std::string& sha256);

    // Makes what was written durable, still under the other name.
    bool settle();
    // Gives it its name, after settle().
    bool publish();

    const std::string& path() const { return m_path; }
    const std::string& error() const { return m_error; }

  private:
    static constexpr size_t PIECE_BYTES = 1 << 20;

    bool fail(const char* what, int error);
    bool open_part();
    bool write_out(const uint8_t* bytes, size_t size);

    std::string m_path;
    std::string m_part;
    std::string m_error;
    std::unique_ptr<uint8_t[]> m_piece;
    size_t m_filled = 0;
    uint64_t m_written = 0;  // with what is in m_piece
    uint64_t m_told = 0;     // of which the machine was told to write it out
    int m_file = -1;
    bool m_replace = false;
    bool m_failed = false;
};

// Gives a file another name; without `replace` none that is taken. False with errno.
bool move_file(const std::string& from, const std::string& to, bool replace);
// The names in the folder of `path` are durable. False with errno.
bool sync_folder_of(const std::string& path);

// From the first call on SIGINT, SIGTERM and SIGHUP do not end the program.
void watch_for_interruption();
// One of them came.
bool interrupted();

#endif  // TOOLS_QMTOOL_CLIP_FILE_H
