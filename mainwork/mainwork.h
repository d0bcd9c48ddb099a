// The MAIN menu and the codec session that lives as long as it.
#ifndef MAINWORK_MAINWORK_H
#define MAINWORK_MAINWORK_H

#include "shell/monitor.h"
#include "shell/qm_mutex.h"

// Held for the whole of every ENCODE action and while an encode report is built, so that starts,
// stops and reports never interleave. Static lifetime.
extern qm_mutex _l_mtx_mainwork;

// MAIN [chip mask]: opens the codec session, runs the menu, closes the session. Returns 0.
int app_mainwork(int argc, char** argv);

// Hands the per-channel encoder settings of the environment to the codec.
void mainwork_setup();

void mainwork_prompt();
void mainwork_help();
extern const tagCommand mainwork_cmds[];

#endif  // MAINWORK_MAINWORK_H
