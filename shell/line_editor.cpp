// Line editing and command history. What a line means is the menu loop's business.
#include "shell/line_editor.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr int HISTORY_ENTRIES = 8;
constexpr int HISTORY_ENTRY_SIZE = 32;  // 31 characters and the terminator

constexpr int KEY_LINE_FEED = 10;
constexpr int KEY_FORWARD = 24;  // Ctrl-X
constexpr int KEY_BACK = 26;     // Ctrl-Z

// Entry 0 is the oldest, entry HisCount - 1 the newest; the others are empty.
char HisBuff[HISTORY_ENTRIES][HISTORY_ENTRY_SIZE];
int32_t HisCount;
// The entry that the next recall shows. -1 after a recall on an empty history, HisCount after a
// forward recall of the newest.
int32_t HisIndex;

bool l_input_ended;

const char* history_entry(int entry) {
    return entry >= 0 && entry < HISTORY_ENTRIES ? HisBuff[entry] : "";
}

// Kept: the key shows the entry under the cursor and moves the cursor afterwards, so the first
// Ctrl-X after a Ctrl-Z shows the older entry.
bool recall_back(char* buffer, int size) {
    if (HisIndex < 0) return false;
    his_set(buffer, HisIndex, size);
    if (HisIndex != 0) --HisIndex;
    if (HisIndex >= HisCount) HisIndex = HisCount - 1;
    return true;
}

bool recall_forward(char* buffer, int size) {
    if (HisIndex >= HisCount) return false;
    his_set(buffer, HisIndex, size);
    ++HisIndex;
    return true;
}

// Any write may have met the broken pipe, one of another thread too, so the descriptor is asked. A
// full disk behind the output is no end of input.
bool nobody_reads() {
    if (!ferror(stdout)) return false;
    pollfd output = {STDOUT_FILENO, 0, 0};
    return poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLHUP));
}

// The next byte, also from an input that somebody set to non-blocking.
int read_byte() {
    for (;;) {
        const int c = getchar();
        if (c != EOF || !ferror(stdin) || (errno != EAGAIN && errno != EINTR)) return c;
        clearerr(stdin);
        pollfd input = {STDIN_FILENO, POLLIN, 0};
        poll(&input, 1, -1);
    }
}

}  // namespace

int getch() {
    fflush(stdout);
    const int c = nobody_reads() ? EOF : read_byte();
    l_input_ended = c == EOF;
    return c;
}

bool input_ended() { return l_input_ended; }

int his_set(char* buffer, int entry, int size) {
    // Kept: the held text is measured up to its terminator, not to the write position.
    const size_t shown = strnlen(buffer, static_cast<size_t>(size));
    for (size_t i = 0; i < shown; ++i) printf("\b \b");
    snprintf(buffer, static_cast<size_t>(size), "%s", history_entry(entry));
    printf("%s", buffer);
    return entry;
}

void his_append(char* line) {
    if (line[0] == '\0') return;
    char stored[HISTORY_ENTRY_SIZE];
    snprintf(stored, sizeof stored, "%s", line);
    for (const auto& entry : HisBuff) {
        if (strcmp(stored, entry) == 0) {
            HisIndex = HisCount > 0 ? HisCount - 1 : 0;
            return;
        }
    }
    if (HisCount == HISTORY_ENTRIES) {
        memmove(HisBuff[0], HisBuff[1], sizeof HisBuff - sizeof HisBuff[0]);
        --HisCount;
    }
    memcpy(HisBuff[HisCount], stored, sizeof stored);
    HisIndex = HisCount;
    ++HisCount;
}

int gets_his(char* buffer, int size) {
    int count = 0;  // also the write position
    for (;;) {
        const int c = getch();
        if (c == EOF || c == KEY_LINE_FEED) break;
        if (c == KEY_BACK || c == KEY_FORWARD) {
            const bool shown =
                c == KEY_BACK ? recall_back(buffer, size) : recall_forward(buffer, size);
            if (shown) count = static_cast<int>(strlen(buffer));
            continue;
        }
        if (count < size - 1) buffer[count++] = static_cast<char>(c);
    }
    buffer[count] = '\0';
    his_append(buffer);
    return count;
}
