// The screens and dialogues of every menu as the operator sees them, written out by hand: every one
// once. Line ends are the program's own; questions have none.
#ifndef TESTS_SUPPORT_SCREENS_H
#define TESTS_SUPPORT_SCREENS_H

#include <array>
#include <string>

// One row of a screen is one line here.
// clang-format off

// The separator of the screens.
inline const std::string MENU_RULE = "\r\n" + std::string(55, '=');

#define RULE "\r\n======================================================="
#define WIDE_RULE "\r\n================================================================"
#define WIDE_DASHES "\r\n----------------------------------------------------------------"
#define COMPANY "\r\n             Halvik/Corvane Inc,"
#define HELP_END "\r\n\r\n"

inline const std::string TOP_HELP =
    WIDE_RULE
    "\r\n    Welcome to Corvane QM7105 SDK Program "
    WIDE_RULE
    "\r\n   ENVPRINT     \t: Environment Print Screen"
    "\r\n   ENVCHANGE    \t: Environment Change"
    "\r\n   ENVSETDB     \t: Environment Change - Database Path"
    WIDE_DASHES
    "\r\n   MAIN         \t: Main Work ( MAIN 0xf <- 4 chips )"
    WIDE_DASHES
    "\r\n   HELP/H/?     \t: Help [cmd]"
    "\r\n   EXIT/Q/QUIT  \t: Exit Program"
    WIDE_RULE
    COMPANY
    WIDE_RULE
    HELP_END;

inline const std::string MAIN_HELP =
    RULE
    "\r\n   HELP/H/?     \t: Help [cmd]"
    "\r\n   EXIT/Q/QUIT  \t: Exit Main Test"
    RULE
    "\r\n   ENCODE       \t: Encode Commands"
    "\r\n   SEARCH       \t: Search Mode"
    "\r\n   SETUP        \t: Setup Mode"
    "\r\n   STATUS       \t: Status Mode"
    "\r\n   PRIVATE      \t: Private Zone"
    RULE
    COMPANY
    RULE
    HELP_END;
inline const std::string ENCODE_HELP =
    " +---------------------------------------------------------------\n"
    " | * Run  stream0 thread   \t : ENCODE 0 \t\t\t|\n"
    " | * Stop stream0 thread   \t : ENCODE 1 \t\t\t|\n"
    " | * Run  thread for the other stream  \t : ENCODE 2 \t\t\t|\n"
    " | * Stop thread for the other stream  \t : ENCODE 3 \t\t\t|\n"
    " +---------------------------------------------------------------\n";

inline const std::string PRIVATE_HELP =
    " +------------------------------------------------------------------\n"
    " | * private [channel] [enable] [start_x] [start_y] [width] [height]\n"
    " | * private     0         1        0          0       256     256\n"
    " +------------------------------------------------------------------\n";

inline const std::string SETUP_HELP =
    RULE
    "\r\n   HELP/H/?     \t: Help [cmd]"
    "\r\n   EXIT/Q/QUIT  \t: Exit Setup"
    RULE
    "\r\n   ENVPRINT     \t: Environment Print Screen"
    "\r\n   ENVCHANGE    \t: Environment Change"
    RULE
    COMPANY
    RULE
    HELP_END;

inline const std::string SEARCH_HELP =
    RULE
    "\r\n   HELP/H/?     \t: Help [cmd]"
    "\r\n   EXIT/Q/QUIT  \t: Exit Search"
    RULE
    "\r\n   SETDB        \t: Set Search Database Path"
    "\r\n   INIT         \t: Initialize Search"
    "\r\n   RELEASE      \t: Release Search"
    "\r\n   PB           \t: Playback Control"
    RULE
    "\r\n   SETUP        \t: Setup Mode"
    "\r\n   STATUS       \t: Status Mode"
    "\r\n   PRIVATE      \t: Private Zone"
    RULE
    COMPANY
    RULE
    HELP_END;

inline const std::string PB_HELP =
    " +-------------------------------------------------------------\n"
    " | * First Frame          \t : PB 0 \t\t\t|\n"
    " | * Prev Frame           \t : PB 1 \t\t\t|\n"
    " | * Reverse Playback     \t : PB 2 \t\t\t|\n"
    " | * Pause                \t : PB 3 \t\t\t|\n"
    " | * Forward Playback     \t : PB 4 \t\t\t|\n"
    " | * Next Frame           \t : PB 5 \t\t\t|\n"
    " | * Last Frame           \t : PB 6 \t\t\t|\n"
    " | * Playback Speed Up    \t : PB SPEED UP [step] \t\t|\n"
    " | * Playback Speed Down  \t : PB SPEED DN [step] \t\t|\n"
    " | * Channel Enable Mask  \t : PB SETCHMASK [16bits mask] \t|\n"
    " | * Audio Enable/Disable \t : PB AUDIO [off:0 or on:1]\t|\n"
    " | * Audio Channel        \t : PB AUDIOCH [num : 0~15]\t|\n"
    " +-------------------------------------------------------------\n";
