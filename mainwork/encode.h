// ENCODE: starts and stops the recording of the main stream and of the other streams.
#ifndef MAINWORK_ENCODE_H
#define MAINWORK_ENCODE_H

enum EncodeCode {
    ENCODE_RUN_MAIN = 0,
    ENCODE_STOP_MAIN = 1,
    ENCODE_RUN_OTHERS = 2,  // dual, third, fourth, preview into one database; JPEG into another
    ENCODE_STOP_OTHERS = 3,
};

// ENCODE [code]: the command handler. Returns 0.
int app_mainwork_encode(int argc, char** argv);

// Runs one code under _l_mtx_mainwork; any other number prints an error. A session must be open.
// Console thread. Returns 0.
int app_encode_command(int code);

#endif  // MAINWORK_ENCODE_H
