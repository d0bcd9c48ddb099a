// The machine's file system as a disk database uses it: what may be opened, whole reads and writes,
// room, locks. What a power cut leaves is not tried here.
#include "sdk/db/file_system.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

namespace {

using sim::FileSystem;
using Access = FileSystem::Access;
namespace fs = std::filesystem;

FileSystem& files() { return sim::real_file_system(); }

// What `work` returns, 0..254, run in a process of its own; 255 when that was killed. It may change
// everything that belongs to a process.
int in_child(const std::function<int()>& work) {
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) _exit(work());
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return 255;
    return WEXITSTATUS(status);
}

constexpr int SKIPPED = 254;

// in_child with a file system of its own on `path`, which nobody else sees and which ends with it.
// SKIPPED where this user may not mount.
int in_child_with_mount(const std::string& type, const std::string& options,
                        const std::string& path, const std::function<int()>& work) {
    return in_child([&] {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", path.c_str(), type.c_str(), 0, options.c_str()) != 0)
            return SKIPPED;
        return work();
    });
}

// Memory aligned as the writer's buffer is.
using Block = std::unique_ptr<uint8_t, decltype(&free)>;
Block block(size_t size, uint8_t first) {
    Block bytes(static_cast<uint8_t*>(aligned_alloc(4096, size)), &free);
    for (size_t i = 0; i < size; ++i) bytes.get()[i] = static_cast<uint8_t>(first + i % 251);
    return bytes;
}

