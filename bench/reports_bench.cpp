// The report builders, each beside the same table written by bare snprintf straight into one
// buffer. The two texts are compared before anything is measured.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "env/app_env.h"
#include "mainwork/encode_reports.h"
#include "mainwork/qm_workers.h"
#include "mainwork/report_lines.h"
#include "searchwork/search_db.h"
#include "searchwork/search_reports.h"

namespace {

int32_t value(const std::atomic<int32_t>& word) { return word.load(std::memory_order_relaxed); }

// A second of full load. The builders take the period figures, so each round begins with these.
void fill(qm_encode_stat& stat) {
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        stat.total_frames[ch].store(108'000 + ch, std::memory_order_relaxed);
        stat.idr_distance[ch].store(30, std::memory_order_relaxed);
        stat.period_frames[ch].store(30, std::memory_order_relaxed);
        stat.period_bytes[ch].store(256'000 + 100 * ch, std::memory_order_relaxed);
    }
}

CAppEnv& env() { return *GetAppEnv(); }
qm_encode_stat& main_stat() { return env().main_encode_thread->stat[0]; }
qm_encode_stat& dual_stat() { return env().net_encode_thread->stat[QMCODEC_STREAM_DUAL]; }
qm_encode_stat& jpeg_stat() { return env().jpeg_encode_thread->stat[0]; }

// Encoders that were never started, with figures as if they were.
void set_up() {
    env().main_encode_thread = new qm_thread_encode;
    env().net_encode_thread = new qm_thread_encode_net;
    env().jpeg_encode_thread = new qm_thread_encode_jpeg;
    _l_stDec.thread = new qm_thread_decode;
    for (auto& stream : env().venc)
        for (auto& unit : stream) store_idr(unit, 30);
    int32_t frames = 90'000;
    for (auto& word : env().main_encode_thread->audio_frames) word.store(frames++);
}

void refill() {
    fill(main_stat());
    fill(dual_stat());
    fill(jpeg_stat());
}

// The bare side: no lock, no string, no line of its own.
class Buffer {
  public:
    void clear() { m_used = 0; }
    template <class... Args>
    void print(const char* format, Args... args) {
        m_used +=
            static_cast<size_t>(snprintf(m_text + m_used, sizeof m_text - m_used, format, args...));
    }
    const char* text() const { return m_text; }

  private:
    char m_text[4096];
    size_t m_used = 0;
};

void bare_rate_table(Buffer& out, const char* title, const qm_encode_stat& stat) {
    out.print("%s%s%s%s", title, WIDE_RULE, COLUMN_TITLES, WIDE_DASH_RULE);
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        const int32_t frames = value(stat.period_frames[ch]);
        const int32_t bytes = value(stat.period_bytes[ch]);
        const double kbyte = static_cast<float>(bytes) * 0.0009765625f;
        out.print("%2d   %7d   %8d   %8.1f   %7d\n", ch, value(stat.total_frames[ch]), frames,
                  kbyte, frames > 0 ? bytes / 128 : 0);
    }
    out.print("%s* Buffer Count : %d\n%s", WIDE_DASH_RULE, 0, WIDE_RULE);
}

void bare_cells_heading(Buffer& out, const char* title) {
    out.print("%s%s%s%s", title, NARROW_RULE, CHANNEL_HEADING, NARROW_DASH_RULE);
}

void bare_idr_table(Buffer& out, const char* title, tagVEncChannelUnit* units,
                    const std::atomic<int32_t>* distances) {
    bare_cells_heading(out, title);
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
        out.print("%02d ", static_cast<int>(load_idr(units[ch])));
    out.print("\n");
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) out.print("%02d ", value(distances[ch]));
    out.print("%s", CLOSING_RULE);
}

void bare_main_rate(Buffer& out) {
    bare_rate_table(out, "\nMain Stream Encode Status\n", main_stat());
}
void bare_dual_rate(Buffer& out) {
    bare_rate_table(out, "\nDual Stream Encode Status\n", dual_stat());
}
void bare_jpeg_rate(Buffer& out) {
    bare_rate_table(out, "\nJPEG Stream Encode Status\n", jpeg_stat());
}
void bare_main_idr(Buffer& out) {
    bare_idr_table(out, "\nMain Stream Encode IDR Status\n", env().venc[QMCODEC_STREAM_MAIN],
                   main_stat().idr_distance);
}
void bare_dual_idr(Buffer& out) {
    bare_idr_table(out, "\nDual Stream Encode IDR Status\n", env().venc[QMCODEC_STREAM_DUAL],
                   dual_stat().idr_distance);
}
void bare_search_idr(Buffer& out) {
    bare_idr_table(out, "\nSearch IDR Status\n", env().venc[QMCODEC_STREAM_MAIN],
                   _l_stDec.thread.load()->idr_distance);
}

