// Runs a test's body where the process's static state is as it is at program start.
#ifndef TESTS_SUPPORT_FRESH_PROCESS_H
#define TESTS_SUPPORT_FRESH_PROCESS_H

#include <functional>

// Runs `body` in a new process that has run nothing else of this program; a failure inside fails
// the test. To be the only statement of its test, whose fixture runs there as well.
void in_fresh_process(const std::function<void()>& body);

#endif  // TESTS_SUPPORT_FRESH_PROCESS_H