mode_t mode_of(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

bool closes_on_exec(int file) { return (fcntl(file, F_GETFD) & FD_CLOEXEC) != 0; }
bool is_direct(int file) { return (fcntl(file, F_GETFL) & O_DIRECT) != 0; }

class FileSystemTest : public testing::Test {
  protected:
    void SetUp() override {
        m_folder = files().open_folder(m_dir.path(), false);
        ASSERT_GE(m_folder, 3);
    }
    void TearDown() override { files().close(m_folder); }

    int open(const std::string& name, Access access) {
        return files().open(m_folder, name, access);
    }
    // Whether files of this folder can be written past the page cache, asked in another way.
    bool folder_is_direct() {
        m_dir.write("asked", "");
        const int file = ::open(m_dir.file("asked").c_str(), O_RDWR | O_DIRECT);
        if (file >= 0) ::close(file);
        fs::remove(m_dir.file("asked"));
        return file >= 0;
    }

    TempDir m_dir;
    int m_folder = -1;
};

TEST_F(FileSystemTest, MakesMissingFoldersOneByOne) {
    const std::string path = m_dir.file("a//b/c/");
    EXPECT_EQ(files().open_folder(path, false), -ENOENT);
    EXPECT_FALSE(fs::exists(m_dir.file("a")));
    const auto open_it = [&] {
        umask(0);
        const int folder = files().open_folder(path, true);
        return folder < 3 || !closes_on_exec(folder) ? 1 : 0;
    };
    EXPECT_EQ(in_child(open_it), 0);
    EXPECT_EQ(in_child(open_it), 0);  // they are there now
    EXPECT_EQ(mode_of(m_dir.file("a")), 0750u);
    EXPECT_EQ(mode_of(m_dir.file("a/b")), 0750u);
    EXPECT_EQ(mode_of(m_dir.file("a/b/c")), 0750u);
}

TEST_F(FileSystemTest, MakesFoldersBelowTheWorkingDirectory) {
    EXPECT_EQ(in_child([&] {
                  if (chdir(m_dir.path().c_str()) != 0) return 1;
                  if (files().open_folder("x/y", true) < 3) return 2;
                  const int here = files().open_folder("", false);
                  return files().open(here, "f", Access::create) < 3 ? 3 : 0;
              }),
              0);
    EXPECT_TRUE(fs::is_directory(m_dir.file("x/y")));
    EXPECT_TRUE(fs::is_regular_file(m_dir.file("f")));
}

TEST_F(FileSystemTest, FollowsSymbolicLinksInThePathOfAFolder) {
    fs::create_directory(m_dir.file("real"));
    fs::create_directory_symlink("real", m_dir.file("link"));
    const int real = files().open_folder(m_dir.file("real"), false);
    const int linked = files().open_folder(m_dir.file("link"), true);
    const int below = files().open_folder(m_dir.file("link/new"), true);
    ASSERT_GE(real, 3);
    ASSERT_GE(linked, 3);
    ASSERT_GE(below, 3);
    files().close(files().open(linked, "f", Access::create));
    EXPECT_TRUE(fs::is_regular_file(m_dir.file("real/f")));
    EXPECT_TRUE(fs::is_directory(m_dir.file("real/new")));
    for (const int folder : {real, linked, below}) files().close(folder);
}

TEST_F(FileSystemTest, TellsWhyAFolderCannotBeOpened) {
    m_dir.write("file", "x");
    ASSERT_EQ(mkfifo(m_dir.file("fifo").c_str(), 0600), 0);
    EXPECT_EQ(files().open_folder(m_dir.file("file"), true), -ENOTDIR);
    EXPECT_EQ(files().open_folder(m_dir.file("fifo"), true), -ENOTDIR);
    EXPECT_EQ(files().open_folder(m_dir.file("file/below"), true), -ENOTDIR);
}

TEST_F(FileSystemTest, MakesFilesOfTheirOwnMode) {
    EXPECT_EQ(in_child([&] {
                  umask(0);
                  return open("new", Access::create) < 3 || open("lock", Access::lock) < 3;
              }),
              0);
    EXPECT_EQ(mode_of(m_dir.file("new")), 0640u);
    EXPECT_EQ(mode_of(m_dir.file("lock")), 0640u);
}

TEST_F(FileSystemTest, MakesAFileOnlyWhereItIsAskedTo) {
    EXPECT_EQ(open("file", Access::read), -ENOENT);
    EXPECT_EQ(open("file", Access::write), -ENOENT);
    EXPECT_FALSE(fs::exists(m_dir.file("file")));
    const int first = open("file", Access::create);
    ASSERT_GE(first, 3);
    EXPECT_EQ(open("file", Access::create), -EEXIST);
    const int lock = open("file", Access::lock);
    EXPECT_GE(lock, 3);
    files().close(lock);
    files().close(first);
}

TEST_F(FileSystemTest, OpensRegularFilesOnlyAndWaitsForNothing) {
    m_dir.write("target", "x");
    fs::create_symlink("target", m_dir.file("link"));
    fs::create_symlink("nothing", m_dir.file("dangling"));
    fs::create_directory(m_dir.file("folder"));
    ASSERT_EQ(mkfifo(m_dir.file("fifo").c_str(), 0600), 0);
    const int devices = files().open_folder("/dev", false);
    ASSERT_GE(devices, 3);
    for (const Access access : {Access::read, Access::write, Access::lock}) {
        EXPECT_EQ(open("link", access), -ELOOP);
        EXPECT_EQ(open("dangling", access), -ELOOP);
        EXPECT_EQ(open("folder", access), -EISDIR);
        EXPECT_EQ(open("fifo", access), -EINVAL);
        EXPECT_EQ(files().open(devices, "null", access), -EINVAL);
    }
    for (const char* name : {"link", "dangling", "folder", "fifo"})
        EXPECT_EQ(open(name, Access::create), -EEXIST) << name;
    EXPECT_FALSE(fs::exists(m_dir.file("nothing")));
    files().close(devices);
}

TEST_F(FileSystemTest, LeavesItsFolderByNoName) {
    fs::create_directory(m_dir.file("folder"));
    m_dir.write("folder/file", "x");
    m_dir.write("file", "x");
    for (const char* name : {"", ".", "..", "folder/file", "/etc/passwd", "../x"}) {
        EXPECT_EQ(open(name, Access::read), -EINVAL) << name;
        EXPECT_EQ(open(name, Access::lock), -EINVAL) << name;
        EXPECT_EQ(files().remove(m_folder, name), -EINVAL) << name;
        EXPECT_EQ(files().rename(m_folder, "file", name), -EINVAL) << name;
        EXPECT_EQ(files().rename(m_folder, name, "file"), -EINVAL) << name;
    }
    EXPECT_EQ(open(std::string("file\0x", 6), Access::read), -EINVAL);
    EXPECT_EQ(m_dir.read("folder/file"), "x");
}

TEST_F(FileSystemTest, NeverTakesTheNumbersOfTheConsole) {
    m_dir.write("file", "x");
    EXPECT_EQ(in_child([&] {
                  for (int number = 0; number < 3; ++number) ::close(number);
                  const int folder = files().open_folder(m_dir.file("a/b"), true);
                  if (folder < 3 || !closes_on_exec(folder)) return 1;
                  const int opened[] = {open("file", Access::read), open("file", Access::write),
                                        open("new", Access::create), open("lock", Access::lock)};
                  for (const int file : opened)
                      if (file < 3 || !closes_on_exec(file)) return 2;
                  std::vector<std::string> names;
                  if (files().list(m_folder, "", names) != 0 || names.size() != 3) return 3;
                  for (int number = 0; number < 3; ++number)
                      if (fcntl(number, F_GETFD) != -1) return 4;  // nothing is left there
                  return 0;
              }),
              0);
}

TEST_F(FileSystemTest, OpensNothingThatAnotherProgramInherits) {
    m_dir.write("file", "x");
    EXPECT_TRUE(closes_on_exec(m_folder));
    for (const Access access : {Access::read, Access::write, Access::lock}) {
        const int file = open("file", access);
        EXPECT_TRUE(closes_on_exec(file));
        EXPECT_EQ(fcntl(file, F_GETFL) & O_NONBLOCK, 0);
        files().close(file);
    }
}

TEST_F(FileSystemTest, WritesPastThePageCacheWhereItCan) {
    m_dir.write("old", "");
    const int made = open("new", Access::create), written = open("old", Access::write);
    const int read = open("old", Access::read), lock = open("old", Access::lock);
    EXPECT_EQ(is_direct(made), folder_is_direct());
    EXPECT_EQ(is_direct(written), folder_is_direct());
    EXPECT_FALSE(is_direct(read));
    EXPECT_FALSE(is_direct(lock));
    for (const int file : {made, written, read, lock}) files().close(file);
}

TEST_F(FileSystemTest, WritesThroughTheCacheWhereAFileSystemHasNoOtherWay) {
    const int result = in_child_with_mount("ramfs", "", m_dir.path(), [&] {
        const int folder = files().open_folder(m_dir.path(), false);
        const int file = files().open(folder, "new", Access::create);
        if (file < 3) return 1;
        if (is_direct(file)) return 2;
        const Block out = block(8192, 1);
        if (files().write(file, out.get(), 8192, 4096) != 0 || files().sync(file) != 0) return 3;
        if (files().sync_folder(folder) != 0) return 4;
        // No room can be set aside either: the length is all it gives.
        if (files().allocate(file, 65536) != 0 || files().size(file) != 65536) return 5;
        if (files().allocate(file, 16384) != 0 || files().size(file) != 16384) return 6;
        Block in = block(8192, 0);
        if (files().read(file, in.get(), 8192, 4096) != 8192) return 7;
        return std::equal(in.get(), in.get() + 8192, out.get()) ? 0 : 8;
    });
    if (result == SKIPPED) GTEST_SKIP() << "needs the right to mount";
    EXPECT_EQ(result, 0);
}

TEST_F(FileSystemTest, WritesWhatIsNotAlignedThroughTheCache) {
    const int file = open("new", Access::create);
    const Block out = block(8192, 1);
    const bool refused = pwrite(file, out.get() + 1, 4096, 0) == -1 && errno == EINVAL;
    const bool direct = is_direct(file);
    EXPECT_EQ(files().write(file, out.get() + 1, 4096, 4096), 0);
    if (direct && refused) {
        EXPECT_FALSE(is_direct(file));
    }
    files().close(file);
    EXPECT_EQ(m_dir.read("new").substr(4096), std::string(out.get() + 1, out.get() + 4097));
    if (!direct || !refused) GTEST_SKIP() << "this file system takes it as it is";
}

TEST_F(FileSystemTest, ReadsUpToTheEndOfTheFile) {
    const int file = open("file", Access::create);
    const Block out = block(12288, 3);
    ASSERT_EQ(files().write(file, out.get(), 12288, 0), 0);
    ASSERT_EQ(files().truncate(file, 10000), 0);
    const int reader = open("file", Access::read);
    for (const int from : {file, reader}) {
        Block in = block(16384, 0);
        EXPECT_EQ(files().read(from, in.get(), 16384, 0), 10000);
        EXPECT_TRUE(std::equal(in.get(), in.get() + 10000, out.get()));
        EXPECT_EQ(files().read(from, in.get(), 4096, 8192), 10000 - 8192);
        EXPECT_EQ(files().read(from, in.get(), 4096, 12288), 0);
        EXPECT_EQ(files().read(from, in.get(), 4096, 1 << 20), 0);
        EXPECT_EQ(files().read(from, in.get(), 0, 0), 0);
        // Of no alignment at all, with a guard on both sides.
        std::vector<uint8_t> piece(7002, 0xee);
        EXPECT_EQ(files().read(from, piece.data() + 1, 7000, 1001), 7000);
        EXPECT_TRUE(std::equal(piece.begin() + 1, piece.end() - 1, out.get() + 1001));
        EXPECT_EQ(piece.front(), 0xee);
        EXPECT_EQ(piece.back(), 0xee);
        EXPECT_EQ(files().read(from, piece.data(), 7000, 9001), 999);
        EXPECT_TRUE(std::equal(piece.begin(), piece.begin() + 999, out.get() + 9001));
        EXPECT_EQ(files().read(from, piece.data(), 1, 10000), 0);
    }
    EXPECT_EQ(is_direct(file), folder_is_direct());  // reading has not changed how it is written
    files().close(reader);
    files().close(file);
}

TEST_F(FileSystemTest, ReadsLargePiecesOfNoAlignment) {
    constexpr size_t SIZE = 3 * 65536 + 4096;
    const int file = open("file", Access::create);
    const Block out = block(SIZE, 9);
    ASSERT_EQ(files().write(file, out.get(), SIZE, 0), 0);
    std::vector<uint8_t> in(SIZE);
    EXPECT_EQ(files().read(file, in.data() + 1, SIZE - 1, 1), static_cast<int64_t>(SIZE) - 1);
    EXPECT_TRUE(std::equal(in.begin() + 1, in.end(), out.get() + 1));
    files().close(file);
}

TEST_F(FileSystemTest, TellsWhatStopsAWrite) {
    m_dir.write("file", "old");
    const Block out = block(8192, 1);
    const int reader = open("file", Access::read);
    EXPECT_EQ(files().write(reader, out.get(), 4096, 0), -EBADF);
    files().close(reader);
    EXPECT_EQ(files().sync(reader), -EBADF);
    EXPECT_EQ(files().sync_folder(reader), -EBADF);
    EXPECT_EQ(files().read(reader, out.get(), 1, 0), -EBADF);
    for (const Access access : {Access::write, Access::lock})
        EXPECT_EQ(in_child([&] {
                      signal(SIGXFSZ, SIG_IGN);
                      const rlimit limit = {6000, 6000};
                      const int file = open("file", access);
                      if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
                      return files().write(file, out.get(), 8192, 0) == -EFBIG ? 0 : 2;
                  }),
                  0);
}

// A file system that takes less than a unit past the page cache and says so, again and again.
TEST_F(FileSystemTest, EndsWhenLessThanAUnitIsWrittenEachTime) {
    const int result = in_child_with_mount("tmpfs", "size=64k", m_dir.path(), [&] {
        signal(SIGXFSZ, SIG_IGN);
        alarm(20);
        const rlimit limit = {6000, 6000};
        const int folder = files().open_folder(m_dir.path(), false);
        const int file = files().open(folder, "file", Access::create);
        if (!is_direct(file)) return SKIPPED;
        const Block out = block(8192, 1);
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
        if (files().write(file, out.get(), 8192, 0) != -EFBIG) return 2;
        return files().size(file) == 6000 ? 0 : 3;
    });
    if (result == SKIPPED) GTEST_SKIP() << "needs the right to mount, and O_DIRECT on tmpfs";
    EXPECT_EQ(result, 0);
}

TEST_F(FileSystemTest, TellsThatThereIsNoRoomLeft) {
    const int result = in_child_with_mount("tmpfs", "size=64k", m_dir.path(), [&] {
        const int folder = files().open_folder(m_dir.path(), false);
        if (files().room(folder) != 65536) return 1;
        const int file = files().open(folder, "file", Access::create);
        if (files().allocate(file, 131072) != -ENOSPC) return 2;
        if (files().truncate(file, 0) != 0 || files().allocate(file, 32768) != 0) return 3;
        if (files().room(folder) != 32768) return 4;
        const Block out = block(65536, 1);
        if (files().write(file, out.get(), 65536, 32768) != -ENOSPC) return 5;
        if (files().write(file, out.get(), 32768, 0) != 0) return 6;
        return files().room(folder) == 0 ? 0 : 7;
    });
    if (result == SKIPPED) GTEST_SKIP() << "needs the right to mount";
    EXPECT_EQ(result, 0);
}

TEST_F(FileSystemTest, SetsRoomAsideAndGivesItBack) {
    const int file = open("file", Access::create);
    ASSERT_EQ(files().allocate(file, 1 << 20), 0);
    EXPECT_EQ(files().size(file), 1 << 20);
    struct stat status = {};
    ASSERT_EQ(fstat(file, &status), 0);
    EXPECT_GE(status.st_blocks * 512, 1 << 20);
    ASSERT_EQ(files().allocate(file, 65536), 0);  // as of a longer file that is used again
    EXPECT_EQ(files().size(file), 65536);
    // Of a longer file that holds nothing, too.
    ASSERT_EQ(files().truncate(file, 0), 0);
    ASSERT_EQ(files().truncate(file, 1 << 20), 0);
    ASSERT_EQ(files().allocate(file, 65536), 0);
    ASSERT_EQ(fstat(file, &status), 0);
    EXPECT_EQ(status.st_size, 65536);
    EXPECT_GE(status.st_blocks * 512, 65536);
    ASSERT_EQ(files().truncate(file, 12345), 0);
    EXPECT_EQ(files().size(file), 12345);
    ASSERT_EQ(files().allocate(file, 0), 0);
    EXPECT_EQ(files().size(file), 0);
    EXPECT_GT(files().room(m_folder), 0);
    files().close(file);
    EXPECT_EQ(files().size(file), -EBADF);
}

TEST_F(FileSystemTest, KeepsWhatIsThereWhenRoomIsSetAside) {
    m_dir.write("file", "kept");
    const int file = open("file", Access::write);
    ASSERT_EQ(files().allocate(file, 8192), 0);
    files().close(file);
    EXPECT_EQ(m_dir.read("file"), "kept" + std::string(8188, '\0'));
}

TEST_F(FileSystemTest, RenamesOverAndRemoves) {
    m_dir.write("a", "one");
    m_dir.write("b", "two");
    EXPECT_EQ(files().rename(m_folder, "a", "b"), 0);
    EXPECT_EQ(m_dir.read("b"), "one");
    EXPECT_EQ(files().rename(m_folder, "a", "b"), -ENOENT);
    EXPECT_EQ(files().sync_folder(m_folder), 0);
    EXPECT_EQ(files().remove(m_folder, "b"), 0);
    EXPECT_EQ(files().remove(m_folder, "b"), -ENOENT);
    EXPECT_TRUE(fs::is_empty(m_dir.path()));
}

TEST_F(FileSystemTest, ListsTheRegularFilesOfAPrefix) {
    for (const char* name : {"db.ini", "db.ini.1", "db.ini.2", "other"}) m_dir.write(name, "");
    fs::create_directory(m_dir.file("db.ini.folder"));
    fs::create_symlink("db.ini", m_dir.file("db.ini.link"));
    std::vector<std::string> names = {"before"};
    EXPECT_EQ(files().list(m_folder, "db.ini", names), 0);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"before", "db.ini", "db.ini.1", "db.ini.2"}));
    names.clear();
    EXPECT_EQ(files().list(m_folder, "", names), 0);  // again from the start
    EXPECT_EQ(names.size(), 4u);
    EXPECT_EQ(files().list(m_folder, "none", names), 0);
    EXPECT_EQ(names.size(), 4u);
}

