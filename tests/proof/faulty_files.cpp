#include "tests/proof/faulty_files.h"

#include <array>
#include <cerrno>

#include "sdk/db/format.h"

const char* call_name(Call call) {
    static constexpr std::array<const char*, CALLS> names = {
        "open_folder", "open",   "read",   "write", "sync", "sync_folder", "allocate", "truncate",
        "size",        "rename", "remove", "list",  "room", "lock",        "locked"};
    return names[static_cast<size_t>(call)];
}

const char* error_name(int error) {
    switch (error) {
        case EIO: return "EIO";
        case ENOSPC: return "ENOSPC";
        case EDQUOT: return "EDQUOT";
        case EROFS: return "EROFS";
        case EMFILE: return "EMFILE";
        case ENFILE: return "ENFILE";
        case EACCES: return "EACCES";
        case ENOMEM: return "ENOMEM";
        case EINTR: return "EINTR";
    }
    return "?";
}

const std::vector<int>& errors_of(Call call) {
    static const std::vector<int> naming = {EIO,    ENOSPC, EDQUOT, EROFS, EMFILE,
                                            ENFILE, EACCES, ENOMEM, EINTR};
    static const std::vector<int> storing = {EIO, ENOSPC, EDQUOT, EROFS, ENOMEM, EINTR};
    static const std::vector<int> changing = {EIO, ENOSPC, EDQUOT, EROFS, EACCES, ENOMEM, EINTR};
    static const std::vector<int> asking = {EIO, EACCES, ENOMEM, EINTR};
    static const std::vector<int> listing = {EIO, EMFILE, ENFILE, EACCES, ENOMEM, EINTR};
    switch (call) {
        case Call::open_folder:
        case Call::open: return naming;
        case Call::write:
        case Call::sync:
        case Call::sync_folder:
        case Call::allocate:
        case Call::truncate: return storing;
        case Call::rename:
        case Call::remove: return changing;
        case Call::list: return listing;
        case Call::read:
        case Call::size:
        case Call::room:
        case Call::lock:
        case Call::locked: break;
    }
    return asking;
}

const Fault* FaultyFiles::strikes(Call call) {
    const uint64_t number = ++m_calls[static_cast<size_t>(call)];
    for (const Fault& fault : m_faults)
        if (fault.call == call &&
            (number == fault.number || (fault.stays && number > fault.number))) {
            ++m_struck;
            return &fault;
        }
    return nullptr;
}

int FaultyFiles::failed(int file, int error) {
    m_failed.insert(m_names[file]);
    if (on_failure) on_failure(file);
    return -error;
}

void FaultyFiles::check(const char* what, int file) {
    const std::string& name = m_names[file];
    if (m_failed.contains(name))
        m_offences.push_back(name + " " + what + " after a write or sync of it had failed");
}

int FaultyFiles::open_folder(const std::string& path, bool make) {
    const Fault* fault = strikes(Call::open_folder);
    return fault ? -fault->error : PassFiles::open_folder(path, make);
}

int FaultyFiles::open(int folder, const std::string& name, Access access) {
    if (const Fault* fault = strikes(Call::open)) return -fault->error;
    const int file = PassFiles::open(folder, name, access);
    if (file >= 0) m_names[file] = name;
    if (file >= 0 && access == Access::create) m_failed.erase(name);
    return file;
}

void FaultyFiles::close(int file) {
    m_names.erase(file);
    PassFiles::close(file);
}

int64_t FaultyFiles::read(int file, void* out, size_t size, uint64_t offset) {
    const Fault* fault = strikes(Call::read);
    return fault ? -fault->error : PassFiles::read(file, out, size, offset);
}

int FaultyFiles::write(int file, const void* data, size_t size, uint64_t offset) {
    check("written", file);
    const Fault* fault = strikes(Call::write);
    if (!fault) return PassFiles::write(file, data, size, offset);
    const size_t done = size / 2 / sim::BLOCK_BYTES * sim::BLOCK_BYTES;
    if (fault->half && done > 0) PassFiles::write(file, data, done, offset);
    return failed(file, fault->error);
}

int FaultyFiles::sync(int file) {
    check("synced", file);
    const Fault* fault = strikes(Call::sync);
    return fault ? failed(file, fault->error) : PassFiles::sync(file);
}

int FaultyFiles::sync_folder(int folder) {
    const Fault* fault = strikes(Call::sync_folder);
    return fault ? -fault->error : PassFiles::sync_folder(folder);
}

int FaultyFiles::allocate(int file, uint64_t size) {
    const Fault* fault = strikes(Call::allocate);
    return fault ? -fault->error : PassFiles::allocate(file, size);
}

int FaultyFiles::truncate(int file, uint64_t size) {
    const Fault* fault = strikes(Call::truncate);
    return fault ? -fault->error : PassFiles::truncate(file, size);
}

int64_t FaultyFiles::size(int file) {
    const Fault* fault = strikes(Call::size);
    return fault ? -fault->error : PassFiles::size(file);
}

int FaultyFiles::rename(int folder, const std::string& from, const std::string& to) {
    if (const Fault* fault = strikes(Call::rename)) return -fault->error;
    const int result = PassFiles::rename(folder, from, to);
    if (result < 0) return result;
    m_failed.erase(from);
    m_failed.erase(to);
    for (auto& [file, name] : m_names)
        if (name == from) name = to;
    return result;
}

int FaultyFiles::remove(int folder, const std::string& name) {
    if (const Fault* fault = strikes(Call::remove)) return -fault->error;
    m_failed.erase(name);
    return PassFiles::remove(folder, name);
}

int FaultyFiles::list(int folder, const std::string& prefix, std::vector<std::string>& names) {
    const Fault* fault = strikes(Call::list);
    return fault ? -fault->error : PassFiles::list(folder, prefix, names);
}

int64_t FaultyFiles::room(int folder) {
    const Fault* fault = strikes(Call::room);
    return fault ? -fault->error : PassFiles::room(folder);
}

int FaultyFiles::lock(int file) {
    const Fault* fault = strikes(Call::lock);
    return fault ? -fault->error : PassFiles::lock(file);
}

int FaultyFiles::locked(int file) {
    const Fault* fault = strikes(Call::locked);
    return fault ? -fault->error : PassFiles::locked(file);
}
