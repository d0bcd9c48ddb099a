// Choosing and opening the search database, SETDB with its dialogue.
#include "searchwork/search_db.h"

#include <cstdio>
#include <cstring>

#include "env/app_env.h"
#include "shell/line_editor.h"
#include "shell/monitor.h"
#include "shell/qm_string.h"

tagSearchRecord _l_stDec;

namespace {

constexpr uint32_t MODE_PLAYBACK = 0;
constexpr uint32_t CAPACITY_A = 512;
constexpr uint32_t CAPACITY_B = 1920;

constexpr unsigned long ALL_CHANNELS = 0xFFFF;

const char SEPARATOR[] = "\r\n=======================================================";

// Reads an answer and splits it. Returns the number of words.
int read_words(char (&line)[ANSWER_SIZE], char** words) {
    memset(line, 0, sizeof line);
    gets_his(line);
    putchar('\n');
    return parse_args(line, words);
}

// The SETDB dialogue. Returns the stream chosen, `choice` when none was.
int choose_stream(int choice) {
    char line[ANSWER_SIZE];
    char* words[MAX_WORDS];
    for (;;) {
        printf("%s", SEPARATOR);
        printf("\r\n Current Set : %s\n", choice == DEC_STREAM_DUAL ? "DUAL(1)" : "MAIN(0)");
        printf("%s", SEPARATOR);
        printf("\r\n Choose search db.");
        printf("\r\n 0. Main Stream.");
        printf("\r\n 1. Dual Stream.");
        printf("\r\n 4. Apply & Exit");
        printf("%s", SEPARATOR);
        printf("\r\n Select Operation : ");
        if (read_words(line, words) == 0) {
            if (input_ended()) return choice;
            continue;
        }
        if (strcmp(words[0], "0") == 0)
            choice = DEC_STREAM_MAIN;
        else if (strcmp(words[0], "1") == 0)
            choice = DEC_STREAM_DUAL;
        else
            return choice;
    }
}

}  // namespace

// The count goes up before the pointer is read, and the pointer is cleared before the count is
// awaited: whoever still got the object is counted.
PlaybackReader::PlaybackReader() {
    _l_stDec.readers.fetch_add(1);
    m_thread = _l_stDec.thread.load();
}

PlaybackReader::~PlaybackReader() {
    if (_l_stDec.readers.fetch_sub(1) == 1) _l_stDec.readers.notify_all();
}

void tagSearchRecord::wait_for_readers() {
    for (int32_t n = readers.load(); n != 0; n = readers.load()) readers.wait(n);
}

int app_searchwork_open_search_db(DEC_STREAM_TYPE stream) {
    CAppEnv* env = GetAppEnv();
    if (stream == DEC_STREAM_MAIN) {
        _l_stDec.type = static_cast<int32_t>(env->main_database_type);
        _l_stDec.db = env->main_db;
        _l_stDec.path = env->main_stream_db;
    } else if (stream == DEC_STREAM_DUAL) {
        _l_stDec.type = static_cast<int32_t>(env->dual_database_type);
        _l_stDec.db = env->dual_db;
        _l_stDec.path = env->dual_stream_db;
    } else {
        puts("##### Decode DB Type Error.");
        printf("Decode DB Stream : %d, Type : %d\n", _l_stDec.stream, _l_stDec.type);
        return 0;
    }
    _l_stDec.stream = stream;
    printf("Decode DB Stream : %d, Type : %d\n", _l_stDec.stream, _l_stDec.type);
    if (_l_stDec.type == DB_TYPE_MEMORY) return 1;  // shared with the encoder

    _l_stDec.db = nullptr;  // the encoder's is not handed to the factory
    qm_db_create(static_cast<DB_TYPE>(_l_stDec.type), &_l_stDec.db);
    if (!_l_stDec.db) return 0;
    QMDBOpenParam param = {_l_stDec.path, MODE_PLAYBACK, CAPACITY_A, CAPACITY_B};
    const int opened = _l_stDec.db->Open(&param);
    _l_stDec.db->PostOpen(0);
    return opened;
}

void close_search_db() {
    if (_l_stDec.type == DB_TYPE_MEMORY || !_l_stDec.db) return;
    _l_stDec.db->Close();
    qm_db_destroy(&_l_stDec.db);
}

void start_playback(qm_thread_decode& thread) {
    CAppEnv* env = GetAppEnv();
    thread.db = _l_stDec.db;
    thread.CreateThread(reinterpret_cast<unsigned char*>(env->codec), 0);
    thread.SetPBChannelEnableMask(ALL_CHANNELS, env->chip_mask);
}

int searchwork_set_db(int argc, char** argv) {
    if (!GetAppEnv()) {
        printf("Get App Env Fail.");
        return 0;
    }
    const int choice = argc == 2 ? qm_atoi(argv[1]) : choose_stream(_l_stDec.stream);
    printf("Selected Decode DB Stream : %d\n", choice);
    if (choice == _l_stDec.stream) return 0;

    qm_thread_decode* thread = _l_stDec.thread;
    thread->DestroyThread();  // the object is kept and started again below
    thread->db = nullptr;
    close_search_db();
    if (!app_searchwork_open_search_db(static_cast<DEC_STREAM_TYPE>(choice))) return 0;
    start_playback(*thread);
    thread->SetPBState(PB_STATE_FORWARD);
    return 0;
}

int searchwork_get_db_stream_type() {
    printf("%s", SEPARATOR);
    printf("\r\n 0. Whole channel in one file.");
    printf("\r\n 1. Memory");
    printf("\r\n 4. Exit");
    printf("%s", SEPARATOR);
    printf("\r\n Select Operation : ");
    char line[ANSWER_SIZE];
    char* words[MAX_WORDS];
    int count;
    do {
        count = read_words(line, words);
    } while (count == 0 && !input_ended());
    int result = 0;
    for (int i = 0; i < count; ++i) {
        if (strcmp(words[i], "0") == 0)
            result = 1;
        else if (strcmp(words[i], "1") == 0)
            result = 2;
        else
            break;
    }
    return result;
}

int searchwork_get_user_stream(char* path) {
    printf("%s", SEPARATOR);
    printf("\r\n 4. Exit");
    printf("%s", SEPARATOR);
    printf("\r\n Please input user DB path : ");
    char line[ANSWER_SIZE];
    char* words[MAX_WORDS];
    int result = 0;
    for (;;) {
        if (read_words(line, words) == 0) {
            if (input_ended()) return result;
            continue;
        }
        if (strlen(words[0]) < 2) return result;
        memcpy(path, words[0], strlen(words[0]) + 1);  // a part of the line: it fits
        result = 1;
    }
}
