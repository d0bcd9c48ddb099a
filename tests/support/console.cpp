// Redirection of the process's standard input and output to files in memory.
#include "tests/support/console.h"

#include <stdio_ext.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void give_up(const char* what) {
    perror(what);
    abort();
}

int memory_file(const std::string& content) {
    const int fd = memfd_create("console", MFD_CLOEXEC);
    if (fd < 0) give_up("memfd_create");
    if (write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
        give_up("write");
    lseek(fd, 0, SEEK_SET);
    return fd;
}

// Everything in the file that `fd` names; moves its read position to the end.
std::string content_of(int fd) {
    std::string text;
    char part[4096];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t n; (n = read(fd, part, sizeof part)) > 0;)
        text.append(part, static_cast<size_t>(n));
    return text;
}

// Puts `fd`, which it owns, in the place of a standard descriptor for its lifetime.
class Redirection {
  public:
    Redirection(int standard, int fd) : m_standard(standard), m_saved(dup(standard)), m_fd(fd) {
        dup2(m_fd, m_standard);
    }
    ~Redirection() {
        dup2(m_saved, m_standard);
        close(m_saved);
        close(m_fd);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

    int fd() const { return m_fd; }

  private:
    const int m_standard;
    const int m_saved;
    const int m_fd;
};

void forget_input() {
    __fpurge(stdin);
    clearerr(stdin);
}

}  // namespace

std::string run_console(const std::string& input, const std::function<void()>& action) {
    fflush(stdout);
    forget_input();
    std::string output;
    {
        const Redirection in(STDIN_FILENO, memory_file(input));
        const Redirection out(STDOUT_FILENO, memory_file(""));
        action();
        fflush(stdout);
        output = content_of(out.fd());
    }
    forget_input();
    return output;
}

std::string output_of(const std::function<void()>& action) { return run_console("", action); }

std::string errors_of(const std::function<void()>& action) {
    const Redirection errors(STDERR_FILENO, memory_file(""));
    action();
    return content_of(errors.fd());
}

std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '\n': out += "\\n\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            case '\b': out += "\\b"; break;
            case '\\': out += "\\\\"; break;
            case '"': out += "\\\""; break;
            default:
                if (c >= 32 && c < 127) {
                    out += c;
                } else {
                    char code[8];
                    snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(c));
                    out += code;
                }
        }
    }
    return out;
}

std::string screen_of(const std::string& text) {
    std::string shown;
    std::string row;
    size_t column = 0;
    for (const char c : text) {
        if (c == '\n') {
            shown += row + '\n';
            row.clear();
            column = 0;
        } else if (c == '\r') {
            column = 0;
        } else if (c == '\b') {
            if (column > 0) --column;
        } else {
            if (column == row.size()) row += ' ';
            row[column++] = c;
        }
    }
    return shown + row;
}
