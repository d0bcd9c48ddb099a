// The line editor of every prompt, with its command history. Console thread only.
//
// Bytes read: 10 (line feed) ends the line; 24 (Ctrl-X) recalls forward, 26 (Ctrl-Z) back; every
// other byte is stored as it is. Bytes printed: on a recall, backspace-blank-backspace once for
// each character of the shown line, then the recalled line. Nothing is echoed and the terminal's
// mode is left alone. Left out on purpose: backspace, cursor keys, escape sequences.
#ifndef SHELL_LINE_EDITOR_H
#define SHELL_LINE_EDITOR_H

// Room that a dialogue's answer takes, with the terminator: the buffer gets_his expects by default.
inline constexpr int ANSWER_SIZE = 128;

// Reads one line into `buffer`, which the caller has zero-filled and which holds `size` bytes.
// What does not fit beside the terminator is read and dropped. A line that is not empty goes into
// the history. Returns the number of characters kept. At the end of input a line in progress counts
// as ended, and so does every later one: they are empty, and input_ended() tells why.
int gets_his(char* buffer, int size = ANSWER_SIZE);

// Replaces the shown and held line by history entry `entry`; an entry outside the stored ones is
// an empty line. Does not move the cursor. Returns `entry`.
int his_set(char* buffer, int entry, int size = ANSWER_SIZE);

// Adds a finished line to the history, unless it is empty or already there, and puts the cursor on
// the newest entry.
void his_append(char* line);

// The next character of standard input, 0..255, or EOF. Everything printed so far is on the wire
// before it is awaited. An output that nobody reads any more (a broken pipe) is an end of input.
int getch();

// True when the last getch() met the end of input.
bool input_ended();

#endif  // SHELL_LINE_EDITOR_H
