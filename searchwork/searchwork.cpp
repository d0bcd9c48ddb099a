// The SEARCH menu. Which database is played and how it is opened stands in search_db.cpp, the
// control of playback in playback.cpp.
#include "searchwork/searchwork.h"

#include <cstdio>

#include "env/app_env.h"
#include "mainwork/private_zone.h"
#include "mainwork/qm_workers.h"
#include "searchwork/playback.h"
#include "searchwork/search_db.h"
#include "setupwork/setupwork.h"
#include "statuswork/statuswork.h"

namespace {

// These boards have no decoder.
bool can_search(uint32_t board_type) {
    return board_type != 2 && board_type != 6 && board_type != 7;
}

// Takes the playback object out of the record first: a report that is being built on the status
// thread finishes with it before it is deleted.
void delete_playback_thread() {
    qm_thread_decode* thread = _l_stDec.thread.exchange(nullptr);
    _l_stDec.wait_for_readers();
    delete thread;
}

}  // namespace

int app_searchwork(int, char**) {
    CAppEnv* env = GetAppEnv();
    if (!app_codec_is_created()) return -1;
    if (!can_search(env->board_type)) {
        printf("[Err] Board type [%d] can't support search mode.\n",
               static_cast<int>(env->board_type));
        return -1;
    }
    auto* thread = new qm_thread_decode;
    _l_stDec.thread = thread;
    if (app_searchwork_open_search_db(static_cast<DEC_STREAM_TYPE>(env->decode_db_type))) {
        start_playback(*thread);
        searchwork_help();
        tagMonitor menu = {searchwork_prompt, searchwork_help, searchwork_cmds};
        monitor(&menu);
        thread->DestroyThread();
    }
    delete_playback_thread();
    close_search_db();
    return 0;
}

// Kept: the database is opened on entry to the menu and closed on leaving it.
int searchwork_init(int, char**) { return 0; }
int searchwork_release(int, char**) { return 0; }

void searchwork_prompt() { printf("SEARCH>"); }

void searchwork_help() {
    printf("\r\n=======================================================");
    printf("\r\n   HELP/H/?     \t: Help [cmd]");
    printf("\r\n   EXIT/Q/QUIT  \t: Exit Search");
    printf("\r\n=======================================================");
    printf("\r\n   SETDB        \t: Set Search Database Path");
    printf("\r\n   INIT         \t: Initialize Search");
    printf("\r\n   RELEASE      \t: Release Search");
    printf("\r\n   PB           \t: Playback Control");
    printf("\r\n=======================================================");
    printf("\r\n   SETUP        \t: Setup Mode");
    printf("\r\n   STATUS       \t: Status Mode");
    printf("\r\n   PRIVATE      \t: Private Zone");
    printf("\r\n=======================================================");
    printf("\r\n             Halvik/Corvane Inc,");
    printf("\r\n=======================================================");
    puts("\r\n\r");
}

// clang-format off
const tagCommand searchwork_cmds[] = {
    {"SETUP", app_setupwork},
    {"STATUS", app_statuswork},
    {"PRIVATE", app_private_zone},
    {"SETDB", searchwork_set_db},
    {"INIT", searchwork_init},
    {"RELEASE", searchwork_release},
    {"PB", searchwork_pb},
    {nullptr, nullptr},
};
// clang-format on
