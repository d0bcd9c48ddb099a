// Typing, and reading the figures out of the tables.
#include "tests/console/disk_program.h"

#include <csignal>
#include <cstdio>
#include <sstream>
#include <thread>

#include "tests/console/texts.h"

namespace {

const std::string MAIN_TITLE = "\nMain Stream Encode Status\n";
const std::string SEARCH_TITLE = "\nSearch Status\n";

// So many tables without a frame in a row, before and after a pause of the test: nothing comes any
// more. One alone may be a busy machine, many at once the status thread that catches up.
constexpr int TABLES_AT_REST = 5;
constexpr std::chrono::seconds PAUSE(2);

using Clock = std::chrono::steady_clock;

// The program, its standard error in a file, under the same process number.
Program program(const TempDir& folder, const std::string& environment, const std::string& board,
                const std::string& said) {
    return {"/bin/sh",
            {"-c", "exec \"$0\" \"$1\" 2>\"$2\"", QM7105_PROGRAM, environment, said},
            folder.path(),
            {"QM_BOARD=" + board}};
}

std::string next_name() {
    static int programs = 0;
    return "said." + std::to_string(++programs);
}

}  // namespace

DiskProgram::DiskProgram(const TempDir& folder, const std::string& environment,
                         const std::string& board)
    : m_folder(folder),
      m_said(next_name()),
      m_console(program(folder, environment, board, m_said), Wire::Pipe) {
    type("MAIN\nSTATUS\nSET\nt 3 0\n9\nRUN\nq\n");
    expect(texts::STATUS_RUNS);
}

bool DiskProgram::expect(const std::string& text) {
    if (!m_console.expect(text)) return false;
    m_read_to = m_console.output().find(text, m_read_to) + text.size();
    return true;
}

bool DiskProgram::expect_said(const std::string& text) const {
    const Clock::time_point deadline = Clock::now() + ConsoleProcess::PATIENCE;
    while (said().find(text) == std::string::npos) {
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

std::string DiskProgram::said() const {
    std::istringstream lines(m_folder.read(m_said));
    std::string kept;
    for (std::string line; std::getline(lines, line);)
        if (!line.ends_with(" frames were dropped because the machine fell behind"))
            kept += line + "\n";
    return kept;
}

DiskProgram::Figures DiskProgram::next_table(const std::string& title) {
    Figures figures;
    if (!expect(title) || !expect("\n 0 ")) return figures;
    const size_t row = m_read_to;
    if (!expect("\n")) return figures;
    if (sscanf(m_console.output().c_str() + row, "%d %d", &figures.total, &figures.period) != 2)
        return {};
    return figures;
}

int DiskProgram::reached(const std::string& title, int least) {
    const Clock::time_point deadline = Clock::now() + ConsoleProcess::PATIENCE;
    int total = 0;
    while (total >= 0 && total < least && Clock::now() < deadline) total = next_table(title).total;
    return total;
}

int DiskProgram::at_rest(const std::string& title, int tables) {
    const Clock::time_point deadline = Clock::now() + ConsoleProcess::PATIENCE;
    int without = 0;
    for (;;) {
        const Figures figures = next_table(title);
        without = figures.total > 0 && figures.period == 0 ? without + 1 : 0;
        if (figures.total < 0 || without == tables) return figures.total;
        if (Clock::now() > deadline) return -1;
    }
}

int DiskProgram::recorded(int least) { return reached(MAIN_TITLE, least); }

int DiskProgram::switch_off() {
    type("SETUP\nENVCHANGE -VE 0 0 0 0\nq\n");
    if (!expect(texts::SETUP) || !expect(texts::SETUP)) return -1;
    for (int total = at_rest(MAIN_TITLE, TABLES_AT_REST);;) {
        std::this_thread::sleep_for(PAUSE);
        const int later = at_rest(MAIN_TITLE, TABLES_AT_REST);
        if (later == total || later < 0) return later;
        total = later;
    }
}

int DiskProgram::played(int least) { return reached(SEARCH_TITLE, least); }

int DiskProgram::played_at_rest() { return at_rest(SEARCH_TITLE, 1); }

bool DiskProgram::search() {
    type("SEARCH\nPB 4\n");
    return expect("Decode DB Stream : ") && expect(texts::SEARCH);
}

void DiskProgram::kill() {
    ::kill(m_console.pid(), SIGKILL);
    m_console.wait_exit();
}

int DiskProgram::leave() {
    type("q\nq\nq\n");
    m_console.read_all();
    return m_console.wait_exit();
}
