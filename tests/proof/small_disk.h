// Small file systems that are really full, and the foreign file that fills them. Mounted where no
// other process sees them; they end with the process.
#ifndef TESTS_PROOF_SMALL_DISK_H
#define TESTS_PROOF_SMALL_DISK_H

#include <cstdint>
#include <string>

// From here on this process' mounts are its own. False when it may not have that: `why` says so.
bool own_mounts(std::string& why);

// Mounted on a folder of its own until destroyed.
class SmallDisk {
  public:
    enum class Kind { tmpfs, ext4 };
    // `place` is an existing folder, where the ext4 image is kept as well.
    SmallDisk(Kind kind, uint64_t bytes, const std::string& place);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    // Empty when it could be mounted, else why not.
    const std::string& trouble() const { return m_trouble; }
    const std::string& path() const { return m_path; }
    uint64_t room() const;  // bytes left
    uint64_t used() const;

  private:
    std::string m_path;
    std::string m_trouble;
    bool m_mounted = false;
};

// A file that has nothing to do with the database. Its bytes follow from their offset.
class ForeignFile {
  public:
    explicit ForeignFile(const std::string& path);
    ~ForeignFile();
    ForeignFile(const ForeignFile&) = delete;
    ForeignFile& operator=(const ForeignFile&) = delete;

    void grow_to(uint64_t bytes);
    void grow_until_full();
    void shrink_to(uint64_t bytes);
    uint64_t bytes() const { return m_bytes; }
    // It has the size it was given, and all its bytes.
    bool untouched() const;
    bool untouched_size() const;

  private:
    bool grow(uint64_t bytes);

    int m_file;
    uint64_t m_bytes = 0;
};

#endif  // TESTS_PROOF_SMALL_DISK_H
