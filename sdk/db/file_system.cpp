// The machine's file system as a disk database uses it. Nothing here knows what is in a file, and
// nothing is remembered between calls: whether a file is written past the page cache is a flag of
// the open file itself.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64  // on 32-bit boards too
#endif
#include "sdk/db/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "sdk/runtime/descriptor.h"

namespace sim {

namespace {

constexpr mode_t FILE_MODE = 0640;
constexpr mode_t FOLDER_MODE = 0750;
constexpr size_t DIRECT_UNIT = 4096;
constexpr size_t BOUNCE_BYTES = 64 * 1024;

static_assert(sizeof(off_t) == 8);

int result(int returned) { return returned < 0 ? -errno : 0; }

// Of an open(): the file, above those of the console, or -errno.
int opened(int file) {
    const int above = above_console(file);
    return above < 0 ? -errno : above;
}

int open_path(const std::string& path) {
    return opened(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

int sync_names(int folder) {
    // A file system that has nothing to sync in a folder refuses with EINVAL.
    return ::fsync(folder) < 0 && errno != EINVAL ? -errno : 0;
}

// The name of a new folder is as durable as its files only once the folder above it is synced.
int sync_path(const std::string& path) {
    const int folder = open_path(path);
    if (folder == -EACCES) return 0;  // entered, but not read, by this user: left to the system
    if (folder < 0) return folder;
    const int error = sync_names(folder);
    ::close(folder);
    return error;
}

// Makes the folders of a path that are missing, from the first to the last.
int make_folders(const std::string& path) {
    std::string above = path[0] == '/' ? "/" : ".";
    for (size_t at = path.find_first_not_of('/'); at < path.size();) {
        const size_t end = std::min(path.find('/', at), path.size());
        const std::string folder = path.substr(0, end);
        if (mkdir(folder.c_str(), FOLDER_MODE) == 0) {
            if (const int error = sync_path(above); error < 0) return error;
        } else if (errno != EEXIST) {
            return -errno;
        }
        above = folder;
        at = std::min(path.find_first_not_of('/', end), path.size());
    }
    return 0;
}

bool is_name(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

// 0 for a regular file, else the error that tells what it is.
int check_regular(mode_t mode) {
    if (S_ISREG(mode)) return 0;
    if (S_ISDIR(mode)) return -EISDIR;
    return S_ISLNK(mode) ? -ELOOP : -EINVAL;
}

int open_flags(FileSystem::Access access) {
    switch (access) {
        case FileSystem::Access::read:
        case FileSystem::Access::stream: return O_RDONLY;
        case FileSystem::Access::write: return O_RDWR;
        case FileSystem::Access::create: return O_RDWR | O_CREAT | O_EXCL;
        case FileSystem::Access::lock: return O_RDWR | O_CREAT;
    }
    return O_RDONLY;
}

bool is_direct(int file) {
    const int flags = fcntl(file, F_GETFL);
    return flags >= 0 && (flags & O_DIRECT) != 0;
}

int make_buffered(int file) { return result(fcntl(file, F_SETFL, 0)); }

// A read that a file open past the page cache refuses: its memory, size or offset is no multiple of
// what the disk wants, or the end of the file is not. Reads whole units and copies what is wanted.
int64_t read_direct(int file, uint8_t* out, size_t size, uint64_t offset) {
    const std::unique_ptr<void, decltype(&free)> bounce(aligned_alloc(DIRECT_UNIT, BOUNCE_BYTES),
                                                        &free);
    if (!bounce) return -ENOMEM;
    size_t done = 0;
    while (done < size) {
        const uint64_t skip = (offset + done) % DIRECT_UNIT;
        const ssize_t got =
            pread(file, bounce.get(), BOUNCE_BYTES, static_cast<off_t>(offset + done - skip));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -errno;
        if (static_cast<uint64_t>(got) <= skip) break;
        const size_t part =
            std::min(size - done, static_cast<size_t>(got) - static_cast<size_t>(skip));
        memcpy(out + done, static_cast<uint8_t*>(bounce.get()) + skip, part);
        done += part;
    }
    return static_cast<int64_t>(done);
}

class RealFileSystem final : public FileSystem {
  public:
    int open_folder(const std::string& path, bool make) override;
    int open(int folder, const std::string& name, Access access) override;
    // Not tried again after an error: the number is free by then, and may be another thread's.
    void close(int file) override { ::close(file); }

    int64_t read(int file, void* out, size_t size, uint64_t offset) override;
    void announce(int file, uint64_t offset, uint64_t size) override {
        posix_fadvise(file, static_cast<off_t>(offset), static_cast<off_t>(size),
                      POSIX_FADV_WILLNEED);
    }
    int write(int file, const void* data, size_t size, uint64_t offset) override;
    // Not tried again after EINTR: the interrupted call may have taken note of a failed write for
    // good, and the next one would call the file durable.
    int sync(int file) override { return result(fdatasync(file)); }
    int sync_folder(int folder) override { return sync_names(folder); }

    int allocate(int file, uint64_t size) override;
    int truncate(int file, uint64_t size) override;
    int64_t size(int file) override;

    int rename(int folder, const std::string& from, const std::string& to) override;
    int remove(int folder, const std::string& name) override;
    int list(int folder, const std::string& prefix, std::vector<std::string>& names) override;
    int64_t room(int folder) override;

    int lock(int file) override;
    int locked(int file) override;
};

int RealFileSystem::open_folder(const std::string& path, bool make) {
    const std::string wanted = path.empty() ? "." : path;
    const int folder = open_path(wanted);
    if (folder != -ENOENT || !make) return folder;
    if (const int error = make_folders(wanted); error < 0) return error;
    return open_path(wanted);
}

// Without O_NONBLOCK a FIFO would be waited for; on a regular file it would do nothing, and is
// taken off.
int RealFileSystem::open(int folder, const std::string& name, Access access) {
    if (!is_name(name)) return -EINVAL;
    const int file = opened(
        openat(folder, name.c_str(),
               open_flags(access) | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, FILE_MODE));
    if (file < 0) return file;
    struct stat status = {};
    int error = result(fstat(file, &status));
    if (error == 0) error = check_regular(status.st_mode);
    // O_DIRECT is set only now: an open() that refuses it may have made the file already.
    const bool wants_cache = access == Access::read || access == Access::lock;
    if (error == 0 && (wants_cache || fcntl(file, F_SETFL, O_DIRECT) < 0))
        error = make_buffered(file);
    if (error == 0) return file;
    ::close(file);
    return error;
}

int64_t RealFileSystem::read(int file, void* out, size_t size, uint64_t offset) {
    auto* bytes = static_cast<uint8_t*>(out);
    size_t done = 0;
    while (done < size) {
        const ssize_t got =
            pread(file, bytes + done, size - done, static_cast<off_t>(offset + done));
        if (got > 0) {
            done += static_cast<size_t>(got);
        } else if (got == 0) {
            break;
        } else if (errno == EINVAL && is_direct(file)) {
            const int64_t rest = read_direct(file, bytes + done, size - done, offset + done);
            return rest < 0 ? rest : rest + static_cast<int64_t>(done);
        } else if (errno != EINTR) {
            return -errno;
        }
    }
    return static_cast<int64_t>(done);
}

int RealFileSystem::write(int file, const void* data, size_t size, uint64_t offset) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    size_t done = 0;
    while (done < size) {
        const ssize_t put =
            pwrite(file, bytes + done, size - done, static_cast<off_t>(offset + done));
        if (put == 0) return -EIO;
        if (put < 0) {
            if (errno == EINTR) continue;
            const int error = -errno;
            // A file system that wants a larger unit than DIRECT_UNIT.
            if (error != -EINVAL || !is_direct(file)) return error;
            if (const int failed = make_buffered(file); failed < 0) return failed;
            continue;
        }
        size_t whole = static_cast<size_t>(put);
        if (whole % DIRECT_UNIT != 0 && done + whole < size && is_direct(file)) {
            whole -= whole % DIRECT_UNIT;
            // Not one unit: what stops it (no room, a limit) is told by a write through the cache.
            if (whole == 0)
                if (const int failed = make_buffered(file); failed < 0) return failed;
        }
        done += whole;
    }
    return 0;
}

int RealFileSystem::allocate(int file, uint64_t size) {
    const int64_t before = this->size(file);
    if (before < 0) return static_cast<int>(before);
    if (static_cast<uint64_t>(before) > size || size == 0) {
        const int error = truncate(file, size);
        if (error < 0 || size == 0) return error;
    }
    int returned = 0;
    do {
        returned = fallocate(file, 0, 0, static_cast<off_t>(size));
    } while (returned < 0 && errno == EINTR);
    if (returned == 0) return 0;
    if (errno != EOPNOTSUPP && errno != ENOSYS) {
        const int error = -errno;
        // Some keep what they had set aside already.
        truncate(file, std::min(static_cast<uint64_t>(before), size));
        return error;
    }
    // The file system cannot set room aside: the length alone, and a write may find none.
    return static_cast<uint64_t>(before) < size ? truncate(file, size) : 0;
}

int RealFileSystem::truncate(int file, uint64_t size) {
    int returned = 0;
    do {
        returned = ftruncate(file, static_cast<off_t>(size));
    } while (returned < 0 && errno == EINTR);
    return result(returned);
}

int64_t RealFileSystem::size(int file) {
    struct stat status = {};
    return fstat(file, &status) < 0 ? -errno : status.st_size;
}

int RealFileSystem::rename(int folder, const std::string& from, const std::string& to) {
    if (!is_name(from) || !is_name(to)) return -EINVAL;
    return result(renameat(folder, from.c_str(), folder, to.c_str()));
}

int RealFileSystem::remove(int folder, const std::string& name) {
    if (!is_name(name)) return -EINVAL;
    return result(unlinkat(folder, name.c_str(), 0));
}

int RealFileSystem::list(int folder, const std::string& prefix, std::vector<std::string>& names) {
    // Another open file of the folder: the position of the first is shared by all threads.
    const int again = opened(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (again < 0) return again;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(fdopendir(again), closedir);
    if (!entries) {
        const int error = -errno;
        ::close(again);
        return error;
    }
    errno = 0;
    while (const dirent* entry = readdir(entries.get())) {
        struct stat status = {};
        if (strncmp(entry->d_name, prefix.c_str(), prefix.size()) == 0 &&
            (entry->d_type == DT_REG ||
             (entry->d_type == DT_UNKNOWN &&
              fstatat(folder, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
              S_ISREG(status.st_mode))))
            names.emplace_back(entry->d_name);
        errno = 0;
    }
    return -errno;
}

int64_t RealFileSystem::room(int folder) {
    struct statvfs status = {};
    if (fstatvfs(folder, &status) < 0) return -errno;
    constexpr uint64_t MOST = std::numeric_limits<int64_t>::max();
    const uint64_t unit = std::max<uint64_t>(status.f_frsize, 1);
    return static_cast<int64_t>(std::min<uint64_t>(status.f_bavail, MOST / unit) * unit);
}

// Locks of the open file, not of the process: the usual kind is no obstacle to a second open in
// the same process, and is lost as soon as any of the process's opens of the file is closed.
struct flock whole_file() {
    struct flock range = {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    return range;
}

// EINVAL: a kernel without this kind of lock.
int lock_error() {
    if (errno == EACCES) return -EAGAIN;
    return errno == EINVAL ? -ENOLCK : -errno;
}

int RealFileSystem::lock(int file) {
    struct flock range = whole_file();
    return fcntl(file, F_OFD_SETLK, &range) < 0 ? lock_error() : 0;
}

int RealFileSystem::locked(int file) {
    struct flock range = whole_file();
    if (fcntl(file, F_OFD_GETLK, &range) < 0) return lock_error();
    return range.l_type == F_UNLCK ? 0 : 1;
}

}  // namespace

// Never destroyed: databases may be closed while the program ends.
FileSystem& real_file_system() {
    static auto* files = new RealFileSystem;
    return *files;
}

}  // namespace sim
