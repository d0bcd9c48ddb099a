// Bodies of the number and string helpers.
#include <cctype>
#include <cstdint>

#include "shell/qm_string.h"

namespace {

const char* skip_blanks(const char* text) {
    while (isspace(static_cast<unsigned char>(*text))) ++text;
    return text;
}

// The value of a digit of either case, or 16 for any other character.
unsigned hex_digit(char c) {
    if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
    if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
    return 16;
}

}  // namespace

int qm_atoi(const char* text) {
    text = skip_blanks(text);
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+') ++text;
    const int64_t limit = negative ? -int64_t{INT32_MIN} : INT32_MAX;
    int64_t value = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        value = value * 10 + (*text - '0');
        if (value > limit) value = limit;
    }
    return static_cast<int>(negative ? -value : value);
}

unsigned int qm_atoh(const char* text) {
    text = skip_blanks(text);
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text += 2;
    uint32_t value = 0;
    for (; hex_digit(*text) < 16; ++text) value = value << 4 | hex_digit(*text);
    return value;
}

void qm_strupr(char* text) {
    for (; *text; ++text) *text = static_cast<char>(toupper(static_cast<unsigned char>(*text)));
}
