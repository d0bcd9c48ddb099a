// Reading QM_BOARD, and the stand-in's voice on standard error.
#include "sdk/runtime/settings.h"

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace sim {

namespace {

// A whole non-negative decimal number of at most `max`; -1 for anything else.
int64_t parse_number(const std::string& text, int64_t max) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return -1;
    errno = 0;
    const unsigned long long value = strtoull(text.c_str(), nullptr, 10);
    return errno == 0 && value <= static_cast<unsigned long long>(max) ? static_cast<int64_t>(value)
                                                                       : -1;
}

template <class Word>
bool set_number(Word& word, const std::string& text, int64_t min, int64_t max) {
    const int64_t value = parse_number(text, max);
    if (value < min) return false;
    word = static_cast<decltype(word.load())>(value);
    return true;
}

bool set_fault(Fault& fault, const std::string& text) {
    const int64_t calls = text == "all" ? FAULT_ALL : parse_number(text, INT32_MAX);
    if (calls < 0 && text != "all") return false;
    fault.set(static_cast<int32_t>(calls));
    return true;
}

// The place of a word in a list.
template <size_t COUNT>
bool set_word(std::atomic<int32_t>& to, const std::string& text, const char* const (&words)[COUNT],
              int32_t first) {
    for (size_t i = 0; i < COUNT; ++i) {
        if (text != words[i]) continue;
        to = first + static_cast<int32_t>(i);
        return true;
    }
    return false;
}

constexpr const char* PATTERNS[] = {"mixed",      "bars",  "moving_bar", "checkerboard", "gradient",
                                    "zone_plate", "noise", "black",      "solid"};
constexpr const char* TEXTS[] = {"off", "counters", "full"};

// "nowhere", or a path of raw H.264 (.h264, .264) or of pictures (.y4m).
bool set_view(Settings& to, const std::string& path) {
    const size_t dot = path.rfind('.');
    const std::string ending = dot == std::string::npos ? "" : path.substr(dot);
    const bool nowhere = path == "nowhere";
    if (!nowhere && ending != ".h264" && ending != ".264" && ending != ".y4m") return false;
    to.set_view(nowhere ? "" : path);
    return true;
}

enum class Outcome { ok, bad_value, unknown };

Outcome result(bool ok) { return ok ? Outcome::ok : Outcome::bad_value; }

Outcome set_one(Settings& to, const std::string& name, const std::string& value) {
    if (name == "seed") return result(set_number(to.seed, value, 0, INT64_MAX));
    if (name == "pattern") return result(set_word(to.pattern, value, PATTERNS, -1));
    if (name == "text") return result(set_word(to.text, value, TEXTS, 0));
    if (name == "speed") return result(set_number(to.speed, value, 1, 1000));
    if (name == "drop") return result(set_number(to.drop_percent, value, 0, 100));
    if (name == "slow_disk_ms") return result(set_number(to.slow_disk_ms, value, 0, 60000));
    if (name == "view") return result(set_view(to, value));
    if (name == "view_channel") return result(set_number(to.view_channel, value, 0, 16));
    if (name == "fail.create") return result(set_fault(to.fail_create, value));
    if (name == "fail.mask") return result(set_fault(to.fail_mask, value));
    if (name == "fail.init") return result(set_fault(to.fail_init, value));
    if (name == "fail.open") return result(set_fault(to.fail_open, value));
    if (name == "fail.disk") return result(set_fault(to.fail_disk, value));
    return Outcome::unknown;
}

void apply_word(Settings& to, const std::string& word) {
    const size_t equals = word.find('=');
    if (equals == std::string::npos) {
        complain("QM_BOARD: '%s' is ignored: not of the form name=value", word.c_str());
        return;
    }
    switch (set_one(to, word.substr(0, equals), word.substr(equals + 1))) {
        case Outcome::ok: break;
        case Outcome::bad_value:
            complain("QM_BOARD: '%s' is ignored: bad value", word.c_str());
            break;
        case Outcome::unknown:
            complain("QM_BOARD: '%s' is ignored: unknown name", word.c_str());
            break;
    }
}

Settings& process_settings() {
    static Settings settings;
    return settings;
}

}  // namespace

std::string Settings::view() const {
    std::lock_guard lock(m_mutex);
    return m_view;
}

void Settings::set_view(const std::string& path) {
    std::lock_guard lock(m_mutex);
    m_view = path;
    view_wanted = !path.empty();
}

bool Fault::strikes() {
    int32_t calls = m_calls.load();
    while (calls > 0 && !m_calls.compare_exchange_weak(calls, calls - 1)) {
    }
    return calls != 0;
}

void apply_settings(Settings& to, const char* text) {
    const std::string all(text);
    size_t begin = all.find_first_not_of(" \t\r\n");
    while (begin != std::string::npos) {
        const size_t end = all.find_first_of(" \t\r\n", begin);
        apply_word(to, all.substr(begin, end - begin));
        begin = end == std::string::npos ? end : all.find_first_not_of(" \t\r\n", end);
    }
}

void reset_settings() {
    apply_settings(settings(),
                   "seed=1 pattern=mixed text=full speed=1 drop=0 slow_disk_ms=0 "
                   "view=nowhere view_channel=0 "
                   "fail.create=0 fail.mask=0 fail.init=0 fail.open=0 fail.disk=0");
}

Settings& settings() {
    static const bool loaded = [] {
        if (const char* text = getenv("QM_BOARD")) apply_settings(process_settings(), text);
        return true;
    }();
    (void)loaded;
    return process_settings();
}

void complain(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    // Names come from outside; a message stays one line and steers no terminal.
    for (char* c = text; *c; ++c)
        if (iscntrl(static_cast<unsigned char>(*c))) *c = '?';
    fprintf(stderr, "qm7105 board: %s\n", text);
}

}  // namespace sim
