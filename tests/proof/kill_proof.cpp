// Proves that kill -9 loses nothing that was acknowledged: a process that records is killed at any
// moment, again and again over one database, which is read after each kill and sometimes meanwhile.
// Loss of power is another proof's.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <utility>

#include "sdk/db/segment_scan.h"
#include "tests/proof/kill_recorder.h"
#include "tests/proof/proof.h"
#include "tests/proof/proof_frames.h"
#include "tests/proof/read_back.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait.h"

namespace {

using sim::DiskReader;

// One database and all that happens to it. The parent's side.
class Kills {
  public:
    Kills(Proof& proof, const std::string& folder)
        : m_proof(proof),
          m_random(proof.seed()),
          m_plan(proof.seed(), FramePlan::LEAST_BYTES, 6000),
          m_folder(folder),
          m_path(folder + "/" + INI_NAME) {
        void* memory = mmap(nullptr, sizeof(Whereabouts), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) abort();
        m_whereabouts = new (memory) Whereabouts;
    }
    ~Kills() { munmap(m_whereabouts, sizeof(Whereabouts)); }
    Kills(const Kills&) = delete;
    Kills& operator=(const Kills&) = delete;

    void kill_once(uint32_t recorder);
    void report(uint64_t kills);

  private:
    void wait_and_read(int64_t until_us);
    void hear(int64_t until_us);
    void read_live(DiskReader& reader);
    void check_given_up(uint64_t n);
    void count_kill();
    void look_at_database();
    void check_segments(const ReadBack& back);
    void scan_segment(int file, const sim::SegmentHeader& header);

    Proof& m_proof;
    ProofRandom m_random;
    const FramePlan m_plan;
    const std::string m_folder;
    const std::string m_path;
    Whereabouts* m_whereabouts;
    int m_pipe = -1;

    bool m_exists = false;                            // a recorder has opened it once
    uint64_t m_acknowledged = 0;                      // frames before it
    uint64_t m_segments = 0;                          // files, at most so far
    std::set<std::pair<uint64_t, uint64_t>> m_holes;  // seen: segment and offset
    ReadBack m_before;                                // what was read after the last kill
    int64_t m_usual_us[PHASES] = {};

    uint64_t m_in_phase[PHASES] = {}, m_in_operation[OPERATIONS] = {};
    uint64_t m_frames = 0, m_live_frames = 0, m_live_readers = 0, m_late_ends = 0, m_given_up = 0,
             m_holes_told = 0, m_dropped = 0, m_searches = 0;
};

void Kills::kill_once(uint32_t recorder) {
    m_proof.at(m_proof.seed(), recorder);
    Session session;
    session.recorder = recorder;
    session.seed = m_random.next();
    session.frames_commit = m_random.between(1, 40);
    session.frames = m_random.one_in(3) ? m_random.below(60) : 1'000'000;
    new (m_whereabouts) Whereabouts;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) abort();
    fflush(stdout);
    const int64_t start = steady_us();
    const pid_t child = fork();
    if (child < 0) abort();
    if (child == 0) {
        close(ends[0]);
        record_until_killed(m_path, m_plan, session, *m_whereabouts, ends[1]);
    }
    close(ends[1]);
    m_pipe = ends[0];
    fcntl(m_pipe, F_SETFL, O_NONBLOCK);

    // Most at any moment of the recording, the others in an open or in a finish.
    const uint64_t where = session.frames < 1000 ? 2 : m_random.below(4) == 0 ? 1 : 0;
    int64_t until = start + static_cast<int64_t>(m_random.below(m_random.one_in(4) ? 40000 : 8000));
    if (where != 0) {
        const Phase phase = where == 1 ? opening : finishing;
        const int64_t give_up = start + 10'000'000;
        while (m_whereabouts->phase < phase && steady_us() < give_up) hear(steady_us());
        const int64_t usual = std::max<int64_t>(m_usual_us[phase], 500);
        until = m_whereabouts->began_us +
                static_cast<int64_t>(m_random.below(static_cast<uint64_t>(usual) * 5 / 4));
    }
    wait_and_read(until);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    m_proof.check(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL,
                  "the recorder ended by itself, status %d", status);
    hear(0);
    close(m_pipe);
    count_kill();
    look_at_database();
}

// Until it is time to kill, and now and then with a reader.
void Kills::wait_and_read(int64_t until_us) {
    if (!m_exists || !m_random.one_in(5)) return hear(until_us);
    std::string why;
    const auto reader = DiskReader::open(sim::real_file_system(), m_path, why);
    if (!m_proof.check(reader != nullptr, "a reader cannot open it meanwhile: %s", why.c_str()))
        return hear(until_us);
    ++m_live_readers;
    do {
        hear(0);
        read_live(*reader);
    } while (steady_us() < until_us);
}

