// Mounting small file systems and filling them.
#include "tests/proof/small_disk.h"

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

extern char** environ;

namespace {

constexpr size_t STEP_BYTES = 1024;  // the foreign file grows by that

// 0 when the command ended well.
int run(const std::vector<std::string>& words) {
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int file : {1, 2})
        posix_spawn_file_actions_addopen(&actions, file, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int failed =
        posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed) return failed;
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void content(uint64_t offset, uint8_t* out) {
    for (size_t i = 0; i < STEP_BYTES; ++i)
        out[i] = static_cast<uint8_t>((offset + i) * 0x9e3779b97f4a7c15 >> 56);
}

}  // namespace

bool own_mounts(std::string& why) {
    if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        why = std::string("mounts of its own are not allowed: ") + strerror(errno);
        return false;
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) return true;
    why = std::string("mounts cannot be made private: ") + strerror(errno);
    return false;
}

SmallDisk::SmallDisk(Kind kind, uint64_t bytes, const std::string& place)
    : m_path(place + (kind == Kind::tmpfs ? "/tmpfs" : "/ext4")) {
    mkdir(m_path.c_str(), 0755);
    if (kind == Kind::tmpfs) {
        const std::string size = "size=" + std::to_string(bytes);
        m_mounted = mount("tmpfs", m_path.c_str(), "tmpfs", 0, size.c_str()) == 0;
        if (!m_mounted) m_trouble = std::string("tmpfs: ") + strerror(errno);
        return;
    }
    const std::string image = m_path + ".image";
    const int file = open(image.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const bool made = file >= 0 && ftruncate(file, static_cast<off_t>(bytes)) == 0;
    if (file >= 0) close(file);
    const char* const path = getenv("PATH");
    setenv("PATH", (std::string(path ? path : "/usr/bin:/bin") + ":/usr/sbin:/sbin").c_str(), 1);
    if (!made || run({"mkfs.ext4", "-q", "-F", "-m", "0", image}) != 0)
        m_trouble = "ext4: no image can be made";
    else if (run({"mount", "-o", "loop", image, m_path}) != 0)
        m_trouble = "ext4: an image cannot be mounted";
    else
        m_mounted = true;
}

SmallDisk::~SmallDisk() {
    if (m_mounted) umount2(m_path.c_str(), MNT_DETACH);
}

uint64_t SmallDisk::room() const {
    struct statvfs room;
    if (statvfs(m_path.c_str(), &room) != 0) return 0;
    return uint64_t{room.f_bavail} * room.f_frsize;
}

uint64_t SmallDisk::used() const {
    struct statvfs room;
    if (statvfs(m_path.c_str(), &room) != 0) return 0;
    return uint64_t{room.f_blocks - room.f_bfree} * room.f_frsize;
}

ForeignFile::ForeignFile(const std::string& path)
    : m_file(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
    if (m_file < 0) abort();
}

ForeignFile::~ForeignFile() { close(m_file); }

bool ForeignFile::grow(uint64_t bytes) {
    uint8_t step[STEP_BYTES];
    while (m_bytes < bytes) {
        content(m_bytes, step);
        const ssize_t written = pwrite(m_file, step, STEP_BYTES, static_cast<off_t>(m_bytes));
        if (written != static_cast<ssize_t>(STEP_BYTES)) break;
        m_bytes += STEP_BYTES;
    }
    // What a full disk took of the last step goes again.
    return ftruncate(m_file, static_cast<off_t>(m_bytes)) == 0 && fdatasync(m_file) == 0;
}

void ForeignFile::grow_to(uint64_t bytes) { grow(bytes); }

void ForeignFile::grow_until_full() { grow(UINT64_MAX); }

void ForeignFile::shrink_to(uint64_t bytes) {
    m_bytes = bytes / STEP_BYTES * STEP_BYTES;
    grow(0);
}

bool ForeignFile::untouched_size() const {
    struct stat now;
    return fstat(m_file, &now) == 0 && static_cast<uint64_t>(now.st_size) == m_bytes;
}

bool ForeignFile::untouched() const {
    if (!untouched_size()) return false;
    uint8_t right[STEP_BYTES], there[STEP_BYTES];
    for (uint64_t at = 0; at < m_bytes; at += STEP_BYTES) {
        content(at, right);
        if (pread(m_file, there, STEP_BYTES, static_cast<off_t>(at)) !=
                static_cast<ssize_t>(STEP_BYTES) ||
            memcmp(right, there, STEP_BYTES) != 0)
            return false;
    }
    return true;
}
