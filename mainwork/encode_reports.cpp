// Building the encode-side reports. Who prints them, and when, stands in status_thread.cpp.
#include "mainwork/encode_reports.h"

#include <cstdio>

#include "env/app_env.h"
#include "mainwork/mainwork.h"
#include "mainwork/qm_workers.h"
#include "mainwork/report_lines.h"

namespace {

// The environment when a report can be built into `out`, which is then empty.
CAppEnv* begin_report(std::string* out) {
    CAppEnv* env = GetAppEnv();
    if (!env) {
        puts("Get App Env Fail.");
        return nullptr;
    }
    if (!out) return nullptr;
    out->clear();
    return env;
}

int32_t read(const std::atomic<int32_t>& word) { return word.load(std::memory_order_relaxed); }

// Reads a period counter and starts it again at 0, in one step: no frame falls in between.
int32_t take(std::atomic<int32_t>& word) { return word.exchange(0, std::memory_order_relaxed); }

void append_rate_table(std::string& report, qm_encode_stat& stat) {
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        const int32_t frames = take(stat.period_frames[ch]);
        const int32_t bytes = take(stat.period_bytes[ch]);
        append_rate_row(report, "%2d   %7d   %8d   %8.1f   %7d\n", ch, read(stat.total_frames[ch]),
                        frames, bytes);
    }
}

void append_rate_heading(std::string& report) {
    report += WIDE_RULE;
    report += COLUMN_TITLES;
    report += WIDE_DASH_RULE;
}

void append_cell_heading(std::string& report) {
    report += NARROW_RULE;
    report += CHANNEL_HEADING;
    report += NARROW_DASH_RULE;
}

void append_buffer_count(std::string& report, int count) {
    report += WIDE_DASH_RULE;
    append_line(report, "* Buffer Count : %d\n", count);
}

void append_cells(std::string& report, const std::atomic<int32_t> (&words)[QMCODEC_CHANNELS]) {
    for (const auto& word : words) append_cell(report, read(word));
}

void append_idr_settings(std::string& report, tagVEncChannelUnit (&units)[QMCODEC_CHANNELS]) {
    for (auto& unit : units) append_cell(report, static_cast<int32_t>(load_idr(unit)));
    report += "\n";
}

void append_error_title(std::string& report, int stream) {
    append_line(report, "\n*** Error stream type : %d\n", stream);
}

bool has_row(int stream) { return stream >= 0 && stream < QMCODEC_STREAMS; }

}  // namespace

void app_mainwork_getstatus_string(std::string* out) {
    qm_lock lock(_l_mtx_mainwork);
    CAppEnv* env = begin_report(out);
    if (!env || !env->main_encode_thread) return;
    *out += "\nMain Stream Encode Status\n";
    append_rate_heading(*out);
    append_rate_table(*out, env->main_encode_thread->stat[0]);
    append_buffer_count(*out, env->main_encode_thread->frame_list.count());
    *out += WIDE_RULE;
}

void app_get_audio_frame_count_status(std::string* out) {
    qm_lock lock(_l_mtx_mainwork);
    CAppEnv* env = begin_report(out);
    if (!env || !env->main_encode_thread) return;
    *out += "\nAudio Frame Count Status\n";
    append_cell_heading(*out);
    append_cells(*out, env->main_encode_thread->audio_frames);
    *out += CLOSING_RULE;
}

void app_mainwork_get_idr_status_string(std::string* out) {
    qm_lock lock(_l_mtx_mainwork);
    CAppEnv* env = begin_report(out);
    if (!env || !env->main_encode_thread) return;
    *out += "\nMain Stream Encode IDR Status\n";
    append_cell_heading(*out);
    append_idr_settings(*out, env->venc[QMCODEC_STREAM_MAIN]);
    append_cells(*out, env->main_encode_thread->stat[0].idr_distance);
    *out += CLOSING_RULE;
}

void app_get_other_stream_status(std::string* out, QMCODEC_STREAM stream) {
    qm_lock lock(_l_mtx_mainwork);
    CAppEnv* env = begin_report(out);
    if (!env || !env->net_encode_thread || !env->jpeg_encode_thread) return;
    switch (stream) {
        case QMCODEC_STREAM_DUAL: *out += "\nDual Stream Encode Status\n"; break;
        case QMCODEC_STREAM_JPEG: *out += "\nJPEG Stream Encode Status\n"; break;
        case QMCODEC_STREAM_PREVIEW: *out += "\nPreview Stream Status\n"; break;
        case QMCODEC_STREAM_3RD: *out += "\n3rd Stream Encode Status\n"; break;
        case QMCODEC_STREAM_4TH: *out += "\n4th Stream Encode Status\n"; break;
        default: append_error_title(*out, stream); break;
    }
    append_rate_heading(*out);
    if (stream == QMCODEC_STREAM_JPEG) {
        append_rate_table(*out, env->jpeg_encode_thread->stat[0]);
        append_buffer_count(*out, env->jpeg_encode_thread->frame_list.count());
    } else if (has_row(stream)) {
        append_rate_table(*out, env->net_encode_thread->stat[stream]);
        if (stream == QMCODEC_STREAM_DUAL)
            append_buffer_count(*out, env->net_encode_thread->frame_list.count());
    } else {
        qm_encode_stat nothing = {};
        append_rate_table(*out, nothing);
    }
    *out += WIDE_RULE;
}

void app_get_other_stream_idr_status(std::string* out, QMCODEC_STREAM stream) {
    qm_lock lock(_l_mtx_mainwork);
    CAppEnv* env = begin_report(out);
    if (!env || !env->net_encode_thread) return;
    // Kept: only the dual stream has a title of its own; every other stream's table follows an
    // error line.
    if (stream == QMCODEC_STREAM_DUAL)
        *out += "\nDual Stream Encode IDR Status\n";
    else
        append_error_title(*out, stream);
    append_cell_heading(*out);
    if (has_row(stream)) {
        append_idr_settings(*out, env->venc[stream]);
        append_cells(*out, env->net_encode_thread->stat[stream].idr_distance);
    } else {
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) append_cell(*out, 0);
        *out += "\n";
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) append_cell(*out, 0);
    }
    *out += CLOSING_RULE;
}