// Takes in what the recorder tells until then; with 0 what it has told already.
void Kills::hear(int64_t until_us) {
    for (;;) {
        Message message;
        const ssize_t got = read(m_pipe, &message, sizeof message);
        if (got == 0) return;
        if (got == sizeof message) {
            if (message.what == Message::wrong) {
                m_proof.check(false, "the recorder could not go on (%llu)",
                              static_cast<unsigned long long>(message.sequence));
                continue;
            }
            m_exists = true;
            m_proof.check(message.sequence >= m_acknowledged,
                          "the recorder goes on at %llu, %llu frames were acknowledged",
                          static_cast<unsigned long long>(message.sequence),
                          static_cast<unsigned long long>(m_acknowledged));
            m_acknowledged = std::max(m_acknowledged, message.sequence);
            continue;
        }
        const int64_t left = until_us - steady_us();
        if (left <= 0) return;
        pollfd wait{m_pipe, POLLIN, 0};
        const timespec longest{left / 1'000'000, left % 1'000'000 * 1000};
        ppoll(&wait, 1, &longest, nullptr);
    }
}

// A few frames near the end, a few anywhere.
void Kills::read_live(DiskReader& reader) {
    uint64_t end = reader.end();
    // A segment whose number is not the next is looked for now and then only, and the more rarely
    // the slower the disk is.
    m_late_ends += end < m_acknowledged;
    comes_true([&] { return (end = reader.end()) >= m_acknowledged; });
    const uint64_t first = reader.first();
    m_proof.check(end >= m_acknowledged, "%llu frames are acknowledged, a reader sees %llu",
                  static_cast<unsigned long long>(m_acknowledged),
                  static_cast<unsigned long long>(end));
    if (first >= end) return;
    uint64_t n = m_random.one_in(2) ? m_random.between(first, end - 1)
                                    : end - std::min<uint64_t>(end - first, 10);
    qm_dbframe frame;
    uint32_t recorder = 0, last_recorder = 0;
    for (int i = 0; i < 10 && n < end; ++i, ++n) {
        const auto number = static_cast<unsigned long long>(n);
        if (!reader.read(n, frame)) {
            if (n >= reader.first()) check_given_up(n);
            continue;
        }
        const std::string wrong = m_plan.wrong(frame, n, recorder);
        m_proof.check(wrong.empty(), "frame %llu meanwhile: %s", number, wrong.c_str());
        m_proof.check(recorder >= last_recorder, "frame %llu meanwhile: order", number);
        last_recorder = recorder;
        ++m_live_frames;
    }
}

// A segment loses its name before it is written over. For a moment its old header can still be
// there when its records are not: another reader, who looks at the names, tells what became of
// them.
void Kills::check_given_up(uint64_t n) {
    std::string why;
    const auto other = DiskReader::open(sim::real_file_system(), m_path, why);
    const uint64_t first = other ? other->first() : 0;
    qm_dbframe frame;
    const bool there = other && other->read(n, frame);
    m_proof.check(other && first > n,
                  "frame %llu cannot be read meanwhile; another reader sees %llu..%llu and %s it",
                  static_cast<unsigned long long>(n), static_cast<unsigned long long>(first),
                  static_cast<unsigned long long>(other ? other->end() : 0),
                  there ? "reads" : "does not read");
    ++m_given_up;
}

void Kills::count_kill() {
    const uint32_t phase = m_whereabouts->phase;
    ++m_in_phase[phase];
    ++m_in_operation[m_whereabouts->operation];
    for (const Phase ended_phase : {opening, finishing})
        if (const int64_t took = m_whereabouts->took_us[ended_phase])
            m_usual_us[ended_phase] = took;
}

void Kills::look_at_database() {
    if (!m_exists) {  // no recorder came that far
        std::string why;
        DiskReader::open(sim::real_file_system(), m_path, why);
        return;
    }
    ReadBack back = read_back(m_proof, m_path, m_plan, m_acknowledged, m_random.next());
    if (!back.opened) return;
    m_frames += back.recorders.size();
    m_searches += back.key_searches;
    m_proof.check(
        back.end >= m_before.end && back.first >= m_before.first,
        "it was %llu..%llu and is %llu..%llu", static_cast<unsigned long long>(m_before.first),
        static_cast<unsigned long long>(m_before.end), static_cast<unsigned long long>(back.first),
        static_cast<unsigned long long>(back.end));
    for (uint64_t n = back.first; n < m_before.end; ++n) {
        const uint64_t i = n - back.first, was = n - m_before.first;
        if (i >= back.recorders.size() || was >= m_before.recorders.size()) break;
        if (!m_proof.check(back.recorders[i] == m_before.recorders[was],
                           "frame %llu was of recorder %u and is of %u",
                           static_cast<unsigned long long>(n), m_before.recorders[was],
                           back.recorders[i]))
            break;
    }
    check_segments(back);
    m_dropped = back.first;
    m_before = std::move(back);
}

