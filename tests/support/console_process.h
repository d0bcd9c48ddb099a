// A program at the other end of a pipe or of a terminal. What to type and what to expect is the
// test's business.
#ifndef TESTS_SUPPORT_CONSOLE_PROCESS_H
#define TESTS_SUPPORT_CONSOLE_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/support/wait.h"

// How the program's standard input and output are wired. Standard error stays the test's own.
enum class Wire {
    Pipe,
    // Whole lines, as a terminal delivers them, and Ctrl-D for the end of input; but no echo, no
    // translation of line ends, no signal keys, and Ctrl-Z reaches the program.
    Terminal,
};

struct Program {
    std::string path;
    std::vector<std::string> arguments = {};
    std::string directory = ".";
    std::vector<std::string> environment = {};  // "NAME=value", added to the test's own
};

// Every wait has a deadline; a program that still runs when the object goes is killed.
class ConsoleProcess {
  public:
    using Timeout = std::chrono::milliseconds;
    static constexpr Timeout PATIENCE = ::PATIENCE;

    ConsoleProcess(const Program& program, Wire wire);
    ~ConsoleProcess();
    ConsoleProcess(const ConsoleProcess&) = delete;
    ConsoleProcess& operator=(const ConsoleProcess&) = delete;

    // Types `text`. What a program that is gone does not take is dropped.
    void send(const std::string& text);

    // Waits for `text` in the output after the last expected one. False when the output ends or
    // the time runs out before.
    bool expect(const std::string& text, Timeout timeout = PATIENCE);

    // Pipe: closes the input. Terminal: types Ctrl-D.
    void end_input();

    // Pipe: closes the reader's end of the output.
    void stop_reading();

    // Terminal: closes the session's end of the line, which hangs up on the program.
    void hang_up();

    // Everything printed from the start to the end of the output (or to the deadline).
    const std::string& read_all(Timeout timeout = PATIENCE);

    // Everything printed and read so far.
    const std::string& output() const { return m_output; }

    // The exit status; 128 + number when a signal ended the program, -1 when it still runs at the
    // deadline.
    int wait_exit(Timeout timeout = PATIENCE);

    pid_t pid() const { return m_pid; }

  private:
    using Deadline = std::chrono::steady_clock::time_point;

    // Takes what is there, waiting for it until `deadline`. False at the end or the deadline.
    bool take(Deadline deadline);

    Wire m_wire;
    pid_t m_pid = -1;
    int m_status = -1;
    int m_input = -1;  // where send() writes; with a terminal the same as m_from
    int m_from = -1;   // where the program's output arrives
    std::string m_output;
    size_t m_expected = 0;  // end of the last expected text in m_output
};

#endif  // TESTS_SUPPORT_CONSOLE_PROCESS_H
