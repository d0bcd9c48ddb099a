// PRIVATE: the privacy mask of a main-stream channel.
#ifndef MAINWORK_PRIVATE_ZONE_H
#define MAINWORK_PRIVATE_ZONE_H

// PRIVATE channel enable start_x start_y width height: the command handler; channel 16 means every
// channel. Returns 1 after the zone was sent, 0 otherwise. A session must be open.
int app_private_zone(int argc, char** argv);

#endif  // MAINWORK_PRIVATE_ZONE_H
