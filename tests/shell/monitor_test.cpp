// The menu loop, its word splitter and its upper-casing, on tables of the test's own.
#include "shell/monitor.h"

#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/console.h"
#include "tests/support/fresh_process.h"

namespace {

using Words = std::vector<std::string>;

// The words of each call that a handler got.
std::vector<Words> calls;

int record(int argc, char** argv) {
    calls.emplace_back(argv, argv + argc);
    return 0;
}

int refuse(int argc, char** argv) {
    record(argc, argv);
    return -1;
}

void prompt() { printf("P>"); }
void help() { printf("<help>"); }

int open_inner_menu(int, char**);

const tagCommand CMDS[] = {
    {"MAIN", record},   {"REFUSE", refuse}, {"INNER", open_inner_menu}, {"SILENT", nullptr},
    {"SILENT", record}, {"HELP", nullptr},  {nullptr, nullptr},
};

const tagCommand INNER_CMDS[] = {{"DEEP", record}, {nullptr, nullptr}};

// Runs a menu on this input to its end. Returns what it printed; `calls` holds what it ran.
std::string session(const std::string& input, const tagCommand* cmds = CMDS) {
    calls.clear();
    return run_console(input, [cmds] {
        tagMonitor menu = {prompt, help, cmds};
        monitor(&menu);
    });
}

int open_inner_menu(int, char**) {
    tagMonitor menu = {[] { printf("I>"); }, [] { printf("<inner help>"); }, INNER_CMDS};
    monitor(&menu);
    return 0;
}

TEST(Monitor, ReturnsAtOnceForANullMenu) {
    EXPECT_EQ(run_console("main\n", [] { monitor(nullptr); }), "");
}

TEST(Monitor, RunsTheHandlerWithItsWords) {
    EXPECT_EQ(session("MAIN 0XF NOW\nq\n"), "P>P>");
    EXPECT_EQ(calls, (std::vector<Words>{{"MAIN", "0XF", "NOW"}}));
}

TEST(Monitor, PrintsThePromptAgainForLinesWithoutAWord) {
    EXPECT_EQ(session("\n \n\t\n\r\n \t \r\n\f\v\nq\n"), "P>P>P>P>P>P>P>");
    EXPECT_EQ(calls, std::vector<Words>{});
}

TEST(Monitor, RunsAWordInAnyCase) {
    session("main\nMain\nMAIN\nq\n");
    EXPECT_EQ(calls, (std::vector<Words>{{"MAIN"}, {"MAIN"}, {"MAIN"}}));
}

TEST(Monitor, IgnoresUnknownWord) {
    EXPECT_EQ(session("MA\nMAINX\nX\nMAI N\nq\n"), "P>P>P>P>P>");
    EXPECT_EQ(calls, std::vector<Words>{});
}

TEST(Monitor, MatchesTheFirstWordOnly) {
    EXPECT_EQ(session("X MAIN\nX Q\nX HELP\nq\n"), "P>P>P>P>");
    EXPECT_EQ(calls, std::vector<Words>{});
}

TEST(Monitor, HandsEveryWordOverInUpperCase) {
    session("main db/Path.ini -vf 0xf\nq\n");
    EXPECT_EQ(calls, (std::vector<Words>{{"MAIN", "DB/PATH.INI", "-VF", "0XF"}}));
}

TEST(Monitor, ShowsTheHelpScreenForEachOfItsWords) {
    for (const char* word : {"HELP", "help", "H", "h", "?"})
        EXPECT_EQ(session(std::string(word) + "\nq\n"), "P><help>P>") << word;
}

TEST(Monitor, IgnoresWordsAfterHelp) {
    EXPECT_EQ(session("help main\n? main\nh main now\nq\n"), "P><help>P><help>P><help>P>");
    EXPECT_EQ(calls, std::vector<Words>{});
}

TEST(Monitor, LeavesForEachLeavingWord) {
    for (const char* word : {"Q", "q", "EXIT", "exit", "QUIT", "Quit", "q now"}) {
        EXPECT_EQ(session(std::string(word) + "\nmain\n"), "P>") << word;
        EXPECT_EQ(calls, std::vector<Words>{}) << word;
    }
}

TEST(Monitor, LeavesTheInnerMenuOnly) {
    for (const char* word : {"q", "exit", "Quit"}) {
        EXPECT_EQ(session(std::string("inner\ndeep\n") + word + "\nmain\ndeep\nq\n"),
                  "P>I>I>P>P>P>")
            << word;
        EXPECT_EQ(calls, (std::vector<Words>{{"DEEP"}, {"MAIN"}})) << word;
    }
}

TEST(Monitor, ShowsTheInnerMenusOwnHelp) {
    EXPECT_EQ(session("inner\nhelp\nq\nhelp\nq\n"), "P>I><inner help>I>P><help>P>");
}

TEST(Monitor, IgnoresARefusal) {
    EXPECT_EQ(session("refuse\nmain\nq\n"), "P>P>P>");
    EXPECT_EQ(calls, (std::vector<Words>{{"REFUSE"}, {"MAIN"}}));
}

TEST(Monitor, SwallowsTheWordOfANullHandler) {
    EXPECT_EQ(session("silent\nq\n"), "P>P>");
    EXPECT_EQ(calls, std::vector<Words>{}) << "the second entry of that name ran";
}

TEST(Monitor, AppliesABuiltInWordAfterANullHandler) {
    EXPECT_EQ(session("help\nq\n"), "P><help>P>");
}

TEST(Monitor, AppliesABuiltInWordAfterAHandler) {
    const tagCommand cmds[] = {{"H", record}, {"Q", record}, {nullptr, nullptr}};
    EXPECT_EQ(session("h\nq\nh\n", cmds), "P><help>P>");
    EXPECT_EQ(calls, (std::vector<Words>{{"H"}, {"Q"}}));
}

TEST(Monitor, RunsTheFirstOfTwoEntriesOfOneName) {
    const tagCommand cmds[] = {{"GO", record}, {"GO", refuse}, {nullptr, nullptr}};
    session("go\nq\n", cmds);
    EXPECT_EQ(calls.size(), 1u);
}

TEST(Monitor, KnowsTheBuiltInWordsWithAnEmptyTable) {
    EXPECT_EQ(session("main\nhelp\nq\n", CMDS + 6), "P>P><help>P>");
}

TEST(Monitor, SplitsWordsAtEachDelimiter) {
    session("main a\fb\rc\td\ve  f\r\nq\n");
    EXPECT_EQ(calls, (std::vector<Words>{{"MAIN", "A", "B", "C", "D", "E", "F"}}));
}

TEST(Monitor, IgnoresWordsPastThe128th) {
    std::string line = "main";
    for (int i = 2; i <= 140; ++i) line += " w" + std::to_string(i);
    session(line + "\nmain\nq\n");
    ASSERT_EQ(calls.size(), 2u);
    ASSERT_EQ(calls[0].size(), 128u);
    EXPECT_EQ(calls[0][1], "W2");
    EXPECT_EQ(calls[0][127], "W128");
    EXPECT_EQ(calls[1], Words{"MAIN"});
}

TEST(Monitor, Keeps1023CharactersOfALine) {
    session("main " + std::string(2000, 'a') + " main\nmain\nq\n");
    EXPECT_EQ(calls, (std::vector<Words>{{"MAIN", std::string(1018, 'A')}, {"MAIN"}}));
}

TEST(Monitor, StartsEveryLineWithAnEmptyBuffer) {
    in_fresh_process([] {
        // The second line is recalled over: only what was typed of it is erased.
        EXPECT_EQ(escaped(session("unknown\nx\x1a\nq\n")), escaped("P>P>\b \bunknownP>"));
    });
}

TEST(Monitor, SharesTheHistoryBetweenTheLevels) {
    in_fresh_process([] {
        EXPECT_EQ(escaped(session("unknown\ninner\n\x1a\x1a\nq\nq\n")),
                  escaped("P>P>I>inner\b \b\b \b\b \b\b \b\b \bunknownI>P>"));
    });
}

TEST(Monitor, RunsALineThatTheEndOfInputEnds) {
    EXPECT_EQ(session("main 0"), "P>P>");
    EXPECT_EQ(calls, (std::vector<Words>{{"MAIN", "0"}}));
}

TEST(Monitor, ReturnsAtTheEndOfInput) { EXPECT_EQ(session(""), "P>"); }

TEST(Monitor, LeavesEveryLevelAtTheEndOfInput) {
    EXPECT_EQ(session("inner\ndeep\n"), "P>I>I>P>");
    EXPECT_EQ(calls, (std::vector<Words>{{"DEEP"}}));
}

TEST(Monitor, GoesOnAfterByte255) {
    EXPECT_EQ(session("\xff\nmain \xff\nq\n"), "P>P>P>");
    EXPECT_EQ(calls, (std::vector<Words>{{"MAIN", "\xff"}}));
}

// The words that parse_args finds in a line.
Words split(std::string line) {
    char* words[MAX_WORDS];
    const int count = parse_args(line.data(), words);
    return {words, words + count};
}

TEST(ParseArgs, SplitsAtTheSixDelimiters) {
    EXPECT_EQ(split("a b\fc\nd\re\tf\vg"), (Words{"a", "b", "c", "d", "e", "f", "g"}));
}

TEST(ParseArgs, SplitsNowhereElse) {
    EXPECT_EQ(split("a,b;c=d\"e'f\bg"), (Words{"a,b;c=d\"e'f\bg"}));
}

TEST(ParseArgs, TakesRunsOfDelimitersForOne) {
    EXPECT_EQ(split("  \t a \r\n  b \v\f"), (Words{"a", "b"}));
}

TEST(ParseArgs, ChangesNoLetter) { EXPECT_EQ(split("Main mAIN"), (Words{"Main", "mAIN"})); }

TEST(ParseArgs, SetsTheFirstWordToNullWithoutAWord) {
    for (const char* text : {"", " ", " \f\n\r\t\v"}) {
        std::string line = text;
        char old[] = "old";
        char* words[MAX_WORDS] = {old};
        EXPECT_EQ(parse_args(line.data(), words), 0);
        EXPECT_EQ(words[0], nullptr);
    }
}

TEST(ParseArgs, StoresAtMost128Words) {
    std::string line;
    for (int i = 1; i <= 130; ++i) line += std::to_string(i) + " ";
    char guard[] = "guard";
    char* words[MAX_WORDS + 1];
    words[MAX_WORDS] = guard;
    EXPECT_EQ(parse_args(line.data(), words), 128);
    EXPECT_STREQ(words[0], "1");
    EXPECT_STREQ(words[127], "128");
    EXPECT_EQ(words[MAX_WORDS], guard);
}

TEST(UpperStr, RaisesLettersInPlace) {
    char text[] = "qm7105.ini -Vf \xff";
    UpperStr(text);
    EXPECT_STREQ(text, "QM7105.INI -VF \xff");
    char empty[] = "";
    UpperStr(empty);
    EXPECT_STREQ(empty, "");
}

}  // namespace
