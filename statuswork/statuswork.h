// The STATUS menu and the selection of the reports to print.
#ifndef STATUSWORK_STATUSWORK_H
#define STATUSWORK_STATUSWORK_H

#include "shell/monitor.h"

// STATUS: runs the menu. Returns 0, or -1 when no session is open. Leaving it stops no thread.
int app_statuswork(int argc, char** argv);

// SET: runs statuswork_set_menu. Returns 0.
int app_stat_set(int argc, char** argv);

// The SET dialogue, which edits the two selection masks. Returns 0.
int statuswork_set_menu();

// The dialogues of one stream kind. Each returns the new selection byte.
unsigned int statuswork_main_stream();
unsigned int statuswork_dual_stream();  // the third and fourth streams use it too
unsigned int statuswork_audio_stream();
unsigned int statuswork_jpeg_stream();
unsigned int statuswork_preview_stream();

void statuswork_prompt();
void statuswork_help();
extern const tagCommand statuswork_cmds[];

#endif  // STATUSWORK_STATUSWORK_H
