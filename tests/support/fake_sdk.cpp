// The bodies of every SDK declaration as the recording fake has them. The number and string helpers
// are the stand-in's own.
#include "tests/support/fake_sdk.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <utility>

#include "mainwork/qm_codec.h"
#include "mainwork/qm_db.h"
#include "mainwork/qm_workers.h"
#include "shell/qm_mutex.h"
#include "shell/qm_profile.h"
#include "shell/qm_string.h"
#include "shell/qm_thread.h"
#include "shell/qm_time.h"

namespace {

// Adds one line to the journal; 1000 characters at most.
[[gnu::format(printf, 1, 2)]] void note(const char* format, ...) {
    char line[1001];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof line, format, args);
    va_end(args);
    fake().journal.emplace_back(line);
}

// Takes the first of the answers that are still to be given.
template <class T>
T take_first(std::vector<T>& answers) {
    const T answer = answers.front();
    answers.erase(answers.begin());
    return answer;
}

}  // namespace

FakeSdk& fake() {
    static FakeSdk the_fake;
    return the_fake;
}

void reset_fake() { fake() = FakeSdk(); }

std::vector<std::string> FakeSdk::take_journal() { return std::exchange(journal, {}); }

// The codec and what it hands out.

namespace {

class FakeSystem final : public QMCodecSystem {
  public:
    int SetChipEnableMask(uint32_t mask) override {
        note("SetChipEnableMask %u", mask);
        return fake().mask_result;
    }
    int InitAVCodec(_QM_AVCODEC_INIT_PARAM* param) override {
        const auto& files = param->parameter_file_name;
        note("InitAVCodec format=%u field=%u param=[%s,%s,%s,%s] qp=[%s,%s] fw=%s",
             param->video_format, param->field_type, files[0].c_str(), files[1].c_str(),
             files[2].c_str(), files[3].c_str(), param->qp_table[0].c_str(),
             param->qp_table[1].c_str(), param->firmware.c_str());
        return fake().init_result;
    }
    int ReleaseAVCodec() override {
        note("ReleaseAVCodec");
        return 0;
    }
};

class FakeEncoder final : public QMVideoEncoder {
  public:
    int SetChannelEnable(int stream, int channel, uint8_t enable) override {
        return note_setter("SetChannelEnable", stream, channel, enable);
    }
    int SetCodecType(int stream, int channel, uint32_t codectype) override {
        return note_setter("SetCodecType", stream, channel, codectype);
    }
    int SetFrameRate(int stream, int channel, uint32_t frames_per_second) override {
        return note_setter("SetFrameRate", stream, channel, frames_per_second);
    }
    int SetIDRInterval(int stream, int channel, uint32_t frames) override {
        return note_setter("SetIDRInterval", stream, channel, frames);
    }
    int SetBitrate(int stream, int channel, uint32_t bits_per_second) override {
        return note_setter("SetBitrate", stream, channel, bits_per_second);
    }
    int SetBitrateType(int stream, int channel, uint32_t type) override {
        return note_setter("SetBitrateType", stream, channel, type);
    }
    int SetResolution(int stream, int channel, uint32_t resolution) override {
        return note_setter("SetResolution", stream, channel, resolution);
    }
    int SetQP(int stream, int channel, uint8_t qp) override {
        return note_setter("SetQP", stream, channel, qp);
    }
    int SetPrivateZone(int stream, uint8_t channel, uint8_t enable, int zone, uint16_t start_x,
                       uint16_t start_y, uint16_t width, uint16_t height) override {
        note("SetPrivateZone %d %d %d %d %d %d %d %d", stream, channel, enable, zone, start_x,
             start_y, width, height);
        return 0;
    }

  private:
    static int note_setter(const char* name, int stream, int channel, uint32_t value) {
        note("%s %d %d %u", name, stream, channel, value);
        return 0;
    }
};

class FakeAudio final : public QMAudio {
  public:
    int SetAudioChannelEnable(int channel, uint8_t enable) override {
        note("SetAudioChannelEnable %d %d", channel, enable);
        return 0;
    }
};

class FakeCodec final : public QMAVCodec {
  public:
    FakeCodec() { ++fake().objects_alive; }
    ~FakeCodec() { --fake().objects_alive; }
    FakeCodec(const FakeCodec&) = delete;
    FakeCodec& operator=(const FakeCodec&) = delete;

    int SetBoardType(uint32_t board_type, uint32_t sub_board_type) override {
        note("SetBoardType %u %u", board_type, sub_board_type);
        return 0;
    }
    QMCodecSystem* GetSystem() override {
        note("GetSystem");
        return &m_system;
    }
    QMVideoEncoder* GetVideoEncoder() override {
        note("GetVideoEncoder");
        return fake().encoder_is_null ? nullptr : &m_encoder;
    }
    QMAudio* GetAudio() override {
        note("GetAudio");
        return &m_audio;
    }

