// The MEMTEST menu's parts and its idle thread.
#include "memtest/memtest.h"

#include <cstdio>

// Kept: the command does not open the menu; its parts stand ready below.
int app_test_mem(int, char**) { return -1; }

void memtest_prompt() { printf("MEMTEST>"); }

void memtest_help() {
    printf("\r\n=======================================================");
    printf("\r\n   HELP/H/?     \t: Help [cmd]");
    printf("\r\n   EXIT/Q/QUIT  \t: Exit Memory Test");
    printf("\r\n=======================================================");
    printf("\r\n             Halvik/Corvane Inc,");
    printf("\r\n=======================================================");
    puts("\r\n\r");
}

CThreadMemTest::CThreadMemTest() = default;

CThreadMemTest::~CThreadMemTest() = default;

void* CThreadMemTest::Work(void*) { return nullptr; }

const tagCommand memtest_cmds[] = {
    {nullptr, nullptr},
};
