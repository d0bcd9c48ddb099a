// The file operations of a disk database, all of them. Tests put another file system in the place
// of the real one: one that fails, forgets what was not synced, or kills the process.
#ifndef SDK_DB_FILE_SYSTEM_H
#define SDK_DB_FILE_SYSTEM_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

// Results are 0 or more, or -errno. A file or folder is a small number until close(). Names are
// those of files in `folder`, without a slash. Files are regular files only; no symbolic link is
// followed. Any thread.
class FileSystem {
  public:
    enum class Access {
        read,    // an existing file
        stream,  // as read, large pieces in order: past the page cache where that works
        write,   // an existing file, reading and writing; past the page cache where that works
        create,  // as write, a new file: -EEXIST when there is one
        lock,    // an existing or a new file, reading and writing
    };

    virtual ~FileSystem() = default;

    // The folder `path` ("" is the working directory). With `make` missing ones are made, mode
    // 0750.
    virtual int open_folder(const std::string& path, bool make) = 0;
    virtual int open(int folder, const std::string& name, Access access) = 0;
    virtual void close(int file) = 0;

    // Whole reads: the bytes read, fewer than `size` only at the end of the file.
    virtual int64_t read(int file, void* out, size_t size, uint64_t offset) = 0;
    // This will be read soon. A hint.
    virtual void announce(int /*file*/, uint64_t /*offset*/, uint64_t /*size*/) {}
    // Whole writes: 0. Where a file was opened for writing, `data`, `size` and `offset` are
    // multiples of the block size.
    virtual int write(int file, const void* data, size_t size, uint64_t offset) = 0;
    // What was written to the file is durable.
    virtual int sync(int file) = 0;
    // The names in the folder are durable.
    virtual int sync_folder(int folder) = 0;

    // Makes the file `size` bytes long, with room for all of them.
    virtual int allocate(int file, uint64_t size) = 0;
    // Cuts the file to `size` bytes.
    virtual int truncate(int file, uint64_t size) = 0;
    virtual int64_t size(int file) = 0;

    virtual int rename(int folder, const std::string& from, const std::string& to) = 0;
    virtual int remove(int folder, const std::string& name) = 0;
    // Appends the names of the files that begin with `prefix`, in any order.
    virtual int list(int folder, const std::string& prefix, std::vector<std::string>& names) = 0;
    // Bytes that a file of this user can still take.
    virtual int64_t room(int folder) = 0;

    // Takes the lock of a file opened with Access::lock; -EAGAIN when another open file has it. It
    // ends when the file is closed or the process ends.
    virtual int lock(int file) = 0;
    // 1 when another open file has the lock, else 0. Takes nothing.
    virtual int locked(int file) = 0;
};

// The machine's own.
FileSystem& real_file_system();

}  // namespace sim

#endif  // SDK_DB_FILE_SYSTEM_H
