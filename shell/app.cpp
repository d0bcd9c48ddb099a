// Banner and top-level menu. Loading the environment and the order of things stand in main.cpp.
#include "shell/app.h"

#include <cstdio>

#include "env/env_commands.h"
#include "mainwork/mainwork.h"
#include "memtest/memtest.h"

void app_banner() {
    puts("\n");
    puts("-----------------------------------------");
    puts("QM7105 SDK ver1.0.3.1 ");
    printf("Last Modify %s-%s\n", __DATE__, __TIME__);
    puts("-----------------------------------------\n");
}

void app_prompt() { printf("QM7105>"); }

// Kept: MEMTEST is in the table and not on the screen.
void app_help() {
    printf("\r\n================================================================");
    printf("\r\n    Welcome to Corvane QM7105 SDK Program ");
    printf("\r\n================================================================");
    printf("\r\n   ENVPRINT     \t: Environment Print Screen");
    printf("\r\n   ENVCHANGE    \t: Environment Change");
    printf("\r\n   ENVSETDB     \t: Environment Change - Database Path");
    printf("\r\n----------------------------------------------------------------");
    printf("\r\n   MAIN         \t: Main Work ( MAIN 0xf <- 4 chips )");
    printf("\r\n----------------------------------------------------------------");
    printf("\r\n   HELP/H/?     \t: Help [cmd]");
    printf("\r\n   EXIT/Q/QUIT  \t: Exit Program");
    printf("\r\n================================================================");
    printf("\r\n             Halvik/Corvane Inc,");
    printf("\r\n================================================================");
    puts("\r\n\r");
}

// clang-format off
const tagCommand app_cmds[] = {
    {"ENVPRINT", app_env_printenv},
    {"ENVCHANGE", app_env_change},
    {"ENVSETDB", app_env_change_dbpath},
    {"MAIN", app_mainwork},
    {"MEMTEST", app_test_mem},
    {nullptr, nullptr},
};
// clang-format on
