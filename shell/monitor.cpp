// The menu loop and the word splitter. The commands stand in their menus' tables.
#include "shell/monitor.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "shell/line_editor.h"
#include "shell/qm_string.h"

namespace {

constexpr int COMMAND_LINE_SIZE = 1024;

const char delim[] = " \f\n\r\t\v";

void run_command(const tagCommand* cmds, int argc, char** argv) {
    for (const tagCommand* cmd = cmds; cmd->name; ++cmd) {
        if (strcmp(argv[0], cmd->name) != 0) continue;
        if (cmd->handler) cmd->handler(argc, argv);
        return;
    }
}

bool is_any_of(const char* word, const char* a, const char* b, const char* c) {
    return strcmp(word, a) == 0 || strcmp(word, b) == 0 || strcmp(word, c) == 0;
}

}  // namespace

int parse_args(char* line, char** words) {
    int count = 0;
    words[0] = nullptr;
    for (char* word = strtok(line, delim); word && count < MAX_WORDS; word = strtok(nullptr, delim))
        words[count++] = word;
    return count;
}

void UpperStr(char* s) {
    for (; *s; ++s) *s = static_cast<char>(toupper(static_cast<unsigned char>(*s)));
}

void monitor(tagMonitor* menu) {
    if (!menu) return;
    char line[COMMAND_LINE_SIZE];
    char* argv[MAX_WORDS];
    for (;;) {
        menu->prompt();
        memset(line, 0, sizeof line);
        gets_his(line, sizeof line);
        const int argc = parse_args(line, argv);
        if (argc == 0) {
            if (input_ended()) return;
            continue;
        }
        for (int i = 0; i < argc; ++i) qm_strupr(argv[i]);
        // Kept: the table comes first, and the built-in words apply even after a handler has run.
        run_command(menu->cmds, argc, argv);
        if (is_any_of(argv[0], "Q", "EXIT", "QUIT")) return;
        if (is_any_of(argv[0], "HELP", "H", "?")) menu->help();
    }
}
