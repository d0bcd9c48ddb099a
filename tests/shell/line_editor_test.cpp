// Lines, recall keys and the history. What the menus do with a line is tested with the menu loop.
#include "shell/line_editor.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/console.h"
#include "tests/support/fresh_process.h"

namespace {

const std::string BACK = "\x1a";     // Ctrl-Z
const std::string FORWARD = "\x18";  // Ctrl-X

// One call of gets_his: its result, what the buffer holds, and what was printed.
struct Line {
    int count;
    std::string text;
    std::string output;
};

Line read_line(const std::string& input, int size = ANSWER_SIZE) {
    Line line;
    line.output = run_console(input, [&] {
        std::vector<char> buffer(static_cast<size_t>(size), '\0');
        line.count = gets_his(buffer.data(), size);
        line.text = buffer.data();
    });
    return line;
}

// The lines that an input gives, up to its end.
std::vector<std::string> read_lines(const std::string& input, int size = ANSWER_SIZE) {
    std::vector<std::string> lines;
    run_console(input, [&] {
        for (;;) {
            std::vector<char> buffer(static_cast<size_t>(size), '\0');
            gets_his(buffer.data(), size);
            if (input_ended()) break;
            lines.emplace_back(buffer.data());
        }
    });
    return lines;
}

void enter(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) read_line(line + "\n");
}

// What a recall prints: the erase sequence once for each character of `before`, then `after`.
std::string replaced(const std::string& before, const std::string& after) {
    std::string text;
    for (size_t i = 0; i < before.size(); ++i) text += "\b \b";
    return text + after;
}

// What a row of recalls on an empty line prints, when it shows these lines.
std::string shown(const std::vector<std::string>& lines) {
    std::string text;
    std::string before;
    for (const std::string& line : lines) {
        text += replaced(before, line);
        before = line;
    }
    return text;
}

// The output of these keys on an empty line, then Enter.
std::string recalled(const std::string& keys) { return escaped(read_line(keys + "\n").output); }

std::string repeated(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
}

TEST(LineEditor, ReturnsTheLineAndItsLength) {
    const Line line = read_line("main 0xf\n");
    EXPECT_EQ(line.text, "main 0xf");
    EXPECT_EQ(line.count, 8);
}

TEST(LineEditor, EchoesNothing) { EXPECT_EQ(read_line("main 0xf\n").output, ""); }

TEST(LineEditor, ReturnsZeroForAnEmptyLine) {
    const Line line = read_line("\nnext\n");
    EXPECT_EQ(line.text, "");
    EXPECT_EQ(line.count, 0);
}

TEST(LineEditor, LeavesTheNextLineInTheInput) {
    EXPECT_EQ(read_lines("one\n\ntwo\n"), (std::vector<std::string>{"one", "", "two"}));
}

TEST(LineEditor, StoresEveryOtherByteAsItIs) {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte)
        if (byte != 10 && byte != 24 && byte != 26) bytes += static_cast<char>(byte);
    const Line line = read_line(bytes + "\n", 512);
    EXPECT_EQ(escaped(line.text), escaped(bytes));
    EXPECT_EQ(line.count, 252);
    EXPECT_EQ(line.output, "");
}

TEST(LineEditor, TakesByte255ForAnOrdinaryCharacter) {
    run_console(
        "a\xff"
        "b\n",
        [] {
            char buffer[ANSWER_SIZE] = {};
            EXPECT_EQ(gets_his(buffer), 3);
            EXPECT_STREQ(buffer,
                         "a\xff"
                         "b");
            EXPECT_FALSE(input_ended());
        });
}

TEST(LineEditor, EndsALineInProgressAtTheEndOfInput) {
    run_console("encode 1", [] {
        char buffer[ANSWER_SIZE] = {};
        EXPECT_EQ(gets_his(buffer), 8);
        EXPECT_STREQ(buffer, "encode 1");
        EXPECT_TRUE(input_ended());
    });
}

TEST(LineEditor, GivesEmptyLinesAfterTheEndOfInput) {
    run_console("", [] {
        for (int i = 0; i < 3; ++i) {
            char buffer[ANSWER_SIZE] = {};
            EXPECT_EQ(gets_his(buffer), 0);
            EXPECT_STREQ(buffer, "");
            EXPECT_TRUE(input_ended());
        }
    });
}

TEST(LineEditor, RecordsALineThatTheEndOfInputEnds) {
    in_fresh_process([] {
        read_line("encode 1");
        EXPECT_EQ(recalled(BACK), "encode 1");
    });
}

