// A folder of files in memory, for proofs that damage and cut them. Nothing is lost here by itself;
// what a power loss leaves stands in crash_files.
#ifndef TESTS_PROOF_MEMORY_FILES_H
#define TESTS_PROOF_MEMORY_FILES_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sdk/db/file_system.h"

// One thread. Paths are not looked at: there is one folder.
class MemoryFiles final : public sim::FileSystem {
  public:
    using Bytes = std::vector<uint8_t>;
    using Folder = std::map<std::string, Bytes>;

    // The process ends with its operation number `operations` that changes something, which is not
    // done (of a write, the first half is): all later ones fail.
    void end_after(uint64_t operations) { m_left = operations; }
    bool ended() const { return m_ended; }
    uint64_t changes() const { return m_changes; }

    // The files as they are.
    Folder copy() const;
    void put(const Folder& folder);
    void put(const std::string& name, const Bytes& bytes);
    bool has(const std::string& name) const { return m_files.count(name) != 0; }
    Bytes& bytes(const std::string& name) { return *m_files.at(name); }

    int open_folder(const std::string& path, bool make) override;
    int open(int folder, const std::string& name, Access access) override;
    void close(int file) override;
    int64_t read(int file, void* out, size_t size, uint64_t offset) override;
    int write(int file, const void* data, size_t size, uint64_t offset) override;
    int sync(int) override { return may_change() ? 0 : GONE; }
    int sync_folder(int) override { return may_change() ? 0 : GONE; }
    int allocate(int file, uint64_t size) override;
    int truncate(int file, uint64_t size) override;
    int64_t size(int file) override;
    int rename(int folder, const std::string& from, const std::string& to) override;
    int remove(int folder, const std::string& name) override;
    int list(int folder, const std::string& prefix, std::vector<std::string>& names) override;
    int64_t room(int) override { return int64_t{1} << 40; }
    int lock(int) override { return 0; }
    int locked(int) override { return 0; }

  private:
    using File = std::shared_ptr<Bytes>;
    static constexpr int FOLDER = 1;
    static constexpr int FIRST = 3;
    static const int GONE;

    bool may_change();
    Bytes* at(int file);

    std::map<std::string, File> m_files;
    std::vector<File> m_open;
    uint64_t m_changes = 0;
    uint64_t m_left = UINT64_MAX;
    bool m_ended = false;
};

#endif  // TESTS_PROOF_MEMORY_FILES_H
