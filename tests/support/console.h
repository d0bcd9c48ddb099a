// Runs code with a scripted standard input and collects what it prints.
#ifndef TESTS_SUPPORT_CONSOLE_H
#define TESTS_SUPPORT_CONSOLE_H

#include <functional>
#include <string>

// Runs `action` with `input` as the whole of standard input (then the input ends) and returns
// everything that the process wrote to standard output meanwhile, byte for byte.
std::string run_console(const std::string& input, const std::function<void()>& action);

// Standard output of `action` with an empty input.
std::string output_of(const std::function<void()>& action);

// Standard error of `action`.
std::string errors_of(const std::function<void()>& action);

// The text as one would write it in a C literal, a line a row, so that a failed comparison shows
// every \r and \b.
std::string escaped(const std::string& text);

// What a terminal shows after `text`: applies \b, \r and \n. The rows, a '\n' between two.
std::string screen_of(const std::string& text);

#endif  // TESTS_SUPPORT_CONSOLE_H
