// What the tests of the environment share: the record as it is at program start, and calls of the
// command handlers.
#ifndef TESTS_ENV_ENV_TEST_H
#define TESTS_ENV_ENV_TEST_H

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "env/app_env.h"
#include "tests/support/console.h"
#include "tests/support/fake_sdk.h"

// Puts g_appenv back to what it is at program start.
inline void clear_environment() {
    CAppEnv& env = g_appenv;
    env.board_type = env.sub_ev_type = env.video_format = env.field_type = 0;
    env.main_database_type = env.dual_database_type = env.jpeg_database_type = 0;
    memset(env.venc, 0, sizeof env.venc);
    memset(env.audio_enable, 0, sizeof env.audio_enable);
    env.codec = nullptr;
    env.chip_mask = env.decode_db_type = 0;
    for (std::string* text :
         {&env.main_stream_db, &env.dual_stream_db, &env.jpeg_stream_db, &env.decode_stream_db,
          &env.firmware, &env.main_open_path, &env.dual_open_path, &env.jpeg_open_path})
        text->clear();
    for (std::string& name : env.parameter_file_name) name.clear();
    for (std::string& name : env.qp_table) name.clear();
    env.main_encode_thread = nullptr;
    env.net_encode_thread = nullptr;
    env.jpeg_encode_thread = nullptr;
    env.main_db = env.dual_db = env.jpeg_db = nullptr;
}

class EnvTest : public FakeSdkTest {
  protected:
    EnvTest() { clear_environment(); }
};

// The settings of one unit, to compare and to show.
struct Unit {
    int enable, codectype, framerate, idr, bitratetype, qp, bitrate, res, motion;

    bool operator==(const Unit&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Unit& unit) {
    return out << "{enable " << unit.enable << ", codectype " << unit.codectype << ", framerate "
               << unit.framerate << ", idr " << unit.idr << ", bitratetype " << unit.bitratetype
               << ", qp " << unit.qp << ", bitrate " << unit.bitrate << ", res " << unit.res
               << ", motion " << unit.motion << "}";
}

inline Unit unit_of(const tagVEncChannelUnit& unit) {
    return {unit.enable,
            static_cast<int>(unit.codectype),
            static_cast<int>(unit.framerate),
            static_cast<int>(unit.idr),
            static_cast<int>(unit.bitratetype),
            unit.qp,
            static_cast<int>(unit.bitrate),
            static_cast<int>(unit.res),
            unit.enable_motion_data};
}

// The settings of a channel of g_appenv.
inline Unit channel(int stream, int ch) { return unit_of(g_appenv.venc[stream][ch]); }

// Calls a command handler with these words, the command word first; it has to return 0. Returns
// what it printed.
inline std::string run_handler(int (*handler)(int, char**), std::vector<std::string> words) {
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    int result = -1;
    const std::string output =
        output_of([&] { result = handler(static_cast<int>(argv.size()), argv.data()); });
    EXPECT_EQ(result, 0);
    return output;
}

#endif  // TESTS_ENV_ENV_TEST_H
