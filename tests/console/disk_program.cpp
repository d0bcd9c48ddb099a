// Typing, and reading the figures out of the tables.
#include "tests/console/disk_program.h"

#include <csignal>
#include <cstdio>
#include <sstream>

#include "tests/console/texts.h"
#include "tests/support/wait.h"

namespace {

const std::string MAIN_TITLE = "\nMain Stream Encode Status\n";
const std::string DUAL_TITLE = "\nDual Stream Encode Status\n";
const std::string JPEG_TITLE = "\nJPEG Stream Encode Status\n";
const std::string SEARCH_TITLE = "\nSearch Status\n";

// Of playback, after its last frame.
constexpr int TABLES_AT_THE_END = 2;

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
    type("MAIN\nSTATUS\nSET\nt 1000103 0\n9\nRUN\nq\n");
    expect(texts::STATUS_RUNS);
}

bool DiskProgram::expect(const std::string& text) {
    if (!m_console.expect(text)) return false;
    m_read_to = m_console.output().find(text, m_read_to) + text.size();
    return true;
}

bool DiskProgram::expect_said(const std::string& text) const {
    return comes_true([&] { return said().find(text) != std::string::npos; });
}

std::string DiskProgram::said() const {
    std::istringstream lines(m_folder.read(m_said));
    std::string kept;
    for (std::string line; std::getline(lines, line);)
        if (!line.ends_with(" frames were dropped because the machine fell behind"))
            kept += line + "\n";
    return kept;
}

// The total in it; -1 when none comes.
int DiskProgram::next_table(const std::string& title) {
    if (!expect(title) || !expect("\n 0 ")) return -1;
    const size_t row = m_read_to;
    int total = -1;
    if (!expect("\n") || sscanf(m_console.output().c_str() + row, "%d", &total) != 1) return -1;
    return total;
}

int DiskProgram::reached(const std::string& title, int least) {
    int total = 0;
    comes_true([&] { return (total = next_table(title)) >= least || total < 0; });
    return total;
}

// One table may have been built before what was waited for last, and be printed after it.
bool DiskProgram::pass_old_table(const std::string& title) { return next_table(title) >= 0; }

int DiskProgram::recorded(int least) { return reached(MAIN_TITLE, least); }

int DiskProgram::recorded_dual(int least) { return reached(DUAL_TITLE, least); }

int DiskProgram::recorded_jpeg(int least) { return reached(JPEG_TITLE, least); }

bool DiskProgram::begin_anew() {
    type("ENCODE 1\nENCODE 0\n");
    return expect("Encode DB Stream : ") && pass_old_table(MAIN_TITLE);
}

// A table may come between the two prompts.
int DiskProgram::switch_off() {
    type("SETUP\nENVCHANGE -VE 0 0 0 0\nq\n");
    if (!expect(texts::SETUP) || !expect(texts::SETUP) || !pass_old_table(MAIN_TITLE)) return -1;
    return next_table(MAIN_TITLE);
}

int DiskProgram::played(int least) { return reached(SEARCH_TITLE, least); }

int DiskProgram::played_to_the_end(int all) {
    int total = played(all);
    for (int table = 0; table < TABLES_AT_THE_END && total >= 0; ++table)
        total = next_table(SEARCH_TITLE);
    return total;
}

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