void bare_audio(Buffer& out) {
    bare_cells_heading(out, "\nAudio Frame Count Status\n");
    for (const auto& word : env().main_encode_thread->audio_frames) out.print("%02d ", value(word));
    out.print("%s", CLOSING_RULE);
}

// The playback figures belong to the library and stay 0 here: the cheapest rows there are.
void bare_search_rate(Buffer& out) {
    out.print("%s%s%s%s", "\nSearch Status\n", WIDE_RULE, COLUMN_TITLES, WIDE_DASH_RULE);
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
        out.print("%2d   %5d   %9d   %8.1f   %7d\n", ch, 0, 0, 0.0, 0);
    out.print("%sTIME:%d, DEC Frame:%d, BUF Count:%d\n%s", WIDE_DASH_RULE, 0, 0, 0, WIDE_RULE);
}

template <QMCODEC_STREAM STREAM>
void rate_of(std::string* out) {
    app_get_other_stream_status(out, STREAM);
}

void dual_idr(std::string* out) { app_get_other_stream_idr_status(out, QMCODEC_STREAM_DUAL); }

struct Pair {
    const char* name;
    void (*build)(std::string* out);
    void (*bare)(Buffer& out);
};

const Pair PAIRS[] = {
    {"main rate", app_mainwork_getstatus_string, bare_main_rate},
    {"main IDR", app_mainwork_get_idr_status_string, bare_main_idr},
    {"audio", app_get_audio_frame_count_status, bare_audio},
    {"dual rate", rate_of<QMCODEC_STREAM_DUAL>, bare_dual_rate},
    {"JPEG rate", rate_of<QMCODEC_STREAM_JPEG>, bare_jpeg_rate},
    {"dual IDR", dual_idr, bare_dual_idr},
    {"search rate", app_searchwork_getstatus_string, bare_search_rate},
    {"search IDR", app_searchwork_get_idr_status_string, bare_search_idr},
};

std::string built_name(const Pair& pair) { return std::string(pair.name) + "/builder"; }
std::string bare_name(const Pair& pair) { return std::string(pair.name) + "/bare"; }

bool same_text(const Pair& pair) {
    std::string built;
    Buffer bare;
    refill();
    pair.bare(bare);
    pair.build(&built);
    if (built == bare.text() && !built.empty()) return true;
    fprintf(stderr, "%s: the two tables differ:\n%s%s", pair.name, built.c_str(), bare.text());
    return false;
}

void register_pair(const Pair& pair) {
    benchmark::RegisterBenchmark(built_name(pair).c_str(), [&pair](benchmark::State& state) {
        std::string report;
        for (auto _ : state) {
            refill();
            pair.build(&report);
            benchmark::DoNotOptimize(report.data());
        }
    });
    benchmark::RegisterBenchmark(bare_name(pair).c_str(), [&pair](benchmark::State& state) {
        Buffer buffer;
        for (auto _ : state) {
            refill();
            buffer.clear();
            pair.bare(buffer);
            benchmark::DoNotOptimize(buffer.text());
        }
    });
}

// Keeps the medians, for the table of ratios.
class MedianReporter : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (run.aggregate_name == "median")
                m_ns[run.run_name.function_name] = run.GetAdjustedCPUTime();
    }
    void print_ratios() {
        printf("%-14s %10s %10s %8s\n", "report", "builder ns", "bare ns", "ratio");
        for (const Pair& pair : PAIRS) {
            const double built = m_ns[built_name(pair)];
            const double bare = m_ns[bare_name(pair)];
            printf("%-14s %10.0f %10.0f %8.2f\n", pair.name, built, bare, built / bare);
        }
    }

  private:
    std::map<std::string, double> m_ns;
};

}  // namespace

int main(int argc, char** argv) {
    set_up();
    for (const Pair& pair : PAIRS) {
        if (!same_text(pair)) return 1;
        register_pair(pair);
    }
    // Before the caller's own, which so come out on top.
    static char repetitions[] = "--benchmark_repetitions=15";
    static char min_time[] = "--benchmark_min_time=0.05";
    static char interleaved[] = "--benchmark_enable_random_interleaving=true";
    std::vector<char*> words = {argv[0], repetitions, min_time, interleaved};
    words.insert(words.end(), argv + 1, argv + argc);
    int count = static_cast<int>(words.size());
    benchmark::Initialize(&count, words.data());
    if (benchmark::ReportUnrecognizedArguments(count, words.data())) return 1;
    MedianReporter medians;
    benchmark::RunSpecifiedBenchmarks(&medians);
    medians.print_ratios();
    return 0;
}
