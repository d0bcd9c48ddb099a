// The menu loop that every menu runs, and its word splitter. Console thread only.
#ifndef SHELL_MONITOR_H
#define SHELL_MONITOR_H

// Words of one line; those past it are ignored.
inline constexpr int MAX_WORDS = 128;

// One row of a command table; the table ends with a row of two nulls.
struct tagCommand {
    const char* name;  // upper case
    // Word count (at least 1) and words, the command word first, all upper-cased. The entry after
    // the last word may hold anything. Returns 0, or -1 on refusal; the loop ignores it.
    int (*handler)(int argc, char** argv);
};

// One menu. The caller owns it for the duration of the monitor() call.
struct tagMonitor {
    void (*prompt)();  // prints the prompt, no line end
    void (*help)();    // prints the help screen
    const tagCommand* cmds;
};

// Runs the menu until the operator leaves it with Q, EXIT or QUIT, or the input ends. Returns at
// once for a null menu.
void monitor(tagMonitor* menu);

// Splits `line` in place at blanks, form feeds, line feeds, carriage returns and both tabs. Stores
// at most MAX_WORDS words from index 0 on and returns their number; the first entry is null when
// there is none. Changes no letter.
int parse_args(char* line, char** words);

// Upper-cases a null-terminated string in place.
void UpperStr(char* s);

#endif  // SHELL_MONITOR_H
