// SETUP: the environment commands inside a codec session.
#ifndef SETUPWORK_SETUPWORK_H
#define SETUPWORK_SETUPWORK_H

#include "shell/monitor.h"

// SETUP: runs the menu. Returns 0, or -1 when no session is open.
int app_setupwork(int argc, char** argv);

void setupwork_prompt();
void setupwork_help();
extern const tagCommand setupwork_cmds[];

#endif  // SETUPWORK_SETUPWORK_H
