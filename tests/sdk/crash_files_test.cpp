// The files in memory that the proofs lose power on: what they keep, what they forget.
#include "tests/proof/crash_files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>

using Access = sim::FileSystem::Access;

namespace {

struct alignas(4096) Blocks {
    uint8_t bytes[4 * 4096];
    explicit Blocks(uint8_t value) { std::fill(std::begin(bytes), std::end(bytes), value); }
};

// The same answer to everything.
class Always : public CrashChooser {
  public:
    explicit Always(bool there) : m_there(there) {}
    size_t pick(size_t options) override { return m_there ? options - 1 : 0; }
    void pick_sectors(uint64_t, std::vector<bool>& there) override {
        there.assign(there.size(), m_there);
    }
    bool names_in_any_order() override { return false; }

  private:
    bool m_there;
};

class CrashFilesTest : public testing::Test {
  protected:
    CrashFilesTest() : folder(files.open_folder("f", true)) {}

    CrashFiles lost() { return after(false); }
    CrashFiles kept() { return after(true); }
    CrashFiles after(bool there) {
        Always chooser(there);
        return files.after_power_loss(chooser);
    }
    // A file with its name and four blocks of `value` durable.
    int durable_file(const std::string& name, const Blocks& blocks) {
        const int file = files.open(folder, name, Access::create);
        files.write(file, blocks.bytes, sizeof blocks.bytes, 0);
        files.sync(file);
        files.sync_folder(folder);
        return file;
    }

