// A program that records to disk or plays from there, with the figures it shows. What is to come
// back stands in the tests.
#ifndef TESTS_CONSOLE_DISK_PROGRAM_H
#define TESTS_CONSOLE_DISK_PROGRAM_H

#include <memory>
#include <string>

#include "tests/support/console_process.h"
#include "tests/support/temp_dir.h"

// One running program in `folder`. The status thread prints the tables of the main stream and of
// playback; every figure is that of channel 0, -1 when no table comes. A figure that is waited for
// in vain is given as it is.
class DiskProgram {
  public:
    // Started with the environment file `environment` and with `board` for QM_BOARD; MAIN is open.
    DiskProgram(const TempDir& folder, const std::string& environment = "disk.ini",
                const std::string& board = "speed=10");

    void type(const std::string& keys) { m_console.send(keys); }
    // Waits for the next place at which `text` was printed. Tables may stand between what the
    // console prints in two steps, a line and a prompt.
    bool expect(const std::string& text);
    // Waits for `text` on standard error.
    bool expect_said(const std::string& text) const;
    // All of standard error, so far, but for what a busy machine adds: frames that came too late to
    // be encoded, counted nowhere.
    std::string said() const;

    // The total of the main stream, when it has reached `least`.
    int recorded(int least);
    // Switches the channel off; its total when nothing comes any more.
    int switch_off();
    // The total of playback, when it has reached `least`.
    int played(int least);
    // The total of playback in the next table that says that nothing came: of a player that has
    // reached the end, which it cannot tell from a busy machine.
    int played_at_rest();
    // Enters SEARCH and plays forward. False when the menu is not entered.
    bool search();

    // kill -9.
    void kill();
    // Leaves every menu. The exit status.
    int leave();

  private:
    struct Figures {
        int total = -1;
        int period = -1;
    };
    Figures next_table(const std::string& title);
    int reached(const std::string& title, int least);
    int at_rest(const std::string& title, int tables);

    const TempDir& m_folder;
    const std::string m_said;  // file of standard error
    ConsoleProcess m_console;
    size_t m_read_to = 0;  // in the output
};

#endif  // TESTS_CONSOLE_DISK_PROGRAM_H
