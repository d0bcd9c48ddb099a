// Figures in words, HTML's special characters, base64.
#include "tools/qmtool/report_text.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>

#include "tools/qmtool/output.h"

std::string html_text(const std::string& bytes) {
    std::string out;
    for (const char c : printable(bytes)) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&#39;"; break;
            default: out += c;
        }
    }
    return out;
}

std::string fixed(double value, int digits) {
    char text[400];
    snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

std::string bytes_text(double bytes) {
    if (bytes < 1000) return fixed(bytes, 0) + " B";
    if (bytes < 1e6) return fixed(bytes / 1e3, 1) + " kB";
    return bytes < 1e9 ? fixed(bytes / 1e6, 1) + " MB" : fixed(bytes / 1e9, 1) + " GB";
}

std::string rate_text(double bits_a_second) {
    return bits_a_second < 1e6 ? fixed(bits_a_second / 1e3, 1) + " kbit/s"
                               : fixed(bits_a_second / 1e6, 2) + " Mbit/s";
}

std::string span_text(int64_t us) {
    const int64_t seconds = us / 1'000'000;
    char text[80];
    if (seconds < 60)
        snprintf(text, sizeof text, "%.2f s", static_cast<double>(us) / 1e6);
    else if (seconds < 3600)
        snprintf(text, sizeof text, "%" PRId64 " min %02" PRId64 " s", seconds / 60, seconds % 60);
    else if (seconds < 86'400)
        snprintf(text, sizeof text, "%" PRId64 " h %02" PRId64 " min", seconds / 3600,
                 seconds / 60 % 60);
    else
        snprintf(text, sizeof text, "%" PRId64 " d %02" PRId64 " h", seconds / 86'400,
                 seconds / 3600 % 24);
    return text;
}

double round_above(double value) {
    if (!(value > 0)) return 1;
    const double power = std::pow(10.0, std::floor(std::log10(value)));
    for (const double step : {1.0, 2.0, 2.5, 5.0})
        if (value <= step * power * (1 + 1e-9)) return step * power;
    return 10 * power;
}

double scale_top(double most) {
    if (!(most > 0)) return 1;
    const double step = round_above(most / 6);
    // A hundredth above a step is not seen: 30 frames a second may measure as 30.02.
    return step * std::max(1.0, std::ceil(most / 1.01 / step));
}

std::string short_number(double value) {
    std::string text = fixed(value, 2);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text;
}

std::string axis_text(int64_t utc_us, int64_t length_us) {
    const std::string text = time_text(utc_us);
    const size_t day_end = text.find('T');
    if (length_us > 2 * 86'400'000'000) return text.substr(0, day_end);
    return text.substr(day_end + 1, length_us < 60'000'000 ? 10 : 8);
}

std::string base64(const std::vector<uint8_t>& bytes) {
    constexpr char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t at = 0; at < bytes.size(); at += 3) {
        const size_t left = bytes.size() - at;
        const uint32_t bits = static_cast<uint32_t>(
            bytes[at] << 16 | (left > 1 ? bytes[at + 1] << 8 : 0) | (left > 2 ? bytes[at + 2] : 0));
        out += DIGITS[bits >> 18 & 63];
        out += DIGITS[bits >> 12 & 63];
        out += left > 1 ? DIGITS[bits >> 6 & 63] : '=';
        out += left > 2 ? DIGITS[bits & 63] : '=';
    }
    return out;
}
