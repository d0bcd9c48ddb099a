// The STATUS menu and its SET dialogues. The thread that prints, and what each selection bit makes
// it print, stands in status_thread.cpp.
#include "statuswork/statuswork.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "env/app_env.h"
#include "shell/line_editor.h"
#include "shell/qm_string.h"
#include "statuswork/status_thread.h"

namespace {

const char SEPARATOR[] = "\r\n=======================================================";

// One item of the SET dialogue: a byte of a mask and the sub-menu that edits it.
struct Item {
    const char* word;
    const char* text;
    std::atomic<uint32_t>& mask;
    int byte;
    unsigned int (*sub_menu)();
};

// Kept: the third and fourth streams use the dual stream's sub-menu, and the audio byte is offered
// although no report reads it.
// clang-format off
const Item ITEMS[] = {
    {"1", "\r\n 1. Main Stream. (0x%x)", _l_st_stat.mask_a, 0, statuswork_main_stream},
    {"2", "\r\n 2. Dual Stream. (0x%x)", _l_st_stat.mask_a, 1, statuswork_dual_stream},
    {"3", "\r\n 3. Audio. (0x%x)", _l_st_stat.mask_a, 2, statuswork_audio_stream},
    {"4", "\r\n 4. Jpeg Stream. (0x%x)", _l_st_stat.mask_a, 3, statuswork_jpeg_stream},
    {"5", "\r\n 5. Preview Stream. (0x%x)", _l_st_stat.mask_b, 0, statuswork_preview_stream},
    {"6", "\r\n 6. 3rd Stream. (0x%x)", _l_st_stat.mask_b, 1, statuswork_dual_stream},
    {"7", "\r\n 7. 4th Stream. (0x%x)", _l_st_stat.mask_b, 2, statuswork_dual_stream},
};
// clang-format on

uint32_t get_byte(const Item& item) {
    return (item.mask.load(std::memory_order_relaxed) >> (8 * item.byte)) & 0xFF;
}

void set_byte(const Item& item, unsigned int value) {
    const int shift = 8 * item.byte;
    const uint32_t others = item.mask.load(std::memory_order_relaxed) & ~(uint32_t{0xFF} << shift);
    item.mask.store(others | ((value & 0xFF) << shift), std::memory_order_relaxed);
}

const Item* find_item(const char* word) {
    for (const Item& item : ITEMS)
        if (strcmp(word, item.word) == 0) return &item;
    return nullptr;
}

// One line of operator's words.
struct Answer {
    char line[ANSWER_SIZE];
    char* words[MAX_WORDS];
    int count;

    void read() {
        memset(line, 0, sizeof line);
        gets_his(line);
        putchar('\n');
        count = parse_args(line, words);
    }
    // An empty line is answered with its line feed alone.
    void read_until_words() {
        do {
            read();
        } while (count == 0 && !input_ended());
    }
};

// Sets bit n for each number n; a number above `highest` (a negative one is) ends the parse. Kept:
// the new byte replaces the old one, so leaving with 4 clears the selection.
unsigned int select_bits(unsigned int highest) {
    Answer answer;
    answer.read_until_words();
    unsigned int byte = 0;
    for (int i = 0; i < answer.count; ++i) {
        const auto bit = static_cast<unsigned int>(qm_atoi(answer.words[i]));
        if (bit > highest) break;
        byte |= 1u << bit;
    }
    return byte;
}

void edit_all_masks(const Answer& answer) {
    if (answer.count != 3) return;
    const uint32_t a = qm_atoh(answer.words[1]);
    const uint32_t b = qm_atoh(answer.words[2]);
    _l_st_stat.mask_a.store(a, std::memory_order_relaxed);
    _l_st_stat.mask_b.store(b, std::memory_order_relaxed);
    printf("infomask %.8x %.8x\n", a, b);
}

}  // namespace

int app_statuswork(int, char**) {
    if (!app_codec_is_created()) return -1;
    statuswork_help();
    tagMonitor menu = {statuswork_prompt, statuswork_help, statuswork_cmds};
    monitor(&menu);
    return 0;
}

