// A file system that hands every operation on to another one: what the proofs that count, watch or
// disturb operations are made from.
#ifndef TESTS_PROOF_PASS_FILES_H
#define TESTS_PROOF_PASS_FILES_H

#include <string>
#include <vector>

#include "sdk/db/file_system.h"

class PassFiles : public sim::FileSystem {
  public:
    explicit PassFiles(sim::FileSystem& below = sim::real_file_system()) : m_below(below) {}

    int open_folder(const std::string& path, bool make) override {
        return m_below.open_folder(path, make);
    }
    int open(int folder, const std::string& name, Access access) override {
        return m_below.open(folder, name, access);
    }
    void close(int file) override { m_below.close(file); }
    int64_t read(int file, void* out, size_t size, uint64_t offset) override {
        return m_below.read(file, out, size, offset);
    }
    int write(int file, const void* data, size_t size, uint64_t offset) override {
        return m_below.write(file, data, size, offset);
    }
    int sync(int file) override { return m_below.sync(file); }
    int sync_folder(int folder) override { return m_below.sync_folder(folder); }
    int allocate(int file, uint64_t size) override { return m_below.allocate(file, size); }
    int truncate(int file, uint64_t size) override { return m_below.truncate(file, size); }
    int64_t size(int file) override { return m_below.size(file); }
    int rename(int folder, const std::string& from, const std::string& to) override {
        return m_below.rename(folder, from, to);
    }
    int remove(int folder, const std::string& name) override {
        return m_below.remove(folder, name);
    }
    int list(int folder, const std::string& prefix, std::vector<std::string>& names) override {
        return m_below.list(folder, prefix, names);
    }
    int64_t room(int folder) override { return m_below.room(folder); }
    int lock(int file) override { return m_below.lock(file); }
    int locked(int file) override { return m_below.locked(file); }

  private:
    sim::FileSystem& m_below;
};

#endif  // TESTS_PROOF_PASS_FILES_H