    CrashFiles files;
    int folder;
    const Blocks ones{1}, twos{2};
};

TEST_F(CrashFilesTest, AFileWithoutASyncedNameIsLostOrThere) {
    const int file = files.open(folder, "a", Access::create);
    files.write(file, ones.bytes, 4096, 0);
    files.sync(file);
    EXPECT_EQ(nullptr, lost().content("f", "a"));
    ASSERT_NE(nullptr, kept().content("f", "a"));
    EXPECT_EQ(4096u, kept().content("f", "a")->size());
    files.sync_folder(folder);
    EXPECT_NE(nullptr, lost().content("f", "a"));
}

TEST_F(CrashFilesTest, WhatWasNotSyncedIsOldOrNew) {
    const int file = durable_file("a", ones);
    files.write(file, twos.bytes, 4096, 4096);
    EXPECT_EQ(2, files.content("f", "a")->at(4096)) << "the running machine sees it";
    EXPECT_EQ(1, lost().content("f", "a")->at(4096));
    EXPECT_EQ(2, kept().content("f", "a")->at(4096));
    EXPECT_EQ(1, kept().content("f", "a")->at(8192));
    files.sync(file);
    EXPECT_EQ(2, lost().content("f", "a")->at(4096));
}

TEST_F(CrashFilesTest, EverySectorStandsForItself) {
    const int file = durable_file("a", ones);
    files.write(file, twos.bytes, 4096, 0);
    std::set<std::string> outcomes;
    EveryChoice every(8, false);
    do {
        const auto content = files.after_power_loss(every).content("f", "a");
        std::string outcome;
        for (size_t at = 0; at < 4096; at += SECTOR_BYTES) {
            outcome += static_cast<char>('0' + content->at(at));
            EXPECT_EQ(content->at(at), content->at(at + SECTOR_BYTES - 1)) << "a torn sector";
        }
        outcomes.insert(outcome);
    } while (every.next());
    EXPECT_EQ(256u, outcomes.size());
}

TEST_F(CrashFilesTest, ALaterWriteMayBeThereWithoutAnEarlierOne) {
    const int file = durable_file("a", ones);
    const Blocks threes{3};
    files.write(file, twos.bytes, 4096, 0);
    files.write(file, threes.bytes, 4096, 4096);
    std::set<std::pair<int, int>> outcomes;
    EveryChoice every(2, false);
    do {
        const auto content = files.after_power_loss(every).content("f", "a");
        outcomes.insert({content->at(0), content->at(4096)});
    } while (every.next());
    EXPECT_EQ((std::set<std::pair<int, int>>{{1, 1}, {1, 3}, {2, 1}, {2, 3}}), outcomes);
}

TEST_F(CrashFilesTest, SizesThatWereNotSyncedMayBeLost) {
    const int file = durable_file("a", ones);
    files.allocate(file, 65536);
    files.truncate(file, 4096);
    std::set<size_t> sizes;
    EveryChoice every(2, false);
    do sizes.insert(files.after_power_loss(every).content("f", "a")->size());
    while (every.next());
    EXPECT_EQ((std::set<size_t>{4096, 16384, 65536}), sizes);
    files.sync(file);
    EXPECT_EQ(4096u, lost().content("f", "a")->size());
}

TEST_F(CrashFilesTest, AllocatingNeitherCutsNorChanges) {
    const int file = durable_file("a", ones);
    EXPECT_EQ(0, files.allocate(file, 4096));
    EXPECT_EQ(16384, files.size(file));
    EXPECT_EQ(0, files.allocate(file, 20480));
    EXPECT_EQ(1, files.content("f", "a")->at(16383));
    EXPECT_EQ(0, files.content("f", "a")->at(16384));
}

TEST_F(CrashFilesTest, NamesAreThereAsFarAsTheyWereChangedOrInAnyOrder) {
    durable_file("a", ones);
    files.rename(folder, "a", "b");
    files.close(files.open(folder, "c", Access::create));
    const auto outcomes = [&](bool any_order) {
        std::set<std::string> all;
        EveryChoice every(2, any_order);
        do {
            std::string names;
            for (const std::string& name : files.after_power_loss(every).names("f")) names += name;
            all.insert(names);
        } while (every.next());
        return all;
    };
    EXPECT_EQ((std::set<std::string>{"a", "b", "bc"}), outcomes(false));
    EXPECT_EQ((std::set<std::string>{"a", "ac", "b", "bc"}), outcomes(true));
    files.remove(folder, "b");
    files.sync_folder(folder);
    EXPECT_EQ((std::set<std::string>{"c"}), outcomes(true));
}

TEST_F(CrashFilesTest, RenamingOverAFileReplacesItInOneStep) {
    durable_file("a", ones);
    durable_file("b", twos);
    files.rename(folder, "a", "b");
    EXPECT_EQ(2, lost().content("f", "b")->at(0));
    EXPECT_NE(nullptr, lost().content("f", "a"));
    EXPECT_EQ(1, kept().content("f", "b")->at(0));
    EXPECT_EQ(nullptr, kept().content("f", "a"));
}

TEST_F(CrashFilesTest, AKillLosesNothingThatWasWrittenAndAWriteStopsAnywhere) {
    const int file = durable_file("a", ones);
    std::unique_ptr<CrashFiles> killed;
    files.on_change = [&](const FileChange& change) {
        EXPECT_EQ("a", change.name);
        killed = std::make_unique<CrashFiles>(files.after_kill(change, 1000));
    };
    files.write(file, twos.bytes, 4096, 0);
    ASSERT_NE(nullptr, killed);
    EXPECT_EQ(2, killed->content("f", "a")->at(999));
    EXPECT_EQ(1, killed->content("f", "a")->at(1000));
    Always nothing(false);
    EXPECT_EQ(1, killed->after_power_loss(nothing).content("f", "a")->at(0)) << "not durable";
    const int again = killed->open_folder("f", false);
    EXPECT_EQ(0, killed->sync(killed->open(again, "a", Access::write)));
    EXPECT_EQ(2, killed->after_power_loss(nothing).content("f", "a")->at(0)) << "synced after it";
}

TEST_F(CrashFilesTest, WhatAFailedSyncForgotIsNeverDurable) {
    const int file = durable_file("a", ones);
    files.write(file, twos.bytes, 4096, 0);
    files.forget_unsynced(file);
    files.write(file, twos.bytes, 4096, 4096);
    files.sync(file);
    EXPECT_EQ(2, files.content("f", "a")->at(0));
    EXPECT_EQ(1, lost().content("f", "a")->at(0));
    EXPECT_EQ(2, lost().content("f", "a")->at(4096));
}

TEST_F(CrashFilesTest, LocksEndWithTheirFileAndWithTheMachine) {
    const int first = files.open(folder, "lock", Access::lock);
    const int second = files.open(folder, "lock", Access::lock);
    EXPECT_EQ(0, files.lock(first));
    EXPECT_EQ(-EAGAIN, files.lock(second));
    EXPECT_EQ(1, files.locked(second));
    EXPECT_EQ(0, files.locked(first));
    CrashFiles next = kept();
    const int third = next.open(next.open_folder("f", false), "lock", Access::lock);
    EXPECT_EQ(0, next.lock(third));
    files.close(first);
    EXPECT_EQ(0, files.lock(second));
}

TEST_F(CrashFilesTest, OffencesAreNoted) {
    const int file = files.open(folder, "qm.ini.0000000001.seg", Access::create);
    files.write(file, ones.bytes, 8192, 0);
    files.sync(file);
    files.write(file, ones.bytes, 4096, 8192);
    EXPECT_TRUE(files.offences().empty());
    files.write(file, ones.bytes, 4096, 12288);
    ASSERT_EQ(1u, files.offences().size()) << "the last write is not durable";
    files.sync(file);
    files.write(file, ones.bytes, 4096, 4096);
    EXPECT_EQ(2u, files.offences().size()) << "a durable block again";
    files.sync(file);
    files.write(file, ones.bytes, 100, 16384);
    EXPECT_EQ(3u, files.offences().size()) << "part of a block";
    files.sync(file);
    files.rename(folder, "qm.ini.0000000001.seg", "qm.ini.0000000002.seg");
    files.write(file, ones.bytes, 4096, 0);
    EXPECT_EQ(3u, files.offences().size()) << "under a new name it is a new segment";
}

TEST_F(CrashFilesTest, AnswersAsFilesDo) {
    EXPECT_EQ(-ENOENT, files.open(folder, "a", Access::read));
    EXPECT_EQ(-ENOENT, files.open(folder, "a", Access::write));
    EXPECT_EQ(-ENOENT, files.open_folder("other", false));
    EXPECT_EQ(-ENOENT, files.rename(folder, "a", "b"));
    EXPECT_EQ(-ENOENT, files.remove(folder, "a"));
    durable_file("a", ones);
    EXPECT_EQ(-EEXIST, files.open(folder, "a", Access::create));
    const int file = files.open(folder, "a", Access::read);
    uint8_t out[8192];
    EXPECT_EQ(-EBADF, files.write(file, ones.bytes, 4096, 0));
    EXPECT_EQ(4096, files.read(file, out, sizeof out, 12288));
    EXPECT_EQ(0, files.read(file, out, sizeof out, 16384));
    EXPECT_EQ(1, out[0]);
    std::vector<std::string> names;
    EXPECT_EQ(0, files.list(folder, "b", names));
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(0, files.list(folder, "a", names));
    EXPECT_EQ(std::vector<std::string>{"a"}, names);
}

}  // namespace
