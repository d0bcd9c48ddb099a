// A program that records to disk or plays from there, with the figures it shows. What is to come
// back stands in the tests.
#ifndef TESTS_CONSOLE_DISK_PROGRAM_H
#define TESTS_CONSOLE_DISK_PROGRAM_H

#include <memory>
#include <string>

#include "tests/support/console_process.h"
#include "tests/support/temp_dir.h"

// One running program in `folder`. The status thread prints the tables of the streams and of
// playback; every figure is that of channel 0, -1 when no table comes. A figure that is waited for
// in vain is given as it is.
class DiskProgram {
  public:
    // Started with the environment file `environment` and with `board` for QM_BOARD; MAIN is open.
    // Recorded no faster than that, the frames of 17 seconds wait for a slow disk before the
    // program drops any and says so.
    DiskProgram(const TempDir& folder, const std::string& environment = "disk.ini",
                const std::string& board = "speed=4");

    void type(const std::string& keys) { m_console.send(keys); }
    // Waits for the next place at which `text` was printed.
    bool expect(const std::string& text);
    // Waits for `text` on standard error.
    bool expect_said(const std::string& text) const;
    // All of standard error, so far, but for what a busy machine adds: frames that came too late to
    // be encoded, counted nowhere.
    std::string said() const;

    // The total of a stream, when it has reached `least`.
    int recorded(int least);
    int recorded_dual(int least);
    int recorded_jpeg(int least);
    // ENCODE 1 and ENCODE 0: totals are those of the new recording from here on.
    bool begin_anew();
    // Switches the channel off; its total, to which nothing is added any more.
    int switch_off();
    // The total of playback, when it has reached `least`.
    int played(int least);
    // The total of playback a while after it has reached `all`.
    int played_to_the_end(int all);
    // Enters SEARCH and plays forward. False when the menu is not entered.
    bool search();

    // kill -9.
    void kill();
    // Leaves every menu. The exit status.
    int leave();

  private:
    int next_table(const std::string& title);
    bool pass_old_table(const std::string& title);
    int reached(const std::string& title, int least);

    const TempDir& m_folder;
    const std::string m_said;  // file of standard error
    ConsoleProcess m_console;
    size_t m_read_to = 0;  // in the output
};

#endif  // TESTS_CONSOLE_DISK_PROGRAM_H