TEST_F(FileSystemTest, LocksBetweenTwoOpensOfOneProcess) {
    const int one = open("lock", Access::lock), two = open("lock", Access::lock);
    const int reader = open("lock", Access::read);
    EXPECT_EQ(files().locked(one), 0);
    EXPECT_EQ(files().lock(one), 0);
    EXPECT_EQ(files().lock(one), 0);    // it has it
    EXPECT_EQ(files().locked(one), 0);  // and no other
    EXPECT_EQ(files().locked(two), 1);
    EXPECT_EQ(files().locked(reader), 1);
    EXPECT_EQ(files().lock(two), -EAGAIN);
    files().close(reader);  // another open file: the lock stays
    EXPECT_EQ(files().lock(two), -EAGAIN);
    files().close(one);
    EXPECT_EQ(files().locked(two), 0);
    EXPECT_EQ(files().lock(two), 0);
    files().close(two);
}

TEST_F(FileSystemTest, LocksUntilItsProcessIsKilled) {
    int held[2];
    ASSERT_EQ(pipe(held), 0);
    const pid_t child = fork();
    if (child == 0) {
        const int file = open("lock", Access::lock);
        const char answer = files().lock(file) == 0 ? 'y' : 'n';
        if (write(held[1], &answer, 1) != 1) _exit(1);
        for (;;) pause();
    }
    ASSERT_GT(child, 0);
    ::close(held[1]);
    char answer = 0;
    EXPECT_EQ(read(held[0], &answer, 1), 1);
    ::close(held[0]);
    EXPECT_EQ(answer, 'y');
    const int file = open("lock", Access::lock);
    EXPECT_EQ(files().locked(file), 1);
    EXPECT_EQ(files().lock(file), -EAGAIN);
    kill(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(files().locked(file), 0);
    EXPECT_EQ(files().lock(file), 0);
    files().close(file);
}

}  // namespace
