// The stand-in's INI profile reader, on one small awkward file a test.
#include "shell/qm_profile.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/console.h"
#include "tests/support/temp_dir.h"

namespace {

// The text of a key, or "(absent)" when it is reported as not found.
std::string text_of(const std::string& file, const char* key, const char* section = "GENERAL") {
    std::vector<char> buffer(200000, '#');
    const int found = getPrivateProfileString(section, key, "(absent)", buffer.data(),
                                              static_cast<int>(buffer.size()), file.c_str());
    const std::string text = buffer.data();
    EXPECT_EQ(found != 0, text != "(absent)");
    return text;
}

int number_of(const std::string& file, const char* key, int fallback = -99) {
    return getPrivateProfileInt("GENERAL", key, fallback, file.c_str());
}

// How often `path` is opened during `action`.
int openings_of(const std::string& path, const std::function<void()>& action) {
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    // With the closings in between, no two equal events follow each other and become one.
    EXPECT_GE(inotify_add_watch(watch, path.c_str(), IN_OPEN | IN_CLOSE), 0);
    action();
    alignas(inotify_event) char events[4096];
    const ssize_t bytes = read(watch, events, sizeof events);
    close(watch);
    int openings = 0;
    for (ssize_t at = 0; at < bytes;) {
        const auto* event = reinterpret_cast<const inotify_event*>(events + at);
        if (event->mask & IN_OPEN) ++openings;
        at += static_cast<ssize_t>(sizeof *event + event->len);
    }
    return openings;
}

class Profile : public testing::Test {
  protected:
    // A file with exactly this content.
    std::string file_of(const std::string& content) { return m_dir.write("board.ini", content); }

    // The text of `key` in a file with exactly this content.
    std::string read(const std::string& content, const char* key) {
        return text_of(file_of(content), key);
    }

    // The text and the number of a key k with this value.
    std::string text(const std::string& value) { return read("[GENERAL]\nk=" + value + "\n", "k"); }
    int number(const std::string& value) {
        return number_of(file_of("[GENERAL]\nk=" + value + "\n"), "k");
    }

    // The path does not count as a profile, and that is said in one line that names it.
    void expect_refused(const std::string& path) {
        int result = -1;
        const std::string errors = errors_of([&] { result = qm_existfile(path); });
        EXPECT_EQ(result, 0);
        EXPECT_EQ(std::ranges::count(errors, '\n'), 1) << errors;
        EXPECT_TRUE(errors.ends_with('\n')) << errors;
        EXPECT_NE(errors.find(path), std::string::npos) << errors;
        errors_of([&] {
            EXPECT_EQ(text_of(path, "k"), "(absent)");
            EXPECT_EQ(number_of(path, "k", 7), 7);
        });
    }

    // The path is a missing file: it does not exist, and nothing is said.
    void expect_missing(const std::string& path) {
        EXPECT_EQ(errors_of([&] {
                      EXPECT_EQ(qm_existfile(path), 0);
                      EXPECT_EQ(text_of(path, "k"), "(absent)");
                      EXPECT_EQ(number_of(path, "k", 7), 7);
                  }),
                  "");
    }

