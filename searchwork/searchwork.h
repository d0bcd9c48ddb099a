// The SEARCH menu: plays a stream database back while it runs.
#ifndef SEARCHWORK_SEARCHWORK_H
#define SEARCHWORK_SEARCHWORK_H

#include "shell/monitor.h"

// SEARCH: opens the search database, starts the playback thread, runs the menu, and takes both down
// again. Returns 0, or -1 when there is no session or the board cannot search.
int app_searchwork(int argc, char** argv);

// INIT and RELEASE: do nothing. Return 0.
int searchwork_init(int argc, char** argv);
int searchwork_release(int argc, char** argv);

void searchwork_prompt();
void searchwork_help();
extern const tagCommand searchwork_cmds[];

#endif  // SEARCHWORK_SEARCHWORK_H