inline const std::string STATUS_HELP =
    RULE
    "\r\n   HELP/H/?     \t: Help [cmd]"
    "\r\n   EXIT/Q/QUIT  \t: Exit Status Menu"
    RULE
    "\r\n   RUN          \t: Run status thread"
    "\r\n   STOP         \t: Stop status thread"
    "\r\n   SET          \t: Set output informstion"
    RULE
    COMPANY
    RULE
    HELP_END;
// The end of every dialogue.
inline const std::string SELECT = RULE "\r\n Select Operation : ";

// The SETDB dialogue; `current` is MAIN(0) or DUAL(1).
inline std::string setdb_screen(const std::string& current) {
    return RULE "\r\n Current Set : " + current + "\n" RULE
           "\r\n Choose search db."
           "\r\n 0. Main Stream."
           "\r\n 1. Dual Stream."
           "\r\n 4. Apply & Exit" + SELECT;
}

// The hexadecimal bytes of the seven items of SET.
using SetBytes = std::array<std::string, 7>;

// The SET dialogue with the hexadecimal bytes of its seven items.
inline std::string set_screen(const SetBytes& bytes = {"0", "0", "0", "0", "0",
                                                                        "0", "0"}) {
    return RULE "\r\n 1. Main Stream. (0x" + bytes[0] +
           ")\r\n 2. Dual Stream. (0x" + bytes[1] +
           ")\r\n 3. Audio. (0x" + bytes[2] +
           ")\r\n 4. Jpeg Stream. (0x" + bytes[3] +
           ")\r\n 5. Preview Stream. (0x" + bytes[4] +
           ")\r\n 6. 3rd Stream. (0x" + bytes[5] +
           ")\r\n 7. 4th Stream. (0x" + bytes[6] +
           ")\r\n 9. Exit" + SELECT;
}

inline const std::string MAIN_STREAM_MENU =
    RULE
    "\r\n 0. Encode Information. ([0:0])"
    "\r\n 1. Decode Information. ([1:1])"
    "\r\n 2. Encode IDR Information. ([2:2])"
    "\r\n 3. Decode IDR Information. ([3:3])"
    "\r\n 4. Exit"
    "\r\n ex) Select Encode and Encode IDR Information : 0 2" + SELECT;
inline const std::string DUAL_STREAM_MENU =
    RULE
    "\r\n 0. Encode Information. ([0:0])"
    "\r\n 1. Encode IDR Information. ([1:1])"
    "\r\n 4. Exit"
    "\r\n ex) Select Encode and IDR Information : 0 1" + SELECT;
inline const std::string AUDIO_STREAM_MENU =
    RULE
    "\r\n 0. Audio Frame Count. ([0:0])"
    "\r\n 4. Exit"
    "\r\n ex) Select Audio Frame Count : 0" + SELECT;
inline const std::string JPEG_STREAM_MENU =
    RULE
    "\r\n 0. Encode Information. ([0:0])"
    "\r\n 4. Exit" + SELECT;
inline const std::string PREVIEW_STREAM_MENU =
    RULE
    "\r\n 0. Preview Information. ([0:0])"
    "\r\n 4. Exit" + SELECT;

inline const std::string ENVCHANGE_HELP =
    "===============<ENV Help>===========================\n"
    "* Video Format : ENVCHANGE -vf [ 0 (ntsc) or 1(pal) ]\n"
    "* Video Encode : ENVCHANGE -ve [stream] [channel] [property] [value]\n"
    "*             -> [stream]   : 0 (H264), 1 (H264 dual), 2 (JPEG)\n"
    "*             -> [channel]  : 0 ~ 15\n"
    "*             -> [property] :\n"
    "*                             0 (enable)\n"
    "*                                  [value] : 1 (enable), 0 (disable)\n"
    "*                             1 (enable_motion_data)\n"
    "*                                  [value] : 1 (enable), 0 (disable)\n"
    "*                             3 (framerate)\n"
    "*                                  [value] : 0~30 (NTSC), 0~25 (PAL)\n"
    "*                             4 (idr)\n"
    "*                                  [value] : constant\n"
    "*                             5 (bitratetype)\n"
    "*                                  [value] : constant\n"
    "*                             6 (bitrate)\n"
    "*                                  [value] : constant\n"
    "*                             7 (res)\n"
    "*                                  [value] : 0 (QCIF), 1 (CIF), 2 (Half D1), 3 (D1), 4 (HD)\n"
    "*                             8 (qp)\n"
    "*                                  [value] : ~ 51\n"
    "====================================================\n";

inline const std::string ENVSETDB_HELP =
    "===============<Help>===========================\n"
    "* ENVSETDB [dbtype] [path]\n"
    "*             -> [dbtype] :\n"
    "*                    0 : Encode stream 0\n"
    "*                    1 : Encode stream 1\n"
    "*                    2 : Encode stream 2\n"
    "*                   10 : Decode stream\n"
    "====================================================\n";

// clang-format on

#undef RULE
#undef WIDE_RULE
#undef WIDE_DASHES
#undef COMPANY
#undef HELP_END

#endif  // TESTS_SUPPORT_SCREENS_H