  private:
    FakeSystem m_system;
    FakeEncoder m_encoder;
    FakeAudio m_audio;
};

FakeCodec* live_codec;

}  // namespace

int CreateQMAVCodec(QMAVCodec** out) {
    note("CreateQMAVCodec");
    if (fake().create_result != 0) return fake().create_result;
    *out = live_codec = new FakeCodec;
    return 0;
}

void DestroyQMAVCodec(QMAVCodec* codec) {
    note("DestroyQMAVCodec");
    ASSERT_EQ(codec, live_codec) << "not the codec that was created last, or destroyed twice";
    delete std::exchange(live_codec, nullptr);
}

// Databases.

namespace {

class FakeDb final : public iqm_db {
  public:
    FakeDb() { ++fake().objects_alive; }
    ~FakeDb() { --fake().objects_alive; }
    FakeDb(const FakeDb&) = delete;
    FakeDb& operator=(const FakeDb&) = delete;

    int Open(QMDBOpenParam* param) override {
        note("Open %s %u %u %u", param->path.c_str(), param->mode, param->capacity_a,
             param->capacity_b);
        return fake().open_results.empty() ? 1 : take_first(fake().open_results);
    }
    int Close() override {
        note("Close");
        return 0;
    }
    int PostOpen(int argument) override {
        note("PostOpen %d", argument);
        return 0;
    }
};

}  // namespace

void qm_db_create(DB_TYPE type, iqm_db** out) {
    note("qm_db_create %u", static_cast<unsigned>(type));
    *out = new FakeDb;
}

void qm_db_destroy(iqm_db** db) {
    note("qm_db_destroy");
    ASSERT_NE(*db, nullptr) << "nothing to destroy";
    delete static_cast<FakeDb*>(*db);
    *db = nullptr;
}

// Threads. None is started: a test that wants a body to run calls Work itself.

struct qm_thread_state {
    const char* kind = "thread";
    bool created = false;
};

qm_thread::qm_thread() : m_stop_request(0), m_state(new qm_thread_state) { ++fake().objects_alive; }

qm_thread::~qm_thread() {
    EXPECT_FALSE(m_state->created) << "a " << m_state->kind << " object is deleted while it runs";
    --fake().objects_alive;
    delete m_state;
}

void qm_thread::CreateThread(unsigned char* argument, int number) {
    const char* shown = "other";
    if (!argument)
        shown = "null";
    else if (reinterpret_cast<QMAVCodec*>(argument) == live_codec)
        shown = "codec";
    note("CreateThread %s %s %d", m_state->kind, shown, number);
    m_stop_request = 0;
    m_state->created = true;
}

void qm_thread::DestroyThread() {
    note("DestroyThread %s", m_state->kind);
    m_stop_request = 1;
    m_state->created = false;
}

qm_thread_encode::qm_thread_encode() : db(nullptr), stat(), audio_frames(), m_worker(nullptr) {
    m_state->kind = "encode";
    note("new encode");
}
qm_thread_encode::~qm_thread_encode() { note("delete encode"); }
void* qm_thread_encode::Work(void*) { return nullptr; }

qm_thread_encode_net::qm_thread_encode_net()
    : db(nullptr), stat(), m_streams(0), m_worker(nullptr) {
    m_state->kind = "encode_net";
    note("new encode_net");
}
qm_thread_encode_net::~qm_thread_encode_net() { note("delete encode_net"); }
void* qm_thread_encode_net::Work(void*) { return nullptr; }
void qm_thread_encode_net::SetStreamEnable(QMCODEC_STREAM stream) {
    note("SetStreamEnable %d", static_cast<int>(stream));
}

qm_thread_encode_jpeg::qm_thread_encode_jpeg() : db(nullptr), stat(), m_worker(nullptr) {
    m_state->kind = "encode_jpeg";
    note("new encode_jpeg");
}
qm_thread_encode_jpeg::~qm_thread_encode_jpeg() { note("delete encode_jpeg"); }
void* qm_thread_encode_jpeg::Work(void*) { return nullptr; }

