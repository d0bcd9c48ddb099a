// The new process is what GoogleTest starts for an exit test: the program again, for one test only.
#include "tests/support/fresh_process.h"

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

namespace {

// The exit status of the new process. Its failures go to standard error, which the parent shows.
int report_failures() {
    const auto& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int i = 0; i < result.total_part_count(); ++i) {
        const auto& part = result.GetTestPartResult(i);
        fprintf(stderr, "%s:%d: %s\n", part.file_name(), part.line_number(), part.message());
    }
    return result.Failed() ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace

void in_fresh_process(const std::function<void()>& body) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            body();
            exit(report_failures());
        },
        testing::ExitedWithCode(EXIT_SUCCESS), "");
}
