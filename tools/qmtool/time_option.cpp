// Reads the times of the command line.
#include "tools/qmtool/time_option.h"

#include "tools/qmtool/output.h"

namespace {

constexpr int64_t US_PER_SECOND = 1'000'000;
constexpr int FRACTION_DIGITS = 6;
constexpr int MOST_DIGITS = 12;  // of seconds: no sum of them overflows

// Takes a text from its start to its end.
class Words {
  public:
    explicit Words(const std::string& text) : m_text(text) {}

    bool at_end() const { return m_at == m_text.size(); }
    bool take(char wanted) {
        if (at_end() || m_text[m_at] != wanted) return false;
        ++m_at;
        return true;
    }
    // So many digits.
    bool number(int digits, int64_t least, int64_t most, int64_t& out) {
        out = 0;
        for (int i = 0; i < digits; ++i)
            if (!digit(out)) return false;
        return out >= least && out <= most;
    }
    bool digit(int64_t& number) {
        if (at_end() || m_text[m_at] < '0' || m_text[m_at] > '9') return false;
        number = number * 10 + (m_text[m_at++] - '0');
        return true;
    }
    // Nothing, or a point and 1 to 6 digits, in microseconds.
    bool fraction(int64_t& us) {
        us = 0;
        if (!take('.')) return true;
        int digits = 0;
        while (digits < FRACTION_DIGITS && digit(us)) ++digits;
        if (digits == 0) return false;
        for (; digits < FRACTION_DIGITS; ++digits) us *= 10;
        return true;
    }

  private:
    const std::string& m_text;
    size_t m_at = 0;
};

int64_t days_of_month(int64_t year, int64_t month) {
    constexpr int DAYS[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    return DAYS[month - 1] + (month == 2 && leap ? 1 : 0);
}

// Days from 1970-01-01 to the first day of a year from 0 on.
int64_t days_of_year(int64_t year) {
    const int64_t before = year - 1;  // the last whole year; year 0 is a leap year
    const int64_t leap_days = year == 0 ? 0 : before / 4 - before / 100 + before / 400 + 1;
    return year * 365 + leap_days - 719'528;
}

bool seconds_of(Words& words, int64_t& us) {
    int64_t seconds = 0;
    int64_t rest_us = 0;
    int digits = 0;
    while (digits < MOST_DIGITS && words.digit(seconds)) ++digits;
    if (digits == 0 || !words.fraction(rest_us) || !words.at_end()) return false;
    us = seconds * US_PER_SECOND + rest_us;
    return true;
}

bool date_and_time(Words& words, int64_t& us) {
    int64_t year, month, day, hour, minute, second, rest_us;
    if (!words.number(4, 0, 9999, year) || !words.take('-') || !words.number(2, 1, 12, month) ||
        !words.take('-') || !words.number(2, 1, days_of_month(year, month), day))
        return false;
    if (!words.take('T') && !words.take(' ')) return false;
    if (!words.number(2, 0, 23, hour) || !words.take(':') || !words.number(2, 0, 59, minute) ||
        !words.take(':') || !words.number(2, 0, 59, second) || !words.fraction(rest_us))
        return false;
    words.take('Z');
    int64_t days = days_of_year(year) + day - 1;
    for (int64_t before = 1; before < month; ++before) days += days_of_month(year, before);
    us = (((days * 24 + hour) * 60 + minute) * 60 + second) * US_PER_SECOND + rest_us;
    return words.at_end();
}

}  // namespace

bool recorded_ends(sim::DiskReader& reader, int64_t& first_us, int64_t& last_us) {
    sim::FrameInfo info;
    const uint64_t end = reader.end();
    uint64_t first = reader.next(reader.first());
    while (first < end && !reader.info(first, info)) first = reader.next(first + 1);
    if (first >= end) return false;
    first_us = last_us = info.time_us;
    for (uint64_t n = end; n > first;) {
        const uint64_t last = reader.previous(n);
        if (last >= n) break;
        if (reader.info(last, info)) {
            last_us = info.time_us;
            break;
        }
        n = last;
    }
    return true;
}

bool parse_time(const std::string& text, int64_t first_us, int64_t last_us, int64_t& out) {
    Words words(text);
    int64_t us = 0;
    if (words.take('+'))
        return seconds_of(words, us) && !__builtin_add_overflow(first_us, us, &out);
    if (words.take('-')) return seconds_of(words, us) && !__builtin_sub_overflow(last_us, us, &out);
    if (!date_and_time(words, us)) return false;
    out = us;
    return true;
}

std::string wrong_time(const char* option, const std::string& text) {
    return std::string(option) +
           " takes a time as 2026-11-21T01:46:28.5Z, +12.5 or -3 (seconds), not " + printable(text);
}