// The ring gives up one segment at a time, and no frame that is not in it. What kills interrupted
// is told as such by what was recorded later: nothing looks damaged.
void Kills::check_segments(const ReadBack& back) {
    sim::FileSystem& files = sim::real_file_system();
    const int folder = files.open_folder(m_folder, false);
    std::vector<std::string> names;
    files.list(folder, INI_NAME, names);
    std::set<uint64_t> numbers;
    for (const std::string& name : names)
        if (const uint64_t number = sim::segment_number(INI_NAME, name)) numbers.insert(number);
    const uint64_t count = numbers.size();
    m_proof.check(count <= RING_SEGMENTS, "%llu segments", static_cast<unsigned long long>(count));
    m_proof.check(count + 1 >= m_segments, "%llu segments of %llu are left",
                  static_cast<unsigned long long>(count),
                  static_cast<unsigned long long>(m_segments));
    m_segments = std::max(m_segments, count);
    uint64_t valid = 0;
    for (const uint64_t number : numbers) {
        const int file =
            files.open(folder, sim::segment_name(INI_NAME, number), sim::FileSystem::Access::read);
        sim::SegmentHeader header;
        // A file that was taken for a new segment before a kill holds none: it is passed over.
        if (file >= 0 && sim::load_segment_header(files, file, number, header)) {
            scan_segment(file, header);
            if (++valid == 2)
                m_proof.check(back.first <= header.first_sequence,
                              "segment %llu begins with %llu, the first frame is %llu",
                              static_cast<unsigned long long>(number),
                              static_cast<unsigned long long>(header.first_sequence),
                              static_cast<unsigned long long>(back.first));
        }
        if (file >= 0) files.close(file);
    }
    files.close(folder);
}

void Kills::scan_segment(int file, const sim::SegmentHeader& header) {
    const auto on_hole = [&](uint64_t offset, uint64_t end, bool damage) {
        m_proof.check(!damage, "segment %llu: damage from %llu to %llu",
                      static_cast<unsigned long long>(header.number),
                      static_cast<unsigned long long>(offset),
                      static_cast<unsigned long long>(end));
        if (m_holes.insert({header.identity, offset}).second) ++m_holes_told;
    };
    sim::SegmentScan scan(sim::real_file_system(), file, header, {}, on_hole);
    scan.run();
}

void Kills::report(uint64_t kills) {
    const auto n = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    m_proof.covered(
        "%llu kills: %llu before the open, %llu in an open, %llu recording, %llu in a "
        "finish, %llu after it",
        n(kills), n(m_in_phase[starting]), n(m_in_phase[opening]), n(m_in_phase[recording]),
        n(m_in_phase[finishing]), n(m_in_phase[ended]));
    m_proof.covered("of them %llu in a write, %llu in a sync, %llu in a change of names or sizes",
                    n(m_in_operation[writing]), n(m_in_operation[syncing]),
                    n(m_in_operation[naming]));
    m_proof.covered("%llu frames went to the ring while they were read", n(m_given_up));
    m_proof.covered("%llu half-done writes that were told by what was recorded later",
                    n(m_holes_told));
    m_proof.covered("%llu frames acknowledged, %llu of them left to the ring by now",
                    n(m_acknowledged), n(m_dropped));
    m_proof.covered(
        "%llu frames read after kills, %llu key frame searches; %llu readers meanwhile "
        "read %llu frames, %llu times late",
        n(m_frames), n(m_searches), n(m_live_readers), n(m_live_frames), n(m_late_ends));
}

}  // namespace

int main(int argc, char** argv) {
    Proof proof(argc, argv,
                "A recorder is killed (SIGKILL) at any moment, again and again over one database.\n"
                "No acknowledged frame may be missing, no frame wrong, no open fail.",
                {{"kills", "how often (300, large 10000)"},
                 {"stop", "at the first failure, and leave the database", false}});
    const uint64_t kills = proof.count("kills", 300, 10'000);
    const TempDir folder;
    {
        Kills database(proof, folder.path());
        for (uint32_t i = 1; i <= kills; ++i) {
            database.kill_once(i);
            if (!proof.given("stop") || proof.failures() == 0) continue;
            proof.covered("left in %s", folder.path().c_str());
            _exit(proof.finish());
        }
        database.report(kills);
    }
    return proof.finish();
}
