// Fork, pipes and pseudo-terminals behind ConsoleProcess.
#include "tests/support/console_process.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace {

constexpr char CTRL_D = 4;

// No session prints as much; a program that prints without end is not read any further.
constexpr size_t MAX_OUTPUT = size_t{4} << 20;

void require(bool done, const char* what) {
    if (!done) throw std::runtime_error(what);
}

void close_end(int& fd) {
    if (fd >= 0) close(fd);
    fd = -1;
}

int milliseconds_to(std::chrono::steady_clock::time_point deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

// Lines and Ctrl-D as on any terminal; nothing echoed, nothing translated, no other special key.
void make_plain(int terminal) {
    termios mode{};
    require(tcgetattr(terminal, &mode) == 0, "tcgetattr");
    cfmakeraw(&mode);
    mode.c_lflag |= ICANON;
    for (cc_t& key : mode.c_cc) key = _POSIX_VDISABLE;
    mode.c_cc[VEOF] = CTRL_D;
    require(tcsetattr(terminal, TCSANOW, &mode) == 0, "tcsetattr");
}

// In the child: never returns.
[[noreturn]] void become(const Program& program, int input, int output, bool terminal) {
    if (terminal) {
        setsid();
        ioctl(input, TIOCSCTTY, 0);
    }
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    if (chdir(program.directory.c_str()) != 0) _exit(126);
    // putenv keeps the strings: the program's own copy of them lives until it is replaced.
    for (const std::string& entry : program.environment) putenv(const_cast<char*>(entry.c_str()));
    std::vector<char*> words = {const_cast<char*>(program.path.c_str())};
    for (const std::string& word : program.arguments)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    execv(words[0], words.data());
    _exit(127);
}

}  // namespace

ConsoleProcess::ConsoleProcess(const Program& program, Wire wire) : m_wire(wire) {
    signal(SIGPIPE, SIG_IGN);
    int child_in = -1;
    int child_out = -1;
    if (wire == Wire::Terminal) {
        require(openpty(&m_from, &child_in, nullptr, nullptr, nullptr) == 0, "openpty");
        fcntl(m_from, F_SETFD, FD_CLOEXEC);
        fcntl(child_in, F_SETFD, FD_CLOEXEC);
        make_plain(child_in);
        m_input = m_from;
        child_out = child_in;
    } else {
        int to_child[2];
        int from_child[2];
        require(pipe2(to_child, O_CLOEXEC) == 0, "pipe");
        require(pipe2(from_child, O_CLOEXEC) == 0, "pipe");
        child_in = to_child[0];
        m_input = to_child[1];
        m_from = from_child[0];
        child_out = from_child[1];
    }
    fcntl(m_input, F_SETFL, O_NONBLOCK);
    m_pid = fork();
    require(m_pid >= 0, "fork");
    if (m_pid == 0) {
        signal(SIGPIPE, SIG_DFL);
        become(program, child_in, child_out, wire == Wire::Terminal);
    }
    close(child_in);
    if (child_out != child_in) close(child_out);
}

ConsoleProcess::~ConsoleProcess() {
    if (m_wire == Wire::Pipe) close_end(m_input);
    close_end(m_from);
    if (m_pid > 0 && m_status < 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
}

void ConsoleProcess::send(const std::string& text) {
    const Deadline deadline = std::chrono::steady_clock::now() + PATIENCE;
    for (size_t sent = 0; sent < text.size();) {
        // The output is taken meanwhile: a program that nobody reads takes no input either.
        pollfd ready[] = {{m_input, POLLOUT, 0}, {m_from, POLLIN, 0}};
        if (poll(ready, 2, milliseconds_to(deadline)) <= 0) return;
        if ((ready[1].revents & POLLIN) && !take(deadline)) return;
        if (ready[0].revents == 0) continue;
        const ssize_t n = write(m_input, text.data() + sent, text.size() - sent);
        if (n < 0 && errno != EINTR && errno != EAGAIN) return;
        if (n > 0) sent += static_cast<size_t>(n);
    }
}

bool ConsoleProcess::take(Deadline deadline) {
    if (m_from < 0 || m_output.size() > MAX_OUTPUT) return false;
    if (std::chrono::steady_clock::now() > deadline) return false;
    pollfd ready = {m_from, POLLIN, 0};
    if (poll(&ready, 1, milliseconds_to(deadline)) <= 0) return false;
    char buffer[65536];
    // A terminal tells that its other end is closed by an error, a pipe by an end.
    const ssize_t n = read(m_from, buffer, sizeof buffer);
    if (n <= 0) return false;
    m_output.append(buffer, static_cast<size_t>(n));
    return true;
}

bool ConsoleProcess::expect(const std::string& text, Timeout timeout) {
    const Deadline deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        const size_t found = m_output.find(text, m_expected);
        if (found != std::string::npos) {
            m_expected = found + text.size();
            return true;
        }
        if (!take(deadline)) return false;
    }
}

void ConsoleProcess::end_input() {
    if (m_wire == Wire::Terminal)
        send(std::string(1, CTRL_D));
    else
        close_end(m_input);
}

void ConsoleProcess::stop_reading() { close_end(m_from); }

void ConsoleProcess::hang_up() {
    close_end(m_from);
    m_input = -1;
}

const std::string& ConsoleProcess::read_all(Timeout timeout) {
    const Deadline deadline = std::chrono::steady_clock::now() + timeout;
    while (take(deadline)) {
    }
    return m_output;
}

int ConsoleProcess::wait_exit(Timeout timeout) {
    const Deadline deadline = std::chrono::steady_clock::now() + timeout;
    while (m_status < 0) {
        int status = 0;
        if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        } else if (std::chrono::steady_clock::now() > deadline) {
            return -1;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    return m_status;
}
