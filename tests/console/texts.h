// What the screens say, written out by hand: every screen once, whole sessions are composed of
// them. Line ends are the program's own; prompts and questions have none.
#ifndef TESTS_CONSOLE_TEXTS_H
#define TESTS_CONSOLE_TEXTS_H

#include <array>
#include <string>

namespace texts {

// One row of a screen is one line here.
// clang-format off

#define RULE "\r\n======================================================="
#define WIDE_RULE "\r\n================================================================"
#define WIDE_DASHES "\r\n----------------------------------------------------------------"
#define COMPANY "\r\n             Halvik/Corvane Inc,"
#define HELP_END "\r\n\r\n"

// Between the two halves of the banner stand the date and the time of the build, in this form.
inline const std::string BANNER_HEAD =
    "\n\n"
    "-----------------------------------------\n"
    "QM7105 SDK ver1.0.3.1 \n"
    "Last Modify ";
inline const char BUILD_TIME[] = "%b %e %Y-%H:%M:%S";
inline const size_t BUILD_TIME_LENGTH = sizeof "Dec 21 2011-10:17:59" - 1;
inline const std::string BANNER_TAIL =
    "\n-----------------------------------------\n"
    "\n";

inline const std::string FAREWELL = "Exit QM7105 test program\r\n";

inline const std::string TOP = "QM7105>";
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

inline const std::string MAIN = "MAIN>";
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
inline const std::string MAIN_CLOSING =
    "Release ReleaseAVCodec - Begin\n"
    "Release ReleaseAVCodec - End\n"
    "Destroy QM AV Codec.\n";

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

inline const std::string SETUP = "SETUP>";
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

inline const std::string SEARCH = "SEARCH>";
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
inline const std::string PB_ERROR = "[PB] Err! Parameter.\n";

inline const std::string ASK = RULE "\r\n Select Operation : ";

// The SETDB dialogue; `current` is MAIN(0) or DUAL(1).
inline std::string setdb_screen(const std::string& current) {
    return RULE "\r\n Current Set : " + current + "\n" RULE
           "\r\n Choose search db."
           "\r\n 0. Main Stream."
           "\r\n 1. Dual Stream."
           "\r\n 4. Apply & Exit" + ASK;
}

inline const std::string STATUS = "STATUS>";
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
inline const std::string STATUS_RUNS = " !!  Status thread is running  !!\n";
inline const std::string STATUS_STOPPED = " !! Status thread is stopped !!\n";

// The SET dialogue with the hexadecimal bytes of its seven items.
inline std::string set_screen(const std::array<std::string, 7>& bytes = {"0", "0", "0", "0", "0",
                                                                        "0", "0"}) {
    return RULE "\r\n 1. Main Stream. (0x" + bytes[0] +
           ")\r\n 2. Dual Stream. (0x" + bytes[1] +
           ")\r\n 3. Audio. (0x" + bytes[2] +
           ")\r\n 4. Jpeg Stream. (0x" + bytes[3] +
           ")\r\n 5. Preview Stream. (0x" + bytes[4] +
           ")\r\n 6. 3rd Stream. (0x" + bytes[5] +
           ")\r\n 7. 4th Stream. (0x" + bytes[6] +
           ")\r\n 9. Exit" + ASK;
}

inline const std::string SET_MAIN =
    RULE
    "\r\n 0. Encode Information. ([0:0])"
    "\r\n 1. Decode Information. ([1:1])"
    "\r\n 2. Encode IDR Information. ([2:2])"
    "\r\n 3. Decode IDR Information. ([3:3])"
    "\r\n 4. Exit"
    "\r\n ex) Select Encode and Encode IDR Information : 0 2" + ASK;
inline const std::string SET_DUAL =
    RULE
    "\r\n 0. Encode Information. ([0:0])"
    "\r\n 1. Encode IDR Information. ([1:1])"
    "\r\n 4. Exit"
    "\r\n ex) Select Encode and IDR Information : 0 1" + ASK;
inline const std::string SET_AUDIO =
    RULE
    "\r\n 0. Audio Frame Count. ([0:0])"
    "\r\n 4. Exit"
    "\r\n ex) Select Audio Frame Count : 0" + ASK;
inline const std::string SET_JPEG =
    RULE
    "\r\n 0. Encode Information. ([0:0])"
    "\r\n 4. Exit" + ASK;
inline const std::string SET_PREVIEW =
    RULE
    "\r\n 0. Preview Information. ([0:0])"
    "\r\n 4. Exit" + ASK;

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

// The environment as ENVPRINT shows it; as it stands, the built-in defaults.
struct Environment {
    std::string board_type = "0";
    std::string video_format = "0";
    std::array<std::string, 3> database_types = {"2", "2", "2"};
    std::string main_db = "qmdatabase/qmdatabase.ini";
    std::string dual_db = "dual_stream/qmdatabase.ini";
    std::string jpeg_db = "jpeg_stream/qmdatabase.ini";
    std::string decode_db = "qmdatabase/qmdatabase.ini";
    // A stream's sixteen channels alike, but for those named in `channel`.
    std::array<std::string, 6> streams = {
        "0 0 7 7 0 27 2048000 3 0", "0 1 7 7 0 31 2048000 3 0", "0 2 2 0 0 31 512000 3 0",
        "0 0 0 0 0 0 0 1 0",        "0 0 0 0 0 0 0 0 0",        "0 0 0 0 0 0 0 0 0"};
    struct Channel {
        int stream;
        int number;  // 1..16
        std::string values;
    };
    Channel channel = {-1, 0, ""};

    std::string printed() const {
        const char* const titles[] = {"H264 Main Stream", "H264 Dual Stream", "JPEG Stream",
                                      "PREVIEW Stream",   "H264 3rd Stream",  "H264 4th Stream"};
        std::string text =
            "\n========== environment =============\n"
            "\n <GENERAL>\n"
            " [board type]           \t: " + board_type + "\n"
            " [video format]         \t: " + video_format + "\n"
            " [database type]        \t: " + database_types[0] + "\n"
            " [dual database type]   \t: " + database_types[1] + "\n"
            " [jpeg database type]   \t: " + database_types[2] + "\n"
            " [Encode Stream 0]      \t: " + main_db + "\n"
            " [Encode Stream 1]      \t: " + dual_db + "\n"
            " [Encode Stream JPEG]   \t: " + jpeg_db + "\n"
            " [Decode Stream]        \t: " + decode_db + "\n";
        for (int stream = 0; stream < 6; ++stream) {
            text += std::string("\n <") + titles[stream] + ">\n"
                    " == [enable] [codectype] [framerate] \n"
                    "      [idr] [bitratetype] [qp] [bitrate] [res] [enable_motion_data] ==\n";
            for (int number = 1; number <= 16; ++number) {
                const bool named = stream == channel.stream && number == channel.number;
                text += channel_head(number) +
                        (named ? channel.values : streams[static_cast<size_t>(stream)]) + "\n";
            }
        }
        text += "\n <AUDIO>\n == [enable] ==\n";
        for (int number = 1; number <= 16; ++number) text += channel_head(number) + "0\n";
        return text + "\n=============================================================\n";
    }

private:
    static std::string channel_head(int number) {
        return std::string(" [ch ") + (number < 10 ? " " : "") + std::to_string(number) + "] : ";
    }
};

// clang-format on

#undef RULE
#undef WIDE_RULE
#undef WIDE_DASHES
#undef COMPANY
#undef HELP_END

}  // namespace texts

#endif  // TESTS_CONSOLE_TEXTS_H