TEST(LineEditor, TakesARecallAtTheEndOfInput) {
    in_fresh_process([] {
        enter({"status"});
        EXPECT_EQ(read_line(BACK).text, "status");
    });
}

TEST(LineEditor, KeepsWhatFitsOfALongLine) {
    const Line line = read_line("0123456789\n", 8);
    EXPECT_EQ(line.text, "0123456");
    EXPECT_EQ(line.count, 7);
}

TEST(LineEditor, DropsTheRestOfALongLine) {
    EXPECT_EQ(read_lines("0123456789\nnext\n", 8), (std::vector<std::string>{"0123456", "next"}));
}

TEST(LineEditor, Keeps127CharactersOfAnAnswer) {
    EXPECT_EQ(read_line(std::string(127, 'a') + "\n").count, 127);
    EXPECT_EQ(read_line(std::string(128, 'a') + "\n").count, 127);
    EXPECT_EQ(read_line(std::string(5000, 'a') + "\n").text, std::string(127, 'a'));
}

TEST(LineEditor, WritesNothingBehindTheBuffer) {
    run_console("0123456789\n", [] {
        char memory[10] = {};
        memset(memory + 8, '#', 2);
        gets_his(memory, 8);
        EXPECT_EQ(memory[7], '\0');
        EXPECT_EQ(memory[8], '#');
    });
}

TEST(LineEditor, CutsARecalledLineToTheBuffer) {
    in_fresh_process([] {
        enter({"0123456789"});
        const Line line = read_line(BACK + "x\n", 8);
        EXPECT_EQ(line.text, "0123456");
        EXPECT_EQ(line.output, "0123456");
    });
}

TEST(LineEditor, WalksThroughThreeEntriesWithBothKeys) {
    in_fresh_process([] {
        const std::string a = "main", b = "encode 0", c = "status";
        enter({a, b, c});
        const std::string keys = repeated(BACK, 4) + repeated(FORWARD, 5) + BACK + BACK;
        EXPECT_EQ(recalled(keys), escaped(shown({c, b, a, a, a, b, c, "", c})));
    });
}

TEST(LineEditor, ForwardAfterBackShowsTheOlderEntry) {
    in_fresh_process([] {
        enter({"main", "encode 0", "status"});
        EXPECT_EQ(recalled(BACK + FORWARD), escaped(shown({"status", "encode 0"})));
    });
}

TEST(LineEditor, ForwardShowsTheNewestEntryOnce) {
    in_fresh_process([] {
        enter({"main", "status"});
        EXPECT_EQ(recalled(FORWARD + FORWARD), "status");
    });
}

TEST(LineEditor, ForwardOnAnEmptyHistoryIsIgnored) {
    in_fresh_process([] {
        const Line line = read_line("abc" + FORWARD + "d\n");
        EXPECT_EQ(line.text, "abcd");
        EXPECT_EQ(line.output, "");
    });
}

TEST(LineEditor, BackOnAnEmptyHistoryClearsTheTypedTextOnce) {
    in_fresh_process([] {
        const Line line = read_line("abc" + BACK + "de" + BACK + "f\n");
        EXPECT_EQ(line.text, "def");
        EXPECT_EQ(escaped(line.output), escaped(replaced("abc", "")));
    });
}

TEST(LineEditor, ForwardAfterBackOnAnEmptyHistoryClearsTheLineOnce) {
    in_fresh_process([] {
        const Line line = read_line("ab" + BACK + "cde" + FORWARD + "fg" + FORWARD + "\n");
        EXPECT_EQ(line.text, "fg");
        EXPECT_EQ(escaped(line.output), escaped(replaced("ab", "") + replaced("cde", "")));
    });
}

TEST(LineEditor, AnEmptyLineLeavesTheCursorAlone) {
    in_fresh_process([] {
        read_line(BACK + "\n");  // now the cursor stands before the first entry
        EXPECT_EQ(read_line("ab" + BACK + "\n").output, "");
    });
}

TEST(LineEditor, AnEmptyLineIsNotRecorded) {
    in_fresh_process([] {
        enter({"main", ""});
        EXPECT_EQ(recalled(BACK), "main");
    });
}

TEST(LineEditor, ALineOfBlanksIsRecorded) {
    in_fresh_process([] {
        enter({"main", "   "});
        EXPECT_EQ(recalled(BACK + BACK), escaped(shown({"   ", "main"})));
    });
}

