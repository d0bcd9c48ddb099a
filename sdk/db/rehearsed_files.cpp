// Files whose writes fail on demand.
#include "sdk/db/rehearsed_files.h"

#include <cerrno>

#include "sdk/runtime/settings.h"

namespace sim {

namespace {

class RehearsedFiles final : public FileSystem {
  public:
    int open_folder(const std::string& path, bool make) override {
        return m_files.open_folder(path, make);
    }
    int open(int folder, const std::string& name, Access access) override {
        return m_files.open(folder, name, access);
    }
    void close(int file) override { m_files.close(file); }
    int64_t read(int file, void* out, size_t size, uint64_t offset) override {
        return m_files.read(file, out, size, offset);
    }
    int write(int file, const void* data, size_t size, uint64_t offset) override {
        if (settings().fail_disk.strikes()) return -EIO;
        return m_files.write(file, data, size, offset);
    }
    int sync(int file) override { return m_files.sync(file); }
    int sync_folder(int folder) override { return m_files.sync_folder(folder); }
    int allocate(int file, uint64_t size) override { return m_files.allocate(file, size); }
    int truncate(int file, uint64_t size) override { return m_files.truncate(file, size); }
    int64_t size(int file) override { return m_files.size(file); }
    int rename(int folder, const std::string& from, const std::string& to) override {
        return m_files.rename(folder, from, to);
    }
    int remove(int folder, const std::string& name) override {
        return m_files.remove(folder, name);
    }
    int list(int folder, const std::string& prefix, std::vector<std::string>& names) override {
        return m_files.list(folder, prefix, names);
    }
    int64_t room(int folder) override { return m_files.room(folder); }
    int lock(int file) override { return m_files.lock(file); }
    int locked(int file) override { return m_files.locked(file); }

  private:
    FileSystem& m_files = real_file_system();
};

}  // namespace

FileSystem& rehearsed_file_system() {
    // Never destroyed: databases may be closed while the program ends.
    static auto* files = new RehearsedFiles;
    return *files;
}

}  // namespace sim
