// Whole-program sessions, each through a pipe and through a terminal. What is typed and what must
// come back stands in the tests, the screens in texts.h.
#ifndef TESTS_CONSOLE_SESSION_H
#define TESTS_CONSOLE_SESSION_H

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/console_process.h"
#include "tests/support/temp_dir.h"

// Starts the program in a directory of the test's own. Without an environment file there it runs
// on the built-in defaults: every channel off, databases in memory.
class Session : public testing::Test {
  protected:
    virtual Wire wire() const = 0;

    void write_environment(const std::string& name, const std::string& text) {
        m_directory.write(name, text);
    }

    // Starts the program; its words are file names, seen from the directory.
    void start(const std::vector<std::string>& arguments = {});
    ConsoleProcess& console() { return *m_console; }

    // Starts the program if it does not run, types `input`, ends the input unless the program has
    // left, and compares all that it printed after the banner with `expected`; the exit status
    // must be 0.
    void check(const std::string& input, const std::string& expected);

    // The same from the top-level prompt on: the first help screen and the farewell are added.
    void check_top(const std::string& input, const std::string& expected);

    // A session of MAIN alone: `input` is typed at the MAIN prompt, and `expected` is what follows
    // that prompt up to the prompt at which EXIT is typed.
    void check_main(const std::string& input, const std::string& expected);

  private:
    TempDir m_directory;
    std::unique_ptr<ConsoleProcess> m_console;
};

// Names a wire in the names of the tests.
void PrintTo(Wire wire, std::ostream* out);

// A test that runs once on each wire; see RUN_ON_BOTH_WIRES.
class WiredSession : public Session, public testing::WithParamInterface<Wire> {
  protected:
    Wire wire() const override { return GetParam(); }
};

// What follows the banner; a wrong banner fails the test.
std::string after_banner(const std::string& output);

// How often `text` stands in `output`.
int count_of(const std::string& text, const std::string& output);

#define RUN_ON_BOTH_WIRES(suite)                                        \
    INSTANTIATE_TEST_SUITE_P(Pipe, suite, testing::Values(Wire::Pipe)); \
    INSTANTIATE_TEST_SUITE_P(Terminal, suite, testing::Values(Wire::Terminal))

#endif  // TESTS_CONSOLE_SESSION_H
