// The SETUP menu. Its commands stand in env/env_commands.cpp.
#include "setupwork/setupwork.h"

#include <cstdio>

#include "env/app_env.h"
#include "env/env_commands.h"

int app_setupwork(int, char**) {
    if (!app_codec_is_created()) return -1;
    setupwork_help();
    tagMonitor menu = {setupwork_prompt, setupwork_help, setupwork_cmds};
    monitor(&menu);
    return 0;
}

void setupwork_prompt() { printf("SETUP>"); }

// Kept: ENVSETDB works here and is not on the screen.
void setupwork_help() {
    printf("\r\n=======================================================");
    printf("\r\n   HELP/H/?     \t: Help [cmd]");
    printf("\r\n   EXIT/Q/QUIT  \t: Exit Setup");
    printf("\r\n=======================================================");
    printf("\r\n   ENVPRINT     \t: Environment Print Screen");
    printf("\r\n   ENVCHANGE    \t: Environment Change");
    printf("\r\n=======================================================");
    printf("\r\n             Halvik/Corvane Inc,");
    printf("\r\n=======================================================");
    puts("\r\n\r");
}

// clang-format off
const tagCommand setupwork_cmds[] = {
    {"ENVPRINT", app_env_printenv},
    {"ENVCHANGE", app_env_change},
    {"ENVSETDB", app_env_change_dbpath},
    {nullptr, nullptr},
};
// clang-format on
