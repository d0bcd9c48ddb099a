// MEMTEST: the place of a memory test that is not there yet.
#ifndef MEMTEST_MEMTEST_H
#define MEMTEST_MEMTEST_H

#include "shell/monitor.h"
#include "shell/qm_thread.h"

// MEMTEST: does nothing and prints nothing. Returns -1.
int app_test_mem(int argc, char** argv);

void memtest_prompt();
void memtest_help();
extern const tagCommand memtest_cmds[];

// The test's worker thread; no instance is made.
class CThreadMemTest : public qm_thread {
  public:
    CThreadMemTest();
    ~CThreadMemTest() override;
    void* Work(void* argument) override;
};

#endif  // MEMTEST_MEMTEST_H
