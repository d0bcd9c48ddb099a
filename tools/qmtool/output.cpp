// Words, JSON and the progress bar of qmtool.
#include "tools/qmtool/output.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "sdk/db/check.h"

namespace {

constexpr int64_t US_PER_SECOND = 1'000'000;
constexpr int64_t SECONDS_PER_DAY = 86'400;

// Bytes of the UTF-8 character at `at`, 0 when it is none or a control character.
size_t character(const std::string& bytes, size_t at) {
    const auto byte = [&](size_t i) {
        return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0u;
    };
    const unsigned lead = byte(at);
    if (lead < 0x80) return lead >= 0x20 && lead != 0x7F ? 1 : 0;
    const size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4) return 0;
    uint32_t code = lead & (0x7Fu >> size);
    for (size_t i = 1; i < size; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) return 0;
        code = code << 6 | (byte(at + i) & 0x3F);
    }
    constexpr uint32_t LEAST[] = {0, 0, 0xA0, 0x800, 0x10000};  // 0x80 to 0x9F are controls
    const bool surrogate = code >= 0xD800 && code < 0xE000;
    // Marks that turn the direction of the text, and line ends of other scripts.
    const bool turns = code == 0x2028 || code == 0x2029 || code == 0x200E || code == 0x200F ||
                       (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
    return code >= LEAST[size] && code <= 0x10FFFF && !surrogate && !turns ? size : 0;
}

// Quotient rounded down, for dates before 1970 too.
int64_t floor_div(int64_t value, int64_t by) { return value / by - (value % by < 0 ? 1 : 0); }

// Year, month and day from the days since 1970, by the years that begin in March.
void date_of(int64_t days, int64_t& year, int& month, int& day) {
    days += 719'468;  // since 0000-03-01
    const int64_t era = floor_div(days, 146'097);
    const int64_t day_of_era = days - era * 146'097;
    const int64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36'524 - day_of_era / 146'096) / 365;
    const int64_t day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const int64_t from_march = (5 * day_of_year + 2) / 153;
    day = static_cast<int>(day_of_year - (153 * from_march + 2) / 5 + 1);
    month = static_cast<int>(from_march < 10 ? from_march + 3 : from_march - 9);
    year = year_of_era + era * 400 + (month <= 2 ? 1 : 0);
}

}  // namespace

std::string printable(const std::string& bytes) {
    std::string out;
    for (size_t at = 0; at < bytes.size();) {
        const size_t size = character(bytes, at);
        if (size == 0) {
            char hex[8];
            snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned char>(bytes[at]));
            out += hex;
        }
        out.append(bytes, at, size);
        at += std::max<size_t>(size, 1);
    }
    return out;
}

std::string time_text(int64_t utc_us) {
    std::string text = exact_time_text(utc_us);
    return text.erase(text.size() - 4, 3);  // the last three digits, before the Z
}

std::string exact_time_text(int64_t utc_us) {
    const int64_t seconds = floor_div(utc_us, US_PER_SECOND);
    const int64_t rest_us = utc_us % US_PER_SECOND;
    const int microseconds = static_cast<int>(rest_us < 0 ? rest_us + US_PER_SECOND : rest_us);
    const int64_t days = floor_div(seconds, SECONDS_PER_DAY);
    const int second = static_cast<int>(seconds - days * SECONDS_PER_DAY);
    int64_t year = 0;
    int month = 0, day = 0;
    date_of(days, year, month, day);
    char text[64];
    snprintf(text, sizeof text, "%04" PRId64 "-%02d-%02dT%02d:%02d:%02d.%06dZ", year, month, day,
             second / 3600, second / 60 % 60, second % 60, microseconds);
    return text;
}

std::string duration_text(int64_t us) {
    char text[48];
    snprintf(text, sizeof text, "%.3f s", static_cast<double>(us) / 1e6);
    return text;
}

std::string counted(uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

const char* row_name(int row) {
    constexpr const char* NAMES[sim::SUMMARY_ROWS] = {"main",  "dual",   "JPEG", "preview",
                                                      "third", "fourth", "audio"};
    return NAMES[row];
}

void Json::begin(const char* key) {
    if (!m_first) m_out += ", ";
    m_first = false;
    if (!key) return;
    quote(key);
    m_out += ": ";
}

void Json::quote(const std::string& value) {
    m_out += '"';
    for (const char c : printable(value)) {
        if (c == '"' || c == '\\') m_out += '\\';
        m_out += c;
    }
    m_out += '"';
}

Json& Json::open(const char* key, char first, char last) {
    begin(key);
    m_out += first;
    m_ends += last;
    m_first = true;
    return *this;
}

Json& Json::end() {
    m_out += m_ends.back();
    m_ends.pop_back();
    m_first = false;
    return *this;
}

Json& Json::text(const char* key, const std::string& value) {
    begin(key);
    quote(value);
    return *this;
}

Json& Json::number(const char* key, uint64_t value) {
    begin(key);
    m_out += std::to_string(value);
    return *this;
}

Json& Json::signed_number(const char* key, int64_t value) {
    begin(key);
    m_out += std::to_string(value);
    return *this;
}

Json& Json::truth(const char* key, bool value) {
    begin(key);
    m_out += value ? "true" : "false";
    return *this;
}

Json& Json::null(const char* key) {
    begin(key);
    m_out += "null";
    return *this;
}

Json& Json::time(const char* key, int64_t utc_us) {
    return object(key).text("utc", time_text(utc_us)).signed_number("us", utc_us).end();
}

Progress::Progress()
    : m_terminal(isatty(STDERR_FILENO) == 1),
      m_next(Clock::now() + std::chrono::milliseconds(500)) {}

Progress::~Progress() {
    if (m_shown) fprintf(stderr, "\r\x1b[K");
}

// Not in the first half second, then ten times a second.
void Progress::show(uint64_t done, uint64_t total, uint64_t bytes) {
    if (!m_terminal || total == 0) return;
    const Clock::time_point now = Clock::now();
    if (now < m_next) return;
    m_next = now + std::chrono::milliseconds(100);
    constexpr size_t WIDTH = 40;
    const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
    const auto filled = static_cast<size_t>(part * WIDTH);
    const std::string bar = std::string(filled, '#') + std::string(WIDTH - filled, '.');
    fprintf(stderr, "\r[%s] %3d %%  %.1f MiB", bar.c_str(), static_cast<int>(part * 100),
            static_cast<double>(bytes) / (1024 * 1024));
    m_shown = true;
}
