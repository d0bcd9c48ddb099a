// A program under measurement, driven through pipes or a pseudo-terminal of its own.
#ifndef BENCH_CHILD_H
#define BENCH_CHILD_H

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

enum class Wire {
    pipes,     // standard output and standard error in one pipe
    terminal,  // a pseudo-terminal in raw mode: no echo, nothing translated
};

// Input or output that ends, or a program that cannot be started, ends the benchmark.
class Child {
  public:
    // Starts `argv`. Its environment is the caller's and `extra`, one NAME=VALUE or nothing.
    Child(const std::vector<std::string>& argv, const std::string& extra, Wire wire);
    // Ends the program's input and waits for its end.
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return m_pid; }
    void send(std::string_view text);
    // Reads up to and with the first `text` that was not read before; drops what is before it.
    void wait_for(std::string_view text);
    // How many bytes wait_for has dropped so far.
    size_t dropped() const { return m_dropped; }
    // send, wait_for, and the time both took.
    int64_t round_trip_ns(std::string_view line, std::string_view prompt);

  private:
    void open_pipes();
    void open_terminal();

    std::string m_name;
    pid_t m_pid = -1;
    int m_to_child = -1;
    int m_from_child = -1;
    int m_childs_input = -1;  // the program's own ends, until it is started
    int m_childs_output = -1;
    std::string m_read;  // read and not yet matched
    size_t m_dropped = 0;
};

#endif  // BENCH_CHILD_H
