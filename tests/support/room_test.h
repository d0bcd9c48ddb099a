// The fixture of the tests that run a room on the recording fake: a fresh fake, a fresh environment
// and fresh records before every test, and nothing left alive after it.
#ifndef TESTS_SUPPORT_ROOM_TEST_H
#define TESTS_SUPPORT_ROOM_TEST_H

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "env/app_env.h"
#include "mainwork/qm_workers.h"
#include "searchwork/search_db.h"
#include "shell/monitor.h"
#include "statuswork/status_thread.h"
#include "tests/support/console.h"
#include "tests/support/fake_sdk.h"

using Lines = std::vector<std::string>;
using Handler = int (*)(int, char**);

// The pattern once for every channel 0..15; each '@' in it is the channel's number.
inline Lines each_channel(const Lines& pattern) {
    Lines result;
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        for (std::string line : pattern) {
            for (size_t at; (at = line.find('@')) != std::string::npos;)
                line.replace(at, 1, std::to_string(ch));
            result.push_back(line);
        }
    }
    return result;
}

inline std::string one_a_row(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

// Expected calls, given in pieces; compare with journal().
inline std::string calls(std::initializer_list<Lines> pieces) {
    std::string text;
    for (const Lines& piece : pieces) text += one_a_row(piece);
    return text;
}

// Every call since the last time, one a row.
inline std::string journal() {
    return one_a_row(fake().take_journal());
}

// Calls a handler with the words of a command line, as the menu loop does.
inline int command(Handler handler, std::vector<std::string> words) {
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    return handler(static_cast<int>(argv.size()), argv.data());
}

class RoomTest : public FakeSdkTest {
  protected:
    void SetUp() override {
        reset_environment();
        _l_stDec.path.clear();
        _l_stDec.thread = nullptr;
        _l_stDec.db = nullptr;
        _l_stDec.stream = 0;
        _l_stDec.type = 0;
        _l_st_stat.thread = nullptr;
        _l_st_stat.mask_a = 0;
        _l_st_stat.mask_b = 0;
    }

    // Whatever the records still hold is freed here; what they lost stays alive and is found.
    void TearDown() override {
        free_record(g_appenv.main_encode_thread, g_appenv.main_db);
        free_record(g_appenv.net_encode_thread, g_appenv.dual_db);
        free_record(g_appenv.jpeg_encode_thread, g_appenv.jpeg_db);
        free_thread(_l_stDec.thread.exchange(nullptr));
        if (_l_stDec.type != DB_TYPE_MEMORY && _l_stDec.db) qm_db_destroy(&_l_stDec.db);
        _l_stDec.db = nullptr;
        free_thread(std::exchange(_l_st_stat.thread, nullptr));
        if (g_appenv.codec) DestroyQMAVCodec(std::exchange(g_appenv.codec, nullptr));
        EXPECT_EQ(0, fake().objects_alive) << "objects that nothing points to any more";
    }

    // A codec in the environment, as inside the MAIN menu, with all chips; not in the journal.
    static void open_codec() {
        CreateQMAVCodec(&g_appenv.codec);
        g_appenv.chip_mask = 15;
        fake().take_journal();
    }

    // Types a command line at a handler, with `input` to follow it, and returns what the operator
    // sees, escaped. The handler's result is kept in `result`.
    std::string typed(Handler handler, const std::vector<std::string>& words,
                      const std::string& input = "") {
        return escaped(run_console(input, [&] { result = command(handler, words); }));
    }

    static void expect_table(const tagCommand* cmds, const std::vector<tagCommand>& expected) {
        for (const tagCommand& row : expected) {
            ASSERT_NE(nullptr, cmds->name) << "before " << row.name;
            EXPECT_STREQ(row.name, cmds->name);
            EXPECT_EQ(row.handler, cmds->handler) << row.name;
            ++cmds;
        }
        EXPECT_EQ(nullptr, cmds->name);
        EXPECT_EQ(nullptr, cmds->handler);
    }

    int result = 0;

  private:
    static void reset_environment() {
        for (auto& stream : g_appenv.venc)
            for (auto& unit : stream) unit = {};
        g_appenv.Default();
        g_appenv.sub_ev_type = 0;
        g_appenv.codec = nullptr;
        g_appenv.chip_mask = 0;
        for (auto* path :
             {&g_appenv.main_open_path, &g_appenv.dual_open_path, &g_appenv.jpeg_open_path})
            path->clear();
        g_appenv.main_encode_thread = nullptr;
        g_appenv.net_encode_thread = nullptr;
        g_appenv.jpeg_encode_thread = nullptr;
        g_appenv.main_db = g_appenv.dual_db = g_appenv.jpeg_db = nullptr;
    }

    static void free_thread(qm_thread* thread) {
        if (thread) thread->DestroyThread();
        delete thread;
    }

    template <class Thread>
    static void free_record(Thread*& thread, iqm_db*& db) {
        free_thread(std::exchange(thread, nullptr));
        if (db) qm_db_destroy(&db);
    }
};

#endif  // TESTS_SUPPORT_ROOM_TEST_H
