// Printing the selected reports. What they say is built by the work rooms' report builders.
#include "statuswork/status_thread.h"

#include <unistd.h>

#include <cstdio>
#include <string>

#include "env/app_env.h"
#include "mainwork/encode_reports.h"
#include "searchwork/search_reports.h"
#include "shell/qm_time.h"

tagStatusRecord _l_st_stat;

namespace {

constexpr int64_t PERIOD_MS = 1000;
constexpr useconds_t PAUSE_US = 1000;

template <QMCODEC_STREAM STREAM>
void rate_of(std::string* out) {
    app_get_other_stream_status(out, STREAM);
}

template <QMCODEC_STREAM STREAM>
void idr_of(std::string* out) {
    app_get_other_stream_idr_status(out, STREAM);
}

enum Mask { A, B };

struct Report {
    Mask mask;
    int bit;
    void (*build)(std::string* out);
};

// In the order of printing. Kept: the audio byte, bits 16..23 of mask A, selects nothing.
// clang-format off
const Report REPORTS[] = {
    {A, 0, app_mainwork_getstatus_string},
    {A, 1, app_searchwork_getstatus_string},
    {A, 2, app_mainwork_get_idr_status_string},
    {A, 3, app_searchwork_get_idr_status_string},
    {A, 8, rate_of<QMCODEC_STREAM_DUAL>},
    {A, 9, idr_of<QMCODEC_STREAM_DUAL>},
    {A, 24, rate_of<QMCODEC_STREAM_JPEG>},
    {B, 0, rate_of<QMCODEC_STREAM_PREVIEW>},
    {B, 8, rate_of<QMCODEC_STREAM_3RD>},
    {B, 9, idr_of<QMCODEC_STREAM_3RD>},
    {B, 16, rate_of<QMCODEC_STREAM_4TH>},
    {B, 17, idr_of<QMCODEC_STREAM_4TH>},
};
// clang-format on

// A report is on the wire as soon as it is printed.
void say(const char* line) {
    puts(line);
    fflush(stdout);
}

// The masks are read once: a change takes effect from the next cycle.
void print_selected_reports(std::string& report) {
    const uint32_t masks[] = {_l_st_stat.mask_a.load(std::memory_order_relaxed),
                              _l_st_stat.mask_b.load(std::memory_order_relaxed)};
    for (const Report& row : REPORTS) {
        if (!(masks[row.mask] >> row.bit & 1)) continue;
        row.build(&report);
        printf("%s", report.c_str());
        fflush(stdout);
    }
}

}  // namespace

qm_thread_status::qm_thread_status() = default;

qm_thread_status::~qm_thread_status() = default;

// The deadlines are anchored to the start: a cycle that runs long is followed at once by the next
// until the thread has caught up.
void* qm_thread_status::Work(void*) {
    GetAppEnv();
    say(" !!  Status thread is running  !!");
    qm_time start = qm_time::CurrentTime();
    int64_t deadline_ms = PERIOD_MS;
    std::string report;
    while (m_stop_request.load(std::memory_order_relaxed) == 0) {
        if (qm_time::CurrentTime().Diff(start) >= deadline_ms) {
            deadline_ms += PERIOD_MS;
            print_selected_reports(report);
        }
        usleep(PAUSE_US);
    }
    say(" !! Status thread is stopped !!");
    return nullptr;
}

int app_stat_run(int, char**) {
    if (_l_st_stat.thread) return 0;
    _l_st_stat.thread = new qm_thread_status;
    _l_st_stat.thread->CreateThread(nullptr, 0);
    return 0;
}

int app_status_stop() {
    if (!_l_st_stat.thread) return 0;
    _l_st_stat.thread->DestroyThread();
    delete _l_st_stat.thread;
    _l_st_stat.thread = nullptr;
    return 0;
}

int app_stat_stop(int, char**) { return app_status_stop(); }