    TempDir m_dir;
};

TEST_F(Profile, ReadsATextAndANumber) {
    const std::string file = file_of("[GENERAL]\nboard_type=6\nfirmware=fw.bin\n");
    EXPECT_NE(qm_existfile(file), 0);
    EXPECT_EQ(number_of(file, "board_type"), 6);
    EXPECT_EQ(text_of(file, "firmware"), "fw.bin");
}

TEST_F(Profile, ReadsKeysWithoutAskingForTheFileFirst) {
    EXPECT_EQ(read("[GENERAL]\nk=v\n", "k"), "v");
}

TEST_F(Profile, PrintsNothing) {
    const std::string file = file_of("[GENERAL]\nk=v\n");
    std::string output;
    errors_of([&] {
        output = output_of([&] {
            qm_existfile(file);
            text_of(file, "k");
            qm_existfile(m_dir.path());
        });
    });
    EXPECT_EQ(output, "");
}

TEST_F(Profile, AnAbsentKeyGivesTheFallback) {
    const std::string file = file_of("[GENERAL]\nk=v\n");
    EXPECT_EQ(text_of(file, "other"), "(absent)");
    EXPECT_EQ(text_of(file, "k", "AUDIO"), "(absent)");
    EXPECT_EQ(number_of(file, "other", 2), 2);
}

TEST_F(Profile, AKeyBelongsToItsSectionOnly) {
    const std::string file = file_of("[A]\nk=1\n[B]\nk=2\nonly=3\n");
    EXPECT_EQ(text_of(file, "k", "A"), "1");
    EXPECT_EQ(text_of(file, "k", "B"), "2");
    EXPECT_EQ(text_of(file, "only", "A"), "(absent)");
}

TEST_F(Profile, SectionNamesMayHoldBlanks) {
    EXPECT_EQ(text_of(file_of("[MAIN STREAM]\nch_01=1 0\n"), "ch_01", "MAIN STREAM"), "1 0");
}

TEST_F(Profile, NamesMatchInAnyCase) {
    EXPECT_EQ(read("[General]\nBoard_TYPE=6\n", "board_type"), "6");
}

TEST_F(Profile, NamesMatchWhole) {
    EXPECT_EQ(read("[GENERAL]\nqp_table_10=x\nqp_table=y\n", "qp_table_1"), "(absent)");
    EXPECT_EQ(text_of(file_of("[GENERALS]\nk=1\n"), "k"), "(absent)");
}

TEST_F(Profile, TheFirstOfTwoEqualKeysWins) {
    EXPECT_EQ(read("[GENERAL]\nk=first\nK=second\n", "k"), "first");
}

TEST_F(Profile, TheFirstOfTwoEqualKeysWinsWhenItIsEmpty) {
    const std::string file = file_of("[GENERAL]\nk=\nk=2\n");
    EXPECT_EQ(text_of(file, "k"), "");
    EXPECT_EQ(number_of(file, "k", 7), 7);
}

TEST_F(Profile, TheFirstOfTwoEqualSectionsWins) {
    const std::string file = file_of("[GENERAL]\nk=first\n[X]\n[general]\nk=second\nl=third\n");
    EXPECT_EQ(text_of(file, "k"), "first");
    EXPECT_EQ(text_of(file, "l"), "(absent)");
}

TEST_F(Profile, BlanksAroundNamesAndValuesAreDropped) {
    EXPECT_EQ(read(" \t[ \tGENERAL\t ] \n \tk \t=\t  a b \t\n", "k"), "a b");
}

TEST_F(Profile, ABlankValueIsAnEmptyOne) { EXPECT_EQ(text("  \t "), ""); }

TEST_F(Profile, OnePairOfQuotesIsDropped) {
    EXPECT_EQ(text("\"a b\""), "a b");
    EXPECT_EQ(text("\"\"a\"\""), "\"a\"");
    EXPECT_EQ(text("\"\""), "");
}

TEST_F(Profile, QuotesKeepTheBlanksInside) { EXPECT_EQ(text(" \" a  b \" "), " a  b "); }

TEST_F(Profile, AQuoteWithoutItsPairStays) {
    EXPECT_EQ(text("\"a"), "\"a");
    EXPECT_EQ(text("a\""), "a\"");
    EXPECT_EQ(text("\""), "\"");
    EXPECT_EQ(text("a\"b\"c"), "a\"b\"c");
}

TEST_F(Profile, CommentLinesAreNoKeys) {
    const std::string file = file_of("; [GENERAL]\n[GENERAL]\n;k=1\n#k=2\n  ; k=3\n\t# k=4\nk=5\n");
    EXPECT_EQ(text_of(file, "k"), "5");
    EXPECT_EQ(text_of(file, ";k"), "(absent)");
    EXPECT_EQ(text_of(file, "#k"), "(absent)");
}

TEST_F(Profile, ThereIsNoCommentBehindAValue) {
    EXPECT_EQ(text("a;b.ini ; c"), "a;b.ini ; c");
    EXPECT_EQ(text("a#b.ini # c"), "a#b.ini # c");
    EXPECT_EQ(text("\"a\" ; b"), "\"a\" ; b");
}

TEST_F(Profile, AValueMayHoldEqualsSignsAndBrackets) {
    EXPECT_EQ(text("a=b=c"), "a=b=c");
    EXPECT_EQ(text("[x]"), "[x]");
}

TEST_F(Profile, LinesEndWithCarriageReturnAndLineFeed) {
    const std::string file = file_of("[GENERAL]\r\nk=v\r\nn=6\r\n\r\n[AUDIO]\r\nch_01=1\r\n");
    EXPECT_EQ(escaped(text_of(file, "k")), "v");
    EXPECT_EQ(number_of(file, "n"), 6);
    EXPECT_EQ(text_of(file, "ch_01", "AUDIO"), "1");
}

TEST_F(Profile, TheLastLineNeedsNoEnd) {
    EXPECT_EQ(read("[GENERAL]\nk=v", "k"), "v");
    EXPECT_EQ(escaped(read("[GENERAL]\nk=v\r", "k")), "v");
}

TEST_F(Profile, AByteOrderMarkIsSkipped) {
    EXPECT_EQ(read("\xef\xbb\xbf[GENERAL]\nk=v\n", "k"), "v");
}

TEST_F(Profile, BytesAbove127AreKept) {
    EXPECT_EQ(text("K\xc3\xb6ln/\xff.ini"), "K\xc3\xb6ln/\xff.ini");
}

TEST_F(Profile, ANulByteEndsAValue) {
    const std::string file = file_of(std::string("[GENERAL]\nk=ab\0cd\nl=next\n", 24));
    EXPECT_EQ(text_of(file, "k"), "ab");
    EXPECT_EQ(text_of(file, "l"), "next");
}

TEST_F(Profile, ANulByteFirstLeavesAnEmptyValue) {
    const std::string file = file_of(std::string("[GENERAL]\nk=\0007\n", 15));
    EXPECT_EQ(text_of(file, "k"), "");
    EXPECT_EQ(number_of(file, "k", 5), 5);
}

TEST_F(Profile, LinesMayBeOfAnyLength) {
    const std::string value(100000, 'x');
    const std::string file =
        file_of("[GENERAL]\n;" + std::string(100000, 'c') + "\nk=" + value + "\nl=next\n");
    EXPECT_EQ(text_of(file, "k"), value);
    EXPECT_EQ(text_of(file, "l"), "next");
}

TEST_F(Profile, AValueIsCutToTheBuffer) {
    const std::string file = file_of("[GENERAL]\nk=0123456789\n");
    char buffer[8];
    std::ranges::fill(buffer, '#');
    EXPECT_NE(getPrivateProfileString("GENERAL", "k", "", buffer, 6, file.c_str()), 0);
    EXPECT_STREQ(buffer, "01234");
    EXPECT_EQ(buffer[6], '#');
    EXPECT_NE(getPrivateProfileString("GENERAL", "k", "", buffer, 1, file.c_str()), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(buffer[1], '1');
}

TEST_F(Profile, AFallbackIsCutToTheBuffer) {
    const std::string file = file_of("[GENERAL]\n");
    char buffer[8];
    std::ranges::fill(buffer, '#');
    EXPECT_EQ(getPrivateProfileString("GENERAL", "k", "0123456789", buffer, 4, file.c_str()), 0);
    EXPECT_STREQ(buffer, "012");
    EXPECT_EQ(buffer[4], '#');
}

TEST_F(Profile, AnEmptyTextIsFound) {
    const std::string file = file_of("[GENERAL]\nk=\n");
    char buffer[8] = "old";
    EXPECT_NE(getPrivateProfileString("GENERAL", "k", "fallback", buffer, 8, file.c_str()), 0);
    EXPECT_STREQ(buffer, "");
}

TEST_F(Profile, AnEmptyNumberIsAbsent) {
    EXPECT_EQ(number_of(file_of("[GENERAL]\nk=\n"), "k", 7), 7);
    EXPECT_EQ(number_of(file_of("[GENERAL]\nk=\"\"\n"), "k", 7), 7);
}

TEST_F(Profile, ReadsDecimalNumbers) {
    EXPECT_EQ(number("0"), 0);
    EXPECT_EQ(number("-12"), -12);
    EXPECT_EQ(number("+12"), 12);
    EXPECT_EQ(number("\"7\""), 7);
    EXPECT_EQ(number("12 frames"), 12);
    EXPECT_EQ(number("many"), 0);
    EXPECT_EQ(number("99999999999"), INT_MAX);
}

TEST_F(Profile, ReadsHexadecimalNumbersAfterAPrefix) {
    EXPECT_EQ(number("0x1f"), 31);
    EXPECT_EQ(number("0X1F"), 31);
    EXPECT_EQ(number("0xffffffff"), -1);
    EXPECT_EQ(number("0x"), 0);
    EXPECT_EQ(number("1f"), 1);
}

TEST_F(Profile, ReadsNoOctalNumbers) {
    EXPECT_EQ(number("010"), 10);
    EXPECT_EQ(number("09"), 9);
}

TEST_F(Profile, LinesThatSayNothingArePassedOver) {
    EXPECT_EQ(read("k=0\nno section yet\n[GENERAL]\nno equals sign\n\n \t\n=nameless\nk=1\n", "k"),
              "1");
}

TEST_F(Profile, AnEmptyFileExists) { EXPECT_NE(qm_existfile(file_of("")), 0); }

TEST_F(Profile, ALinkIsItsFile) {
    const std::string file = file_of("[GENERAL]\nk=v\n");
    std::filesystem::create_symlink(file, m_dir.file("link.ini"));
    EXPECT_NE(qm_existfile(m_dir.file("link.ini")), 0);
    EXPECT_EQ(text_of(m_dir.file("link.ini"), "k"), "v");
}

TEST_F(Profile, AMissingFileIsNoNews) {
    expect_missing(m_dir.file("missing.ini"));
    expect_missing(m_dir.file("missing/board.ini"));
    expect_missing("");
}

TEST_F(Profile, ALinkToNothingIsAMissingFile) {
    std::filesystem::create_symlink(m_dir.file("nothing"), m_dir.file("link.ini"));
    expect_missing(m_dir.file("link.ini"));
}

TEST_F(Profile, AMissingFileAfterAnotherOneGivesNothingOfIt) {
    EXPECT_EQ(read("[GENERAL]\nk=v\n", "k"), "v");
    expect_missing(m_dir.file("missing.ini"));
}

TEST_F(Profile, ADirectoryIsRefused) { expect_refused(m_dir.path()); }

TEST_F(Profile, AFifoIsRefusedWithoutWaiting) {
    ASSERT_EQ(mkfifo(m_dir.file("fifo").c_str(), 0600), 0);
    expect_refused(m_dir.file("fifo"));
}

TEST_F(Profile, AFifoIsNotEvenOpened) {
    const std::string fifo = m_dir.file("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(openings_of(fifo, [&] { expect_refused(fifo); }), 0);
}

TEST_F(Profile, AFifoWithAWriterIsRefused) {
    ASSERT_EQ(mkfifo(m_dir.file("fifo").c_str(), 0600), 0);
    const int both_ends = open(m_dir.file("fifo").c_str(), O_RDWR);
    ASSERT_GE(both_ends, 0);
    ASSERT_EQ(write(both_ends, "[GENERAL]\nk=v\n", 14), 14);
    expect_refused(m_dir.file("fifo"));
    close(both_ends);
}

TEST_F(Profile, ADeviceIsRefused) {
    expect_refused("/dev/null");
    expect_refused("/dev/zero");
}

TEST_F(Profile, AFileThatCannotBeReadIsRefused) {
    // A regular file by its looks, whose first byte cannot be read by anybody.
    expect_refused("/proc/self/mem");
}

TEST_F(Profile, AFileOfOneMebibyteIsRead) {
    std::string content = "[GENERAL]\nk=v\n;";
    content.resize(1 << 20, 'x');
    EXPECT_EQ(read(content, "k"), "v");
}

TEST_F(Profile, AFileAboveOneMebibyteIsRefused) {
    std::string content = "[GENERAL]\nk=v\n;";
    content.resize((1 << 20) + 1, 'x');
    expect_refused(file_of(content));
}

TEST_F(Profile, AChangedFileIsReadAgain) {
    const std::string file = file_of("[GENERAL]\nk=old\n");
    EXPECT_EQ(text_of(file, "k"), "old");
    file_of("[GENERAL]\nk=brand new\n");
    EXPECT_NE(qm_existfile(file), 0);
    EXPECT_EQ(text_of(file, "k"), "brand new");
}

TEST_F(Profile, AFileThatGoesBadWhileItIsReadIsToldOnce) {
    const std::string file = file_of("[GENERAL]\nk=1\n");
    const std::string huge(2 << 20, ';');
    const std::string errors = errors_of([&] {
        EXPECT_NE(qm_existfile(file), 0);
        for (int i = 0; i < 5; ++i) {
            std::ofstream(file) << huge;
            EXPECT_EQ(number_of(file, "k", 7), 7);
            std::ofstream(file) << "[GENERAL]\nk=1" << i << "\n";
            EXPECT_EQ(number_of(file, "k", 7), 10 + i);
        }
    });
    EXPECT_EQ(std::ranges::count(errors, '\n'), 1) << errors;
}

TEST_F(Profile, TwoFilesMayBeReadInTurns) {
    const std::string a = m_dir.write("a.ini", "[GENERAL]\nk=a\n");
    const std::string b = m_dir.write("b.ini", "[GENERAL]\nk=b\n");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(text_of(a, "k"), "a");
        EXPECT_EQ(text_of(b, "k"), "b");
    }
}

TEST_F(Profile, ALoadOpensTheFileTwiceAtMost) {
    const std::string file = file_of("[GENERAL]\nk=v\n");
    const int openings = openings_of(file, [&] {
        qm_existfile(file);
        for (int i = 0; i < 100; ++i) {
            text_of(file, "k");
            number_of(file, "missing");
        }
    });
    EXPECT_GE(openings, 1);
    EXPECT_LE(openings, 2);
}

}  // namespace
