// The machine's files for reading only: counts what is done, can refuse to read a stretch, and can
// let something happen between two reads.
#ifndef TESTS_SDK_READ_ONLY_FILES_H
#define TESTS_SDK_READ_ONLY_FILES_H

#include <algorithm>
#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "sdk/db/file_system.h"
#include "sdk/db/format.h"

class ReadOnlyFiles : public sim::FileSystem {
  public:
    int open_folder(const std::string& path, bool make) override {
        return folder_error < 0 ? folder_error : m_real.open_folder(path, make);
    }
    int open(int folder, const std::string& name, Access access) override {
        ++opens;
        const int file = m_real.open(folder, name, access);
        if (file >= 0) ++open_files;
        most_open = std::max(most_open, open_files);
        return file;
    }
    void close(int file) override {
        --open_files;
        m_real.close(file);
    }
    int64_t read(int file, void* out, size_t size, uint64_t offset) override {
        ++reads;
        bytes += size;
        if (offset < bad_end && offset + size > bad_start) return -EIO;
        if (offset >= sim::SEGMENT_START && before_read) before_read(offset);
        return m_real.read(file, out, size, offset);
    }
    int write(int, const void*, size_t, uint64_t) override { return -EROFS; }
    int sync(int) override { return -EROFS; }
    int sync_folder(int) override { return -EROFS; }
    int allocate(int, uint64_t) override { return -EROFS; }
    int truncate(int, uint64_t) override { return -EROFS; }
    int64_t size(int file) override { return m_real.size(file); }
    int rename(int, const std::string&, const std::string&) override { return -EROFS; }
    int remove(int, const std::string&) override { return -EROFS; }
    int list(int folder, const std::string& prefix, std::vector<std::string>& names) override {
        return m_real.list(folder, prefix, names);
    }
    int64_t room(int) override { return 0; }
    int lock(int) override { return -EROFS; }
    int locked(int file) override { return m_real.locked(file); }

    uint64_t bad_start = 0;
    uint64_t bad_end = 0;
    int folder_error = 0;
    int opens = 0;
    int open_files = 0;  // a folder counts when it is closed only
    int most_open = 0;
    int reads = 0;
    uint64_t bytes = 0;
    std::function<void(uint64_t)> before_read;

  private:
    sim::FileSystem& m_real = sim::real_file_system();
};

#endif  // TESTS_SDK_READ_ONLY_FILES_H