TEST(LineEditor, ReplacesTheTypedTextByTheEntry) {
    in_fresh_process([] {
        enter({"status"});
        const Line line = read_line("abc" + BACK + "\n");
        EXPECT_EQ(escaped(line.output), "\\b \\b\\b \\b\\b \\bstatus");
        EXPECT_EQ(line.text, "status");
        EXPECT_EQ(line.count, 6);
        EXPECT_EQ(screen_of(line.output), "status");
    });
}

TEST(LineEditor, ErasesTheHeldTextUpToItsTerminator) {
    in_fresh_process([] {
        enter({"status"});
        const std::string typed("ab\0cd", 5);
        EXPECT_EQ(escaped(read_line(typed + BACK + "\n").output),
                  escaped(replaced("ab", "status")));
    });
}

TEST(LineEditor, AppendsCharactersToARecalledLine) {
    in_fresh_process([] {
        enter({"encode"});
        const Line line = read_line(BACK + " 3\n");
        EXPECT_EQ(line.text, "encode 3");
        EXPECT_EQ(line.count, 8);
        EXPECT_EQ(line.output, "encode");
    });
}

TEST(LineEditor, AppendsCharactersToAShortLineThatWasRecalledAfterALongOne) {
    in_fresh_process([] {
        enter({"h", "encode 0"});
        EXPECT_EQ(read_line(BACK + BACK + "x\n").text, "hx");
    });
}

// The held text is measured up to its terminator: what is typed over that of a short recalled line
// joins the tail of the long line before it.
TEST(LineEditor, ErasesTheTailOfALongLineThatWasTypedInto) {
    in_fresh_process([] {
        enter({"xy"});
        const Line line = read_line("abcdefgh" + BACK + "z" + BACK + "\n");
        EXPECT_EQ(line.output, replaced("abcdefgh", "xy") + replaced("xyzdefgh", "xy"));
        EXPECT_EQ(line.text, "xy");
    });
}

TEST(LineEditor, BackAndEnterGivesTheNewestLineAgain) {
    in_fresh_process([] {
        EXPECT_EQ(read_lines("main\nstatus\n" + BACK + "\n"),
                  (std::vector<std::string>{"main", "status", "status"}));
    });
}

TEST(History, StoresALineThatIsEnteredTwiceOnce) {
    in_fresh_process([] {
        enter({"main", "status", "status"});
        EXPECT_EQ(recalled(BACK + BACK), escaped(shown({"status", "main"})));
    });
}

TEST(History, LeavesARepeatedLineWhereItWasFirstStored) {
    in_fresh_process([] {
        enter({"main", "status", "encode 0", "main"});
        EXPECT_EQ(recalled(repeated(BACK, 3)), escaped(shown({"encode 0", "status", "main"})));
    });
}

TEST(History, PutsTheCursorOnTheNewestEntryAfterARepeatedLine) {
    in_fresh_process([] {
        enter({"main", "status"});
        enter({BACK + BACK});  // runs "main" again
        EXPECT_EQ(recalled(BACK), "status");
    });
}

TEST(History, ForgetsTheOldestOfNineLines) {
    in_fresh_process([] {
        enter({"1", "2", "3", "4", "5", "6", "7", "8", "9"});
        EXPECT_EQ(recalled(repeated(BACK, 9)),
                  escaped(shown({"9", "8", "7", "6", "5", "4", "3", "2", "2"})));
    });
}

TEST(History, TakesAForgottenLineForANewOne) {
    in_fresh_process([] {
        enter({"1", "2", "3", "4", "5", "6", "7", "8", "9", "1"});
        EXPECT_EQ(recalled(repeated(BACK, 8)),
                  escaped(shown({"1", "9", "8", "7", "6", "5", "4", "3"})));
    });
}

TEST(History, ShowsAnEmptyLineBehindEightEntries) {
    in_fresh_process([] {
        enter({"1", "2", "3", "4", "5", "6", "7", "8"});
        EXPECT_EQ(recalled(FORWARD + BACK + BACK), escaped(shown({"8", "", "8"})));
    });
}

TEST(History, TellsUpperFromLowerCase) {
    in_fresh_process([] {
        enter({"help", "HELP"});
        EXPECT_EQ(recalled(BACK + BACK), escaped(shown({"HELP", "help"})));
    });
}

TEST(History, HoldsTheCarriageReturnOfALine) {
    in_fresh_process([] {
        enter({"main", "main\r"});
        EXPECT_EQ(recalled(BACK + BACK), escaped(shown({"main\r", "main"})));
    });
}

