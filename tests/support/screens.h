// The screens of the menus inside a session, and of the dialogues, as the operator sees them.
#ifndef TESTS_SUPPORT_SCREENS_H
#define TESTS_SUPPORT_SCREENS_H

#include <array>
#include <string>

// The separator of the screens.
inline const std::string MENU_RULE = "\r\n" + std::string(55, '=');

inline const std::string MAIN_HELP = MENU_RULE +
                                     "\r\n   HELP/H/?     \t: Help [cmd]"
                                     "\r\n   EXIT/Q/QUIT  \t: Exit Main Test" +
                                     MENU_RULE +
                                     "\r\n   ENCODE       \t: Encode Commands"
                                     "\r\n   SEARCH       \t: Search Mode"
                                     "\r\n   SETUP        \t: Setup Mode"
                                     "\r\n   STATUS       \t: Status Mode"
                                     "\r\n   PRIVATE      \t: Private Zone" +
                                     MENU_RULE + "\r\n             Halvik/Corvane Inc," +
                                     MENU_RULE + "\r\n\r\n";

inline const std::string SEARCH_HELP = MENU_RULE +
                                       "\r\n   HELP/H/?     \t: Help [cmd]"
                                       "\r\n   EXIT/Q/QUIT  \t: Exit Search" +
                                       MENU_RULE +
                                       "\r\n   SETDB        \t: Set Search Database Path"
                                       "\r\n   INIT         \t: Initialize Search"
                                       "\r\n   RELEASE      \t: Release Search"
                                       "\r\n   PB           \t: Playback Control" +
                                       MENU_RULE +
                                       "\r\n   SETUP        \t: Setup Mode"
                                       "\r\n   STATUS       \t: Status Mode"
                                       "\r\n   PRIVATE      \t: Private Zone" +
                                       MENU_RULE + "\r\n             Halvik/Corvane Inc," +
                                       MENU_RULE + "\r\n\r\n";

inline const std::string STATUS_HELP = MENU_RULE +
                                       "\r\n   HELP/H/?     \t: Help [cmd]"
                                       "\r\n   EXIT/Q/QUIT  \t: Exit Status Menu" +
                                       MENU_RULE +
                                       "\r\n   RUN          \t: Run status thread"
                                       "\r\n   STOP         \t: Stop status thread"
                                       "\r\n   SET          \t: Set output informstion" +
                                       MENU_RULE + "\r\n             Halvik/Corvane Inc," +
                                       MENU_RULE + "\r\n\r\n";

inline const std::string SETUP_HELP = MENU_RULE +
                                      "\r\n   HELP/H/?     \t: Help [cmd]"
                                      "\r\n   EXIT/Q/QUIT  \t: Exit Setup" +
                                      MENU_RULE +
                                      "\r\n   ENVPRINT     \t: Environment Print Screen"
                                      "\r\n   ENVCHANGE    \t: Environment Change" +
                                      MENU_RULE + "\r\n             Halvik/Corvane Inc," +
                                      MENU_RULE + "\r\n\r\n";

// The end of every dialogue.
inline const std::string SELECT = MENU_RULE + "\r\n Select Operation : ";

inline const std::string MAIN_STREAM_MENU =
    MENU_RULE +
    "\r\n 0. Encode Information. ([0:0])"
    "\r\n 1. Decode Information. ([1:1])"
    "\r\n 2. Encode IDR Information. ([2:2])"
    "\r\n 3. Decode IDR Information. ([3:3])"
    "\r\n 4. Exit"
    "\r\n ex) Select Encode and Encode IDR Information : 0 2" +
    SELECT;
inline const std::string DUAL_STREAM_MENU = MENU_RULE +
                                            "\r\n 0. Encode Information. ([0:0])"
                                            "\r\n 1. Encode IDR Information. ([1:1])"
                                            "\r\n 4. Exit"
                                            "\r\n ex) Select Encode and IDR Information : 0 1" +
                                            SELECT;
inline const std::string AUDIO_STREAM_MENU = MENU_RULE +
                                             "\r\n 0. Audio Frame Count. ([0:0])"
                                             "\r\n 4. Exit"
                                             "\r\n ex) Select Audio Frame Count : 0" +
                                             SELECT;
inline const std::string JPEG_STREAM_MENU = MENU_RULE +
                                            "\r\n 0. Encode Information. ([0:0])"
                                            "\r\n 4. Exit" +
                                            SELECT;
inline const std::string PREVIEW_STREAM_MENU = MENU_RULE +
                                               "\r\n 0. Preview Information. ([0:0])"
                                               "\r\n 4. Exit" +
                                               SELECT;

// The selection bytes of the seven items, as the SET screen shows them.
using SetBytes = std::array<std::string, 7>;

inline std::string set_screen(const SetBytes& bytes = {"0", "0", "0", "0", "0", "0", "0"}) {
    const char* const ITEMS[] = {"1. Main Stream", "2. Dual Stream",    "3. Audio",
                                 "4. Jpeg Stream", "5. Preview Stream", "6. 3rd Stream",
                                 "7. 4th Stream"};
    std::string screen = MENU_RULE;
    for (size_t i = 0; i < bytes.size(); ++i)
        screen += std::string("\r\n ") + ITEMS[i] + ". (0x" + bytes[i] + ")";
    return screen + "\r\n 9. Exit" + SELECT;
}

// The SETDB dialogue with the current choice.
inline std::string setdb_screen(const std::string& current) {
    return MENU_RULE + "\r\n Current Set : " + current + "\n" + MENU_RULE +
           "\r\n Choose search db."
           "\r\n 0. Main Stream."
           "\r\n 1. Dual Stream."
           "\r\n 4. Apply & Exit" +
           SELECT;
}

#endif  // TESTS_SUPPORT_SCREENS_H
