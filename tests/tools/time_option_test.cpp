// Times of the command line.
#include "tools/qmtool/time_option.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "tools/qmtool/output.h"

namespace {

constexpr int64_t FIRST = 1'000'000'000, LAST = 9'000'000'000;

std::optional<int64_t> read(const std::string& text) {
    int64_t us = 0;
    if (!parse_time(text, FIRST, LAST, us)) return std::nullopt;
    return us;
}

TEST(TimeOption, ReadsDatesAsTheyArePrinted) {
    EXPECT_EQ(read("1970-01-01T00:00:00Z"), 0);
    EXPECT_EQ(read("1970-01-01 00:00:01"), 1'000'000);
    EXPECT_EQ(read("1970-01-02T00:00:00.5"), 86'400'500'000);
    EXPECT_EQ(read("1969-12-31T23:59:59.999999Z"), -1);
    EXPECT_EQ(read("2000-02-29T12:34:56.789Z"), 951'827'696'789'000);
    EXPECT_EQ(read("2026-11-21T01:46:28.000001Z"), 1'795'225'588'000'001);
    EXPECT_EQ(read("2038-01-19T03:14:08Z"), 2'147'483'648'000'000);
    EXPECT_EQ(read("0000-01-01T00:00:00Z"), -62'167'219'200'000'000);
    EXPECT_EQ(read("9999-12-31T23:59:59Z"), 253'402'300'799'000'000);
}

// Every day of 400 years and some is the day after the one before.
TEST(TimeOption, ReadsWhatIsPrintedBack) {
    constexpr int64_t DAY = 86'400'000'000;
    for (int64_t us = -62'167'219'200'000'000; us < 5'000'000'000'000'000;
         us += 37 * DAY + 1234567) {
        EXPECT_EQ(read(exact_time_text(us)), us) << exact_time_text(us);
        EXPECT_EQ(exact_time_text(us).substr(0, 23) + "Z", time_text(us));
    }
}

TEST(TimeOption, ReadsTimesRelativeToTheEnds) {
    EXPECT_EQ(read("+0"), FIRST);
    EXPECT_EQ(read("+12.5"), FIRST + 12'500'000);
    EXPECT_EQ(read("+0.000001"), FIRST + 1);
    EXPECT_EQ(read("-3"), LAST - 3'000'000);
    EXPECT_EQ(read("-0.25"), LAST - 250'000);
    EXPECT_EQ(read("+999999999999"), FIRST + 999'999'999'999'000'000);
}

TEST(TimeOption, RefusesEverythingElse) {
    for (const char* text : {"",
                             "+",
                             "-",
                             "now",
                             "12",
                             "+1s",
                             "+1.",
                             "+.5",
                             "+1.0000001",
                             "--1",
                             "+-1",
                             "+1 ",
                             "+1000000000000",
                             "2026-11-21",
                             "2026-11-21T",
                             "2026-11-21T01:46",
                             "2026-11-21T01:46:28.",
                             "2026-11-21T01:46:28.1234567",
                             "2026-11-21T01:46:28ZZ",
                             "2026-11-21T01:46:28+01",
                             "2026-13-01T00:00:00",
                             "2026-00-01T00:00:00",
                             "2026-02-29T00:00:00",
                             "1900-02-29T00:00:00",
                             "2026-04-31T00:00:00",
                             "2026-01-00T00:00:00",
                             "2026-01-01T24:00:00",
                             "2026-01-01T00:60:00",
                             "2026-01-01T00:00:60",
                             "26-01-01T00:00:00",
                             "2026-1-01T00:00:00",
                             "2026-01-01t00:00:00",
                             " 2026-01-01T00:00:00",
                             "+99999999999999999999"})
        EXPECT_EQ(read(text), std::nullopt) << text;
}

TEST(TimeOption, SaysWhatItTakes) {
    EXPECT_EQ(wrong_time("--from", "x\n"),
              "--from takes a time as 2026-11-21T01:46:28.5Z, +12.5 or -3 (seconds), not x\\x0A");
}

}  // namespace