qm_thread_decode::qm_thread_decode() : db(nullptr), idr_distance(), m_engine(nullptr) {
    m_state->kind = "decode";
    note("new decode");
}
qm_thread_decode::~qm_thread_decode() { note("delete decode"); }
void* qm_thread_decode::Work(void*) { return nullptr; }
void qm_thread_decode::SetPBState(PB_STATE state) {
    note("SetPBState %d", static_cast<int>(state));
}
void qm_thread_decode::SpeedControl(int direction, int step) {
    note("SpeedControl %d %d", direction, step);
}
void qm_thread_decode::SetPBChannelEnableMask(unsigned long channels, unsigned long chips) {
    note("SetPBChannelEnableMask %lx %lx", channels, chips);
}
void qm_thread_decode::EnablePBAudio(int enable) { note("EnablePBAudio %d", enable); }
void qm_thread_decode::SetPBAudioChannel(int channel) { note("SetPBAudioChannel %d", channel); }
int qm_thread_decode::GetCalculData(E_CALCUL figure, int channel) {
    note("GetCalculData %d %d", static_cast<int>(figure), channel);
    const auto& calcul = fake().calcul;
    const auto answer = calcul.find(std::to_string(figure) + "/" + std::to_string(channel));
    return answer == calcul.end() ? 0 : answer->second;
}

// Frame lists.

struct qm_dbframe {
    qm_dbframe* next = nullptr;
};

template <class T>
int qm_list<T>::count() {
    return m_count;
}

template <class T>
void qm_list<T>::push(T* record) {
    (m_last ? m_last->next : m_first) = record;
    m_last = record;
    ++m_count;
}

template <class T>
T* qm_list<T>::pop() {
    T* const record = m_first;
    if (!record) return nullptr;
    m_first = record->next;
    if (!m_first) m_last = nullptr;
    --m_count;
    record->next = nullptr;
    return record;
}

// Every frame of the fake is a key frame.
template <class T>
T* qm_list<T>::take_group(bool*) {
    return pop();
}

template class qm_list<qm_dbframe>;

void queue_frames(qm_list<qm_dbframe>& list, int count) {
    static std::deque<qm_dbframe> frames;  // owns them, to the end of the process
    for (int i = 0; i < count; ++i) list.push(&frames.emplace_back());
}

// Mutex. A recursive one: what would stand still on a board fails the test and goes on.

namespace {

thread_local std::vector<const qm_mutex*> held_mutexes;

}  // namespace

qm_mutex::qm_mutex() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_handle, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

qm_mutex::~qm_mutex() { pthread_mutex_destroy(&m_handle); }

qm_lock::qm_lock(qm_mutex& mutex) : m_mutex(mutex) {
    EXPECT_EQ(std::ranges::count(held_mutexes, &mutex), 0)
        << "the mutex is locked twice by one thread";
    pthread_mutex_lock(&m_mutex.m_handle);
    held_mutexes.push_back(&mutex);
    if (fake().journal_locks) note("lock");
}

// Locks are scopes, so the last one taken is the first to go.
qm_lock::~qm_lock() {
    held_mutexes.pop_back();
    pthread_mutex_unlock(&m_mutex.m_handle);
    if (fake().journal_locks) note("unlock");
}

// Time.

qm_time::qm_time() : m_milliseconds(0) {}
qm_time::qm_time(const qm_time& other) : m_milliseconds(other.m_milliseconds.load()) {}
qm_time::qm_time(int64_t milliseconds) : m_milliseconds(milliseconds) {}
qm_time::~qm_time() = default;

qm_time qm_time::operator=(qm_time other) {
    m_milliseconds = other.m_milliseconds.load();
    return *this;
}

qm_time qm_time::CurrentTime() {
    if (fake().on_current_time) fake().on_current_time();
    auto& times = fake().times_ms;
    if (times.empty()) return qm_time();
    return qm_time(times.size() == 1 ? times.front() : take_first(times));
}

int64_t qm_time::Diff(qm_time& earlier) const {
    return m_milliseconds.load() - earlier.m_milliseconds.load();
}

int64_t qm_time::Seconds() const { return m_milliseconds.load() / 1000; }

// Profiles.

namespace {

// The value of a key, null when it is missing.
const std::string* profile_value(const char* section, const char* key) {
    const auto& profile = fake().profile;
    const auto found = profile.find(std::string(section) + "/" + key);
    return found == profile.end() ? nullptr : &found->second;
}

}  // namespace

int qm_existfile(std::string path) {
    if (fake().journal_profile) note("existfile %s", path.c_str());
    return fake().file_exists;
}

int getPrivateProfileInt(const char* section, const char* key, int fallback, const char*) {
    if (fake().journal_profile) note("int %s %s %d", section, key, fallback);
    const std::string* value = profile_value(section, key);
    if (!value || value->empty()) return fallback;
    return value->starts_with("0x") ? static_cast<int>(qm_atoh(value->c_str()))
                                    : qm_atoi(value->c_str());
}

int getPrivateProfileString(const char* section, const char* key, const char* fallback,
                            char* buffer, int size, const char*) {
    if (fake().journal_profile) note("string %s %s", section, key);
    const std::string* value = profile_value(section, key);
    snprintf(buffer, static_cast<size_t>(size), "%s", value ? value->c_str() : fallback);
    return value != nullptr;
}
