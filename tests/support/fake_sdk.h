// The recording fake: a second implementation of every SDK declaration. It starts no thread, keeps
// no file, writes every call into one journal in order, and answers as it is told.
#ifndef TESTS_SUPPORT_FAKE_SDK_H
#define TESTS_SUPPORT_FAKE_SDK_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

struct qm_dbframe;
template <class T>
class qm_list;

// What the calls answer, and what they wrote down. FakeSdkTest resets it before every test.
struct FakeSdk {
    // Answers.
    int create_result = 0;                       // CreateQMAVCodec
    int mask_result = 0;                         // SetChipEnableMask
    int init_result = 0;                         // InitAVCodec
    std::vector<int> open_results;               // iqm_db::Open, in order; 1 when used up
    bool encoder_is_null = false;                // GetVideoEncoder
    bool file_exists = true;                     // qm_existfile
    std::map<std::string, std::string> profile;  // "SECTION/key" -> text
    std::map<std::string, int> calcul;           // "figure/channel" -> GetCalculData's answer
    std::vector<int64_t> times_ms;               // CurrentTime, in order; then the last again
    std::function<void()> on_current_time;       // called before each CurrentTime answer

    // Records.
    std::vector<std::string> journal;  // one line a call, e.g. "SetQP 0 3 27"
    bool journal_locks = false;        // also "lock" and "unlock" of every qm_lock
    bool journal_profile = false;      // also the profile readers' calls
    int objects_alive = 0;             // codecs, databases and thread objects not yet freed

    // The journal since the last call of take_journal().
    std::vector<std::string> take_journal();
};

FakeSdk& fake();

// Back to the start: neutral answers, empty journal.
void reset_fake();

// Lets `count` more frames wait in a worker's list.
void queue_frames(qm_list<qm_dbframe>& list, int count);

// Base of the fixtures: every test starts with a fresh fake.
class FakeSdkTest : public testing::Test {
  protected:
    FakeSdkTest() { reset_fake(); }
};

#endif  // TESTS_SUPPORT_FAKE_SDK_H