int app_stat_set(int, char**) {
    statuswork_set_menu();
    return 0;
}

int statuswork_set_menu() {
    Answer answer;
    for (;;) {
        printf("%s", SEPARATOR);
        for (const Item& item : ITEMS) printf(item.text, get_byte(item));
        printf("\r\n 9. Exit");
        printf("%s", SEPARATOR);
        printf("\r\n Select Operation : ");
        answer.read();
        if (answer.count == 0) {
            if (input_ended()) return 0;
            continue;
        }
        if (const Item* item = find_item(answer.words[0]))
            set_byte(*item, answer.count == 2 ? qm_atoh(answer.words[1]) : item->sub_menu());
        else if (strcmp(answer.words[0], "t") == 0)
            edit_all_masks(answer);
        else
            return 0;
    }
}

unsigned int statuswork_main_stream() {
    printf("%s", SEPARATOR);
    printf("\r\n 0. Encode Information. ([0:0])");
    printf("\r\n 1. Decode Information. ([1:1])");
    printf("\r\n 2. Encode IDR Information. ([2:2])");
    printf("\r\n 3. Decode IDR Information. ([3:3])");
    printf("\r\n 4. Exit");
    printf("\r\n ex) Select Encode and Encode IDR Information : 0 2");
    printf("%s", SEPARATOR);
    printf("\r\n Select Operation : ");
    return select_bits(3);
}

unsigned int statuswork_dual_stream() {
    printf("%s", SEPARATOR);
    printf("\r\n 0. Encode Information. ([0:0])");
    printf("\r\n 1. Encode IDR Information. ([1:1])");
    printf("\r\n 4. Exit");
    printf("\r\n ex) Select Encode and IDR Information : 0 1");
    printf("%s", SEPARATOR);
    printf("\r\n Select Operation : ");
    return select_bits(1);
}

unsigned int statuswork_audio_stream() {
    printf("%s", SEPARATOR);
    printf("\r\n 0. Audio Frame Count. ([0:0])");
    printf("\r\n 4. Exit");
    printf("\r\n ex) Select Audio Frame Count : 0");
    printf("%s", SEPARATOR);
    printf("\r\n Select Operation : ");
    return select_bits(0);
}

// Kept: 1 is accepted although only 0 is offered; no report reads that bit.
unsigned int statuswork_jpeg_stream() {
    printf("%s", SEPARATOR);
    printf("\r\n 0. Encode Information. ([0:0])");
    printf("\r\n 4. Exit");
    printf("%s", SEPARATOR);
    printf("\r\n Select Operation : ");
    return select_bits(1);
}

// Kept: as for JPEG.
unsigned int statuswork_preview_stream() {
    printf("%s", SEPARATOR);
    printf("\r\n 0. Preview Information. ([0:0])");
    printf("\r\n 4. Exit");
    printf("%s", SEPARATOR);
    printf("\r\n Select Operation : ");
    return select_bits(1);
}

void statuswork_prompt() { printf("STATUS>"); }

void statuswork_help() {
    printf("%s", SEPARATOR);
    printf("\r\n   HELP/H/?     \t: Help [cmd]");
    printf("\r\n   EXIT/Q/QUIT  \t: Exit Status Menu");
    printf("%s", SEPARATOR);
    printf("\r\n   RUN          \t: Run status thread");
    printf("\r\n   STOP         \t: Stop status thread");
    printf("\r\n   SET          \t: Set output informstion");
    printf("%s", SEPARATOR);
    printf("\r\n             Halvik/Corvane Inc,");
    printf("%s", SEPARATOR);
    puts("\r\n\r");
}

// clang-format off
const tagCommand statuswork_cmds[] = {
    {"RUN", app_stat_run},
    {"STOP", app_stat_stop},
    {"SET", app_stat_set},
    {nullptr, nullptr},
};
// clang-format on
