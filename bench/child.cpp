// Starting the measured program and talking with it. Every read is one blocking system call: the
// measuring side costs as little as it can, and the same for every program.
#include "bench/child.h"

#include <fcntl.h>
#include <pty.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "bench/measure.h"

namespace {

std::vector<char*> pointers(const std::vector<std::string>& words) {
    std::vector<char*> all;
    for (const std::string& word : words) all.push_back(const_cast<char*>(word.c_str()));
    all.push_back(nullptr);
    return all;
}

}  // namespace

Child::Child(const std::vector<std::string>& argv, const std::string& extra, Wire wire)
    : m_name(argv[0]) {
    wire == Wire::pipes ? open_pipes() : open_terminal();

    std::vector<char*> words = pointers(argv);
    std::vector<char*> environment;
    for (char** variable = environ; *variable; ++variable) environment.push_back(*variable);
    if (!extra.empty()) environment.push_back(const_cast<char*>(extra.c_str()));
    environment.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    if (wire == Wire::terminal)
        // Opened by the leader of a new session: its controlling terminal.
        posix_spawn_file_actions_addopen(&files, STDIN_FILENO, ptsname(m_from_child), O_RDWR, 0);
    else
        posix_spawn_file_actions_adddup2(&files, m_childs_input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, m_childs_output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, m_childs_output, STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    if (wire == Wire::terminal) posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);

    const int error =
        posix_spawnp(&m_pid, words[0], &files, &attributes, words.data(), environment.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (error) give_up(m_name + " cannot be started: " + strerror(error));
    close(m_childs_input);
    if (m_childs_output != m_childs_input) close(m_childs_output);
}

Child::~Child() {
    close(m_to_child);
    char rest[4096];
    if (m_from_child != m_to_child) {
        while (read(m_from_child, rest, sizeof rest) > 0) {
        }
        close(m_from_child);
    }
    waitpid(m_pid, nullptr, 0);
}

// All ends are closed on exec: no other program of the same run holds this one's input open.
void Child::open_pipes() {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) give_up("no pipe");
    m_childs_input = input[0];
    m_to_child = input[1];
    m_from_child = output[0];
    m_childs_output = output[1];
}

void Child::open_terminal() {
    termios raw = {};
    cfmakeraw(&raw);
    raw.c_cflag |= CREAD;
    int master;
    int slave;
    if (openpty(&master, &slave, nullptr, &raw, nullptr) != 0) give_up("no pseudo-terminal");
    fcntl(master, F_SETFD, FD_CLOEXEC);
    fcntl(slave, F_SETFD, FD_CLOEXEC);
    m_to_child = m_from_child = master;
    m_childs_input = m_childs_output = slave;
}

void Child::send(std::string_view text) {
    if (write(m_to_child, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        give_up(m_name + " does not take its input");
}

void Child::wait_for(std::string_view text) {
    size_t from = 0;
    for (;;) {
        const size_t found = m_read.find(text, from);
        if (found != std::string::npos) {
            m_read.erase(0, found + text.size());
            m_dropped += found;
            return;
        }
        from = m_read.size() < text.size() ? 0 : m_read.size() - text.size() + 1;
        char chunk[4096];
        const ssize_t count = read(m_from_child, chunk, sizeof chunk);
        if (count <= 0) give_up(m_name + " ended before it said '" + std::string(text) + "'");
        m_read.append(chunk, static_cast<size_t>(count));
    }
}

int64_t Child::round_trip_ns(std::string_view line, std::string_view prompt) {
    const int64_t start = now_ns();
    send(line);
    wait_for(prompt);
    return now_ns() - start;
}
