// The banner, the top-level menu's screen and its command table.
#include "shell/app.h"

#include <cctype>
#include <string>

#include "env/env_commands.h"
#include "mainwork/mainwork.h"
#include "memtest/memtest.h"
#include "tests/support/console.h"
#include "tests/support/fake_sdk.h"
#include "tests/support/screens.h"

namespace {

using App = FakeSdkTest;

// Runs the top-level menu on these lines.
std::string session(const std::string& input) {
    return run_console(input, [] {
        tagMonitor menu = {app_prompt, app_help, app_cmds};
        monitor(&menu);
    });
}

// True when `text` has the form of `shape`: 'A' a letter, '9' a digit, '_' a digit or a blank, any
// other character itself.
bool has_shape(const std::string& text, const std::string& shape) {
    if (text.size() != shape.size()) return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const int c = static_cast<unsigned char>(text[i]);
        const bool fits = shape[i] == 'A'   ? isalpha(c) != 0
                          : shape[i] == '9' ? isdigit(c) != 0
                          : shape[i] == '_' ? isdigit(c) != 0 || c == ' '
                                            : text[i] == shape[i];
        if (!fits) return false;
    }
    return true;
}

TEST_F(App, BannerNamesTheVersionAndTheBuild) {
    const std::string head =
        "\n\n"
        "-----------------------------------------\n"
        "QM7105 SDK ver1.0.3.1 \n";
    const std::string tail = "-----------------------------------------\n\n";
    const std::string banner = output_of(app_banner);
    ASSERT_GT(banner.size(), head.size() + tail.size());
    EXPECT_EQ(escaped(banner.substr(0, head.size())), escaped(head));
    EXPECT_EQ(escaped(banner.substr(banner.size() - tail.size())), escaped(tail));
    const std::string built = banner.substr(head.size(), banner.size() - head.size() - tail.size());
    EXPECT_TRUE(has_shape(built, "Last Modify AAA _9 9999-99:99:99\n")) << escaped(built);
}

TEST_F(App, PromptHasNoLineEnd) { EXPECT_EQ(output_of(app_prompt), "QM7105>"); }

TEST_F(App, HelpScreenListsTheCommands) {
    EXPECT_EQ(escaped(output_of(app_help)), escaped(TOP_HELP));
}

TEST_F(App, TableHoldsTheCommandsInOrder) {
    const tagCommand expected[] = {
        {"ENVPRINT", app_env_printenv},      {"ENVCHANGE", app_env_change},
        {"ENVSETDB", app_env_change_dbpath}, {"MAIN", app_mainwork},
        {"MEMTEST", app_test_mem},
    };
    const tagCommand* row = app_cmds;
    for (const tagCommand& command : expected) {
        ASSERT_STREQ(row->name, command.name);
        EXPECT_EQ(row->handler, command.handler) << command.name;
        ++row;
    }
    EXPECT_EQ(row->name, nullptr);
    EXPECT_EQ(row->handler, nullptr);
}

TEST_F(App, HelpCommandShowsTheWholeScreen) {
    EXPECT_EQ(escaped(session("help\nq\n")),
              escaped(std::string("QM7105>") + TOP_HELP + "QM7105>"));
}

TEST_F(App, MemtestPrintsNothingAndReturnsToThePrompt) {
    EXPECT_EQ(session("MEMTEST\nq\n"), "QM7105>QM7105>");
    EXPECT_EQ(fake().take_journal(), std::vector<std::string>{});
}

TEST_F(App, EachLeavingWordEndsTheTopLevel) {
    for (const char* word : {"EXIT", "QUIT", "Q", "exit", "Quit", "q"})
        EXPECT_EQ(session(std::string(word) + "\nENVSETDB\n"), "QM7105>") << word;
}

TEST_F(App, EndOfInputEndsTheTopLevel) { EXPECT_EQ(session(""), "QM7105>"); }

}  // namespace
