// Building the search reports, in the shapes of the encode reports.
#include "searchwork/search_reports.h"

#include "env/app_env.h"
#include "mainwork/report_lines.h"
#include "searchwork/search_db.h"

void app_searchwork_getstatus_string(std::string* out) {
    if (!out) return;
    out->clear();
    PlaybackReader reader;
    qm_thread_decode* thread = reader.thread();
    if (!thread) return;

    const qm_time time = thread->current_time;
    *out += "\nSearch Status\n";
    *out += WIDE_RULE;
    *out += COLUMN_TITLES;
    *out += WIDE_DASH_RULE;
    int32_t decoded = 0;
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        const int32_t frames = thread->GetCalculData(CALCUL_PERIOD_FRAMES, ch);
        const int32_t bytes = thread->GetCalculData(CALCUL_PERIOD_BYTES, ch);
        const int32_t total = thread->GetCalculData(CALCUL_TOTAL_FRAMES, ch);
        append_rate_row(*out, "%2d   %5d   %9d   %8.1f   %7d\n", ch, total, frames, bytes);
        decoded += frames;
    }
    *out += WIDE_DASH_RULE;
    append_line(*out, "TIME:%d, DEC Frame:%d, BUF Count:%d\n", static_cast<int>(time.Seconds()),
                decoded, thread->frame_list.count());
    *out += WIDE_RULE;
}

void app_searchwork_get_idr_status_string(std::string* out) {
    if (!out) return;
    out->clear();
    PlaybackReader reader;
    qm_thread_decode* thread = reader.thread();
    if (!thread) return;

    *out += "\nSearch IDR Status\n";
    *out += NARROW_RULE;
    *out += CHANNEL_HEADING;
    *out += NARROW_DASH_RULE;
    // Kept: always the main stream's settings, also while the dual stream is played.
    for (auto& unit : GetAppEnv()->venc[QMCODEC_STREAM_MAIN])
        append_cell(*out, static_cast<int32_t>(load_idr(unit)));
    *out += "\n";
    for (const auto& figure : thread->idr_distance)
        append_cell(*out, figure.load(std::memory_order_relaxed));
    *out += CLOSING_RULE;
}
