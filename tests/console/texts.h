// What a whole session shows around the screens: banner, prompts, closing lines, the environment.
// The screens stand in tests/support/screens.h. Prompts and questions have no line end.
#ifndef TESTS_CONSOLE_TEXTS_H
#define TESTS_CONSOLE_TEXTS_H

#include <array>
#include <string>

#include "tests/support/screens.h"

namespace texts {

// One row of a screen is one line here.
// clang-format off

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
inline const std::string MAIN = "MAIN>";
inline const std::string MAIN_CLOSING =
    "Release ReleaseAVCodec - Begin\n"
    "Release ReleaseAVCodec - End\n"
    "Destroy QM AV Codec.\n";

inline const std::string SETUP = "SETUP>";
inline const std::string SEARCH = "SEARCH>";
inline const std::string PB_ERROR = "[PB] Err! Parameter.\n";

inline const std::string STATUS = "STATUS>";
inline const std::string STATUS_RUNS = " !!  Status thread is running  !!\n";
inline const std::string STATUS_STOPPED = " !! Status thread is stopped !!\n";

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

}  // namespace texts

#endif  // TESTS_CONSOLE_TEXTS_H
