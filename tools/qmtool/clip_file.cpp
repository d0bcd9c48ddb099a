// Writing a file in large pieces, and giving it its name at the end.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64  // on 32-bit boards too
#endif
#include "tools/qmtool/clip_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "tools/qmtool/sha256.h"

namespace {

constexpr uint64_t TELL_BYTES = 8 << 20;

volatile std::sig_atomic_t s_interrupted = 0;

void note_interruption(int) { s_interrupted = 1; }

// 0, else an errno.
int whole_pwrite(int file, const uint8_t* bytes, size_t size, uint64_t offset) {
    while (size > 0) {
        const ssize_t done = pwrite(file, bytes, size, static_cast<off_t>(offset));
        if (done < 0 && errno == EINTR && !interrupted()) continue;
        if (done <= 0) return done < 0 ? errno : ENOSPC;
        bytes += done;
        size -= static_cast<size_t>(done);
        offset += static_cast<uint64_t>(done);
    }
    return 0;
}

}  // namespace

void watch_for_interruption() {
    struct sigaction action = {};
    action.sa_handler = note_interruption;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before = {};
        // Who starts the program with a signal ignored wants it to go on.
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
        sigaction(signal, &action, nullptr);
    }
}

bool interrupted() { return s_interrupted != 0; }

bool move_file(const std::string& from, const std::string& to, bool replace) {
    if (replace) return rename(from.c_str(), to.c_str()) == 0;
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    // Not every file system can.
    struct stat there = {};
    if (lstat(to.c_str(), &there) != 0) return rename(from.c_str(), to.c_str()) == 0;
    errno = EEXIST;
    return false;
}

bool sync_folder_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int file = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (file < 0) return false;
    // Some file systems cannot sync a folder, and need not.
    const bool done = fsync(file) == 0 || errno == EINVAL;
    const int error = errno;
    close(file);
    errno = error;
    return done;
}

ClipFile::~ClipFile() {
    if (m_file < 0) return;
    unlink(m_part.c_str());
    close(m_file);
}

bool ClipFile::fail(const char* what, int error) {
    if (!m_failed) m_error = std::string(what) + ": " + strerror(error);
    if (interrupted()) m_error = "interrupted";
    m_failed = true;
    return false;
}

void ClipFile::give_up(const char* why) {
    m_error = why;
    m_failed = true;
}

bool ClipFile::create(const std::string& path, bool replace) {
    m_path = path;
    m_part = path + ".part";
    m_replace = replace;
    struct stat there = {};
    if (lstat(path.c_str(), &there) == 0) {
        if (S_ISDIR(there.st_mode)) return fail("cannot be written", EISDIR);
        if (!S_ISREG(there.st_mode) && !S_ISLNK(there.st_mode)) {
            give_up("there is something of that name that is no file");
            return false;
        }
        if (!replace) {
            give_up("there is such a file already; --force replaces it");
            return false;
        }
    }
    if (!open_part()) return false;
    m_piece.reset(new uint8_t[PIECE_BYTES]);
    return true;
}

// What an earlier export left, when it was killed, is written over; not what one writes now.
bool ClipFile::open_part() {
    for (;;) {
        const int file =
            open(m_part.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0640);
        if (file < 0) return fail("cannot be written", errno);
        struct stat opened = {}, there = {};
        int error = 0;
        if (flock(file, LOCK_EX | LOCK_NB) != 0) error = errno;
        if (error == EWOULDBLOCK) {
            close(file);
            give_up("another export writes it now");
            return false;
        }
        if (error == 0 && fstat(file, &opened) != 0) error = errno;
        if (error == 0 && !S_ISREG(opened.st_mode)) error = EEXIST;
        if (error == 0 && opened.st_nlink > 1) error = EMLINK;  // what others know by another name
        if (error != 0) {
            close(file);
            return fail("cannot be written", error);
        }
        // The export that had the lock may have given the file its name in between.
        if (lstat(m_part.c_str(), &there) != 0 || there.st_ino != opened.st_ino ||
            there.st_dev != opened.st_dev) {
            close(file);
            continue;
        }
        m_file = file;
        if (ftruncate(file, 0) != 0) return fail("cannot be written", errno);
        return true;
    }
}

bool ClipFile::write_out(const uint8_t* bytes, size_t size) {
    const uint64_t offset = m_written - m_filled;
    if (const int error = whole_pwrite(m_file, bytes, size, offset))
        return fail("cannot be written", error);
    // The disk begins now what the end would have to wait for.
    const uint64_t done = offset + size;
    if (done - m_told < TELL_BYTES) return true;
    sync_file_range(m_file, static_cast<off_t>(m_told), static_cast<off_t>(done - m_told),
                    SYNC_FILE_RANGE_WRITE);
    m_told = done;
    return true;
}

bool ClipFile::flush() {
    if (m_failed) return false;
    if (m_filled > 0 && !write_out(m_piece.get(), m_filled)) return false;
    m_filled = 0;
    return true;
}

bool ClipFile::write(const void* bytes, size_t size) {
    const auto* at = static_cast<const uint8_t*>(bytes);
    while (size > 0) {
        if (m_failed) return false;
        const size_t taken = std::min(size, PIECE_BYTES - m_filled);
        memcpy(m_piece.get() + m_filled, at, taken);
        m_filled += taken;
        m_written += taken;
        at += taken;
        size -= taken;
        if (m_filled == PIECE_BYTES && !flush()) return false;
    }
    return !m_failed;
}

bool ClipFile::write_at(uint64_t offset, const void* bytes, size_t size) {
    if (!flush()) return false;
    if (const int error = whole_pwrite(m_file, static_cast<const uint8_t*>(bytes), size, offset))
        return fail("cannot be written", error);
    return true;
}

bool ClipFile::digest(std::string& sha256) {
    if (!flush()) return false;
    Sha256 sum;
    for (uint64_t offset = 0; offset < m_written;) {
        const ssize_t got = pread(m_file, m_piece.get(), PIECE_BYTES, static_cast<off_t>(offset));
        if (interrupted()) return fail("cannot be read back", EINTR);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return fail("cannot be read back", got < 0 ? errno : EIO);
        sum.add(m_piece.get(), static_cast<size_t>(got));
        offset += static_cast<uint64_t>(got);
    }
    sha256 = sum.finish();
    return true;
}

bool ClipFile::settle() {
    if (!flush()) return false;
    if (fsync(m_file) != 0) return fail("cannot be made durable", errno);
    return !interrupted() || fail("interrupted", EINTR);
}

bool ClipFile::publish() {
    if (m_failed) return false;
    if (!move_file(m_part, m_path, m_replace)) return fail("cannot get its name", errno);
    const int error = sync_folder_of(m_path) ? 0 : errno;
    const bool closed = close(m_file) == 0;
    m_file = -1;
    if (error != 0) return fail("its name cannot be made durable", error);
    return closed || fail("cannot be written", errno);
}
