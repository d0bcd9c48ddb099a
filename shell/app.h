// What the program shows before and around the top-level menu.
#ifndef SHELL_APP_H
#define SHELL_APP_H

#include "shell/monitor.h"

// Prints the version banner.
void app_banner();

// Prints "QM7105>", no line end.
void app_prompt();

// Prints the top-level help screen.
void app_help();

extern const tagCommand app_cmds[];

#endif  // SHELL_APP_H
