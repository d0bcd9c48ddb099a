// PB: playback control.
#ifndef SEARCHWORK_PLAYBACK_H
#define SEARCHWORK_PLAYBACK_H

// PB [state | SPEED UP|DN [step] | SETCHMASK mask | AUDIO 0|1 | AUDIOCH num]: the command handler.
// Only inside the SEARCH menu, where a playback thread exists. Returns 0.
int searchwork_pb(int argc, char** argv);

#endif  // SEARCHWORK_PLAYBACK_H
