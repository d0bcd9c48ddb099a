// Files in memory that know what is durable and what only the running machine sees, so that a
// power loss can be played through in all its outcomes. Errors of a disk stand in faulty_files.
#ifndef TESTS_PROOF_CRASH_FILES_H
#define TESTS_PROOF_CRASH_FILES_H

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "sdk/db/file_system.h"
#include "tests/proof/proof.h"

inline constexpr size_t SECTOR_BYTES = 512;  // a disk writes one whole or not at all

// Decides what a power loss leaves of what was not synced.
class CrashChooser {
  public:
    virtual ~CrashChooser() = default;
    // 0..options-1; options is at least 2.
    virtual size_t pick(size_t options) = 0;
    // Which of the sectors of a write at `offset` are on the disk.
    virtual void pick_sectors(uint64_t offset, std::vector<bool>& there) = 0;
    // Whether later changes of names may be there without earlier ones.
    virtual bool names_in_any_order() = 0;
};

// Any outcome, those that tend to matter more often: nothing, everything, a first part, all but
// one sector.
class RandomChooser : public CrashChooser {
  public:
    explicit RandomChooser(ProofRandom& random) : m_random(random) {
        m_any_order = m_random.one_in(2);
    }
    size_t pick(size_t options) override { return m_random.below(options); }
    void pick_sectors(uint64_t offset, std::vector<bool>& there) override;
    bool names_in_any_order() override { return m_any_order; }

  private:
    ProofRandom& m_random;
    bool m_any_order;
};

// One outcome after the other until all were there:
//     do { ... files.after_power_loss(chooser) ... } while (chooser.next());
// The sectors of a write are taken together in at most `groups` groups: the first and the last
// alone, in a write of a segment's start also each of its headers.
class EveryChoice : public CrashChooser {
  public:
    EveryChoice(size_t groups, bool any_order) : m_groups(groups), m_any_order(any_order) {}
    bool next();
    size_t pick(size_t options) override;
    void pick_sectors(uint64_t offset, std::vector<bool>& there) override;
    bool names_in_any_order() override { return m_any_order; }

  private:
    struct Decision {
        size_t taken;
        size_t options;
    };
    const size_t m_groups;
    const bool m_any_order;
    std::vector<Decision> m_decisions;
    size_t m_at = 0;
};

// An operation that changes something, told before it is done.
struct FileChange {
    enum class Kind {
        create,
        write,
        sync,
        sync_folder,
        allocate,
        truncate,
        rename,
        remove,
    };
    Kind kind;
    std::string name;  // of the file; of a rename the old one
    uint64_t offset = 0;
    const uint8_t* data = nullptr;
    size_t size = 0;
    std::string to = {};  // of a rename
};

// One machine's files. A copy is another machine with the same disk, on which nothing is open.
// One thread. Folders are durable when they are made.
class CrashFiles : public sim::FileSystem {
  public:
    using Bytes = std::vector<uint8_t>;

    CrashFiles() = default;
    CrashFiles(const CrashFiles& other);
    CrashFiles& operator=(const CrashFiles&) = delete;

    // What the next start of the machine finds.
    CrashFiles after_power_loss(CrashChooser& chooser) const;
    // What the next process finds when this one is killed within `change`, after `done` bytes of
    // it when it is a write.
    CrashFiles after_kill(const FileChange& change, size_t done) const;
    // The number of changes that a power loss could undo.
    size_t pending() const;

    // Called before every change; may copy this.
    std::function<void(const FileChange&)> on_change;

    // What a sync of the file that failed leaves: the running machine sees what was written, the
    // disk may never get it, whatever is synced later.
    void forget_unsynced(int file);
    // The content of a file as the running machine sees it; null when there is none.
    std::shared_ptr<const Bytes> content(const std::string& folder, const std::string& name) const;
    std::vector<std::string> names(const std::string& folder) const;
    // The name of an open file.
    std::string name_of(int file) const;
    // Puts a file there, durable.
    void put(const std::string& folder, const std::string& name, const Bytes& bytes);
    size_t open_files() const { return m_open.size(); }

    // Calls that broke a rule of the interface or of the layout: a write of part of a block, a
    // block of a segment written again after it was durable under the same name, a write to a
    // segment before the last one was durable. What a killed process left unsynced does not count:
    // whether that is kept where it must be shows when it is read.
    const std::vector<std::string>& offences() const { return m_offences; }

    int open_folder(const std::string& path, bool make) override;
    int open(int folder, const std::string& name, Access access) override;
    void close(int file) override;
    int64_t read(int file, void* out, size_t size, uint64_t offset) override;
    int write(int file, const void* data, size_t size, uint64_t offset) override;
    int sync(int file) override;
    int sync_folder(int folder) override;
    int allocate(int file, uint64_t size) override;
    int truncate(int file, uint64_t size) override;
    int64_t size(int file) override;
    int rename(int folder, const std::string& from, const std::string& to) override;
    int remove(int folder, const std::string& name) override;
    int list(int folder, const std::string& prefix, std::vector<std::string>& names) override;
    int64_t room(int folder) override;
    int lock(int file) override;
    int locked(int file) override;

  private:
    using Content = std::shared_ptr<const Bytes>;
    struct Change {           // of a file, not synced
        Content data;         // null: a change of the size
        uint64_t offset = 0;  // or the new size
        bool own = true;      // of this process, not of one that was killed
    };
    struct File {
        Content durable = std::make_shared<const Bytes>();
        Content now = durable;
        std::vector<Change> pending;
        std::set<uint64_t> synced_blocks;  // of its own writes, since it has its name
    };
    struct NameChange {
        std::string name;  // removed when `to` is empty and `file` is 0
        std::string to;    // of a rename
        int file = 0;
    };
    struct Folder {
        std::map<std::string, int> durable, now;
        std::vector<NameChange> pending;
    };
    struct Open {
        std::string folder;
        int file = 0;  // 0: the folder itself
        Access access = Access::read;
        bool has_lock = false;
    };

    int new_handle(const Open& open);
    Open* opened(int handle);
    File* file_of(int handle);
    Folder* folder_of(int handle);
    std::string name_of(const Open& open) const;
    void tell(const FileChange& change) const;
    void resize(File& file, uint64_t size);
    void check_write(const Open& open, const File& file, const void* data, size_t size,
                     uint64_t offset);
    static void apply(const NameChange& change, std::map<std::string, int>& names);
    static void apply(const Change& change, Bytes& bytes);
    static Content lost_power(const File& file, CrashChooser& chooser);
    static void choose_names(const Folder& folder, CrashChooser& chooser,
                             std::map<std::string, int>& names);

    std::map<std::string, Folder> m_folders;
    std::map<int, File> m_files;
    std::map<int, Open> m_open;
    int m_next_file = 1;
    int m_next_handle = 3;
    std::vector<std::string> m_offences;
};

#endif  // TESTS_PROOF_CRASH_FILES_H
