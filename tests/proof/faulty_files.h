// A file system whose calls fail as told: the k-th of a kind, once or from then on until it is
// healed, with any error. What power losses leave stands in crash_files.
#ifndef TESTS_PROOF_FAULTY_FILES_H
#define TESTS_PROOF_FAULTY_FILES_H

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/proof/pass_files.h"

// The calls that can fail.
enum class Call {
    open_folder,
    open,
    read,
    write,
    sync,
    sync_folder,
    allocate,
    truncate,
    size,
    rename,
    remove,
    list,
    room,
    lock,
    locked,
};
inline constexpr size_t CALLS = 15;
const char* call_name(Call call);
// The errors that such a call can give, of EIO, ENOSPC, EDQUOT, EROFS, EMFILE, ENFILE, EACCES,
// ENOMEM and EINTR.
const std::vector<int>& errors_of(Call call);
const char* error_name(int error);

struct Fault {
    Call call = Call::write;
    uint64_t number = 1;  // of the call of its kind that fails, from 1
    int error = 0;        // an errno
    bool stays = false;   // all later ones fail as well
    bool half = false;    // a write puts the first half of its blocks there
};

// One thread.
class FaultyFiles : public PassFiles {
  public:
    explicit FaultyFiles(sim::FileSystem& below) : PassFiles(below) {}

    void fail(const Fault& fault) { m_faults.push_back(fault); }
    void heal() { m_faults.clear(); }
    uint64_t calls(Call call) const { return m_calls[static_cast<size_t>(call)]; }
    uint64_t struck() const { return m_struck; }  // how many calls failed as told

    // Writes and syncs of a file after a write or sync of it had failed. A file is another one
    // when it has got another name, and for another process.
    const std::vector<std::string>& offences() const { return m_offences; }
    void begin_process() { m_failed.clear(); }
    // Called when a write or a sync of the open file failed as told.
    std::function<void(int file)> on_failure;

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
    // Counts the call. The fault that strikes it, or null.
    const Fault* strikes(Call call);
    int failed(int file, int error);
    void check(const char* what, int file);

    std::vector<Fault> m_faults;
    uint64_t m_calls[CALLS] = {};
    uint64_t m_struck = 0;
    std::map<int, std::string> m_names;  // of the open files
    std::set<std::string> m_failed;
    std::vector<std::string> m_offences;
};

#endif  // TESTS_PROOF_FAULTY_FILES_H