TEST(History, Holds31CharactersOfALine) {
    in_fresh_process([] {
        enter({std::string(40, 'a')});
        const Line line = read_line(BACK + "\n");
        EXPECT_EQ(line.text, std::string(31, 'a'));
        EXPECT_EQ(line.output, std::string(31, 'a'));
    });
}

TEST(History, TakesLinesOfTheSame31CharactersForEqual) {
    in_fresh_process([] {
        const std::string head(31, 'a');
        enter({"main", head + "first", head + "second", head});
        EXPECT_EQ(recalled(BACK + BACK), escaped(shown({head, "main"})));
    });
}

TEST(History, HisSetReplacesTheLine) {
    in_fresh_process([] {
        enter({"main", "status"});
        char buffer[ANSWER_SIZE] = "abc";
        int result = -1;
        const std::string output = output_of([&] { result = his_set(buffer, 1); });
        EXPECT_EQ(result, 1);
        EXPECT_STREQ(buffer, "status");
        EXPECT_EQ(escaped(output), escaped(replaced("abc", "status")));
    });
}

TEST(History, HisSetLeavesTheCursorAlone) {
    in_fresh_process([] {
        enter({"main", "status"});
        char buffer[ANSWER_SIZE] = {};
        output_of([&] { his_set(buffer, 0); });
        EXPECT_EQ(recalled(BACK), "status");
    });
}

TEST(History, HisSetShowsAnEmptyLineOutsideTheEntries) {
    in_fresh_process([] {
        enter({"main"});
        for (const int entry : {-1, 1, 7, 8, 1000, -1000}) {
            char buffer[ANSWER_SIZE] = "ab";
            int result = 0;
            const std::string output = output_of([&] { result = his_set(buffer, entry); });
            EXPECT_EQ(result, entry);
            EXPECT_STREQ(buffer, "") << entry;
            EXPECT_EQ(escaped(output), escaped(replaced("ab", ""))) << entry;
        }
    });
}

TEST(History, HisAppendAddsALine) {
    in_fresh_process([] {
        char line[] = "main";
        his_append(line);
        char empty[] = "";
        his_append(empty);
        EXPECT_EQ(recalled(BACK), "main");
    });
}

TEST(Getch, GivesEveryByteAndThenTheEndOfInput) {
    run_console(std::string("\0\x1a\n\xff", 4), [] {
        for (const int byte : {0, 26, 10, 255}) {
            EXPECT_EQ(getch(), byte);
            EXPECT_FALSE(input_ended());
        }
        EXPECT_EQ(getch(), EOF);
        EXPECT_TRUE(input_ended());
    });
}

TEST(Getch, PutsThePromptOnTheWireFirst) {
    run_console("", [] {
        printf("MAIN>");
        getch();
        struct stat written;
        fstat(STDOUT_FILENO, &written);
        EXPECT_EQ(written.st_size, 5);
    });
}

// getch() behind a prompt that cannot be written.
int getch_behind_a_prompt() {
    printf("MAIN>");
    return getch();
}

TEST(Getch, TakesAnOutputThatNobodyReadsForTheEndOfInput) {
    in_fresh_process([] {
        signal(SIGPIPE, SIG_IGN);
        run_console("main\n", [] {
            int ends[2];
            ASSERT_EQ(pipe(ends), 0);
            close(ends[0]);
            dup2(ends[1], STDOUT_FILENO);
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(getch_behind_a_prompt(), EOF);
                EXPECT_TRUE(input_ended());
            }
            __fpurge(stdout);
        });
    });
}

TEST(Getch, WaitsOnAnInputThatIsSetToNonBlocking) {
    run_console("", [] {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        dup2(ends[0], STDIN_FILENO);
        std::thread writer([&] {
            usleep(20'000);
            EXPECT_EQ(write(ends[1], "m", 1), 1);
            usleep(20'000);
            close(ends[1]);
        });
        EXPECT_EQ(getch(), 'm');
        EXPECT_FALSE(input_ended());
        EXPECT_EQ(getch(), EOF);
        EXPECT_TRUE(input_ended());
        writer.join();
    });
}

TEST(Getch, GoesOnWhenTheOutputIsFull) {
    in_fresh_process([] {
        run_console("m", [] {
            const int full = open("/dev/full", O_WRONLY);
            ASSERT_GE(full, 0);
            dup2(full, STDOUT_FILENO);
            EXPECT_EQ(getch_behind_a_prompt(), 'm');
            EXPECT_FALSE(input_ended());
            __fpurge(stdout);
        });
    });
}

}  // namespace
