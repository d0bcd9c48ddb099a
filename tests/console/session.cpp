// Starting the program and comparing what it printed.
#include "tests/console/session.h"

#include <algorithm>
#include <ctime>

#include "tests/console/texts.h"

namespace {

constexpr size_t SHOWN_TOO_MUCH = 1000;

}  // namespace

void Session::start(const std::vector<std::string>& arguments) {
    m_console = std::make_unique<ConsoleProcess>(
        Program{QM7105_PROGRAM, arguments, m_directory.path(), {}}, wire());
}

void Session::check(const std::string& input, const std::string& expected) {
    if (!m_console) start();
    m_console->send(input);
    m_console->end_input();
    // Of a program that prints without end, a little more than expected is shown.
    const std::string shown = after_banner(m_console->read_all());
    EXPECT_EQ(shown.substr(0, expected.size() + SHOWN_TOO_MUCH), expected);
    EXPECT_EQ(m_console->wait_exit(), 0);
}

void Session::check_top(const std::string& input, const std::string& expected) {
    check(input, TOP_HELP + texts::TOP + expected + texts::FAREWELL);
}

void Session::check_main(const std::string& input, const std::string& expected) {
    check_top("MAIN\n" + input + "EXIT\nQ\n",
              MAIN_HELP + texts::MAIN + expected + texts::MAIN_CLOSING + texts::TOP);
}

std::string after_banner(const std::string& output) {
    if (!output.starts_with(texts::BANNER_HEAD)) {
        ADD_FAILURE() << "no banner: " << testing::PrintToString(output);
        return output;
    }
    const std::string rest = output.substr(texts::BANNER_HEAD.size());
    const std::string build_time = rest.substr(0, texts::BUILD_TIME_LENGTH);
    tm unused{};
    const char* end = strptime(build_time.c_str(), texts::BUILD_TIME, &unused);
    EXPECT_TRUE(end && *end == '\0') << build_time;
    const std::string tail = rest.substr(build_time.size());
    EXPECT_TRUE(tail.starts_with(texts::BANNER_TAIL)) << testing::PrintToString(tail);
    return tail.substr(std::min(texts::BANNER_TAIL.size(), tail.size()));
}

int count_of(const std::string& text, const std::string& output) {
    int count = 0;
    for (size_t at = output.find(text); at != std::string::npos; at = output.find(text, at + 1))
        ++count;
    return count;
}

void PrintTo(Wire wire, std::ostream* out) { *out << (wire == Wire::Pipe ? "pipe" : "terminal"); }
