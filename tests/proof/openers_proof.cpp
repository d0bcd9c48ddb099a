// Proves that a database has one recorder at most and never a stale lock, whoever else opens it,
// from wherever and by whatever path, and that readers are always let in.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <memory>

#include "sdk/db/disk_writer.h"
#include "tests/proof/openers.h"
#include "tests/proof/proof.h"
#include "tests/proof/proof_frames.h"
#include "tests/proof/read_back.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace openers;
using sim::DiskReader;
using sim::DiskWriter;

constexpr int LONGEST_MS = 120'000;  // what must not wait is told from what waits for ever
// An owner records so many frames more: its ring does not turn, however long the others take.
constexpr int OWNER_FRAMES = 1000;

// The answer of another process; `waited` when it does not come. Only that process is ended.
Answer in_child(const std::function<Answer()>& work) {
    fflush(stdout);
    const pid_t child = fork();
    if (child < 0) abort();
    if (child == 0) _exit(work());
    for (int waits = 0; waits < LONGEST_MS; ++waits) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child)
            return WIFEXITED(status) ? static_cast<Answer>(WEXITSTATUS(status)) : wrong;
        usleep(1000);
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return waited;
}

// Another process that records some frames, says so, and then waits for its end.
class Owner {
  public:
    // `before_waiting` runs in that process, with the writer open.
    Owner(const std::string& path, const FramePlan& plan, uint32_t recorder, uint64_t frames,
          const std::function<void()>& before_waiting = {}) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) abort();
        fflush(stdout);
        m_pid = fork();
        if (m_pid < 0) abort();
        if (m_pid == 0) {
            std::string why;
            const Writer writer = open_writer(path, why);
            const bool ready = writer && record(*writer, plan, recorder, frames);
            if (before_waiting) before_waiting();
            if (write(ends[1], ready ? "y" : "n", 1) != 1) _exit(1);
            for (int more = 0;; ++more) {
                usleep(1000);
                if (ready && frames > 0 && more < OWNER_FRAMES) record(*writer, plan, recorder, 1);
            }
        }
        close(ends[1]);
        char answer = 'n';
        m_ready = read(ends[0], &answer, 1) == 1 && answer == 'y';
        close(ends[0]);
    }
    ~Owner() { end(); }
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;

    bool ready() const { return m_ready; }
    void signal(int number) { kill(m_pid, number); }
    void end() {
        if (m_pid <= 0) return;
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }
    // The process is stopped.
    void stop() {
        signal(SIGSTOP);
        waitpid(m_pid, nullptr, WUNTRACED);
    }

  private:
    pid_t m_pid = -1;
    bool m_ready = false;
};

// Every case has a folder of its own.
class Cases {
  public:
    Cases(Proof& proof, const std::string& folder)
        : m_proof(proof), m_plan(proof.seed(), FramePlan::LEAST_BYTES, 3000), m_folder(folder) {}

    void run_all();

  private:
    void same_process();
    void other_process();
    void owner_killed();
    void owner_stopped();
    void reader_in_same_process();
    void reader_in_other_process();
    void path_with_dot();
    void path_with_dots();
    void path_by_link();
    void child_of_owner();
    void lock_removed();
    void lock_is_no_file();

    void run(const char* name, void (Cases::*work)());
    std::string path() const { return m_case + "/" + NAME; }
    // Here and in another process.
    void expect(const std::string& path, Answer answer, const char* when) {
        check(try_open(path), answer, when, "this process");
        check(in_child([&] { return try_open(path); }), answer, when, "another process");
    }
    void check(Answer got, Answer answer, const char* when, const char* who) {
        m_proof.check(got == answer, "%s, %s: a recorder in %s is answered %d, not %d", m_name,
                      when, who, got, answer);
    }
    Writer open_here() {
        std::string why;
        Writer writer = open_writer(path(), why);
        m_proof.check(writer != nullptr, "%s: %s", m_name, why.c_str());
        return writer;
    }
    // The owner goes on, and everything it recorded is there.
    void end_well(Writer writer, uint32_t recorder) {
        if (!writer) return;
        m_proof.check(record(*writer, m_plan, recorder, 50), "%s: the owner cannot go on", m_name);
        const uint64_t end = writer->next_sequence();
        m_proof.check(writer->finish(steady_us()), "%s: the owner cannot finish", m_name);
        writer.reset();
        const ReadBack back = read_back(m_proof, path(), m_plan, end, 1);
        m_proof.check(back.end == end && back.first == 0, "%s: not all frames are there", m_name);
    }
    Answer read_some();

    Proof& m_proof;
    const FramePlan m_plan;
    const std::string m_folder;
    std::string m_case;
    const char* m_name = "";
    int m_done = 0;
};

void Cases::same_process() {
    Writer writer = open_here();
    if (!writer) return;
    check(try_open(path()), no, "nothing recorded", "this process");
    m_proof.check(record(*writer, m_plan, 1, 50), "cannot record");
    check(try_open(path()), no, "recording", "this process");
    end_well(std::move(writer), 1);
    check(try_open(path()), yes, "after the end", "this process");
}

void Cases::other_process() {
    Writer writer = open_here();
    if (!writer) return;
    check(in_child([&] { return try_open(path()); }), no, "nothing recorded", "another process");
    m_proof.check(record(*writer, m_plan, 1, 50), "cannot record");
    check(in_child([&] { return try_open(path()); }), no, "recording", "another process");
    end_well(std::move(writer), 1);
    check(in_child([&] { return try_open(path()); }), yes, "after the end", "another process");
}

void Cases::owner_killed() {
    for (const uint64_t frames : {uint64_t{0}, uint64_t{50}}) {
        Owner owner(path(), m_plan, 1, frames);
        m_proof.check(owner.ready(), "the owner cannot record");
        expect(path(), no, "before the kill");
        owner.end();
        expect(path(), yes, "after the kill");
    }
    end_well(open_here(), 2);
}

void Cases::owner_stopped() {
    Owner owner(path(), m_plan, 1, 50);
    m_proof.check(owner.ready(), "the owner cannot record");
    owner.stop();
    expect(path(), no, "stopped");
    check(in_child([&] { return read_some(); }), yes, "stopped, reading", "another process");
    owner.signal(SIGCONT);
    expect(path(), no, "going on");
    owner.signal(SIGSTOP);
    owner.end();
    expect(path(), yes, "ended while stopped");
    end_well(open_here(), 2);
}

Answer Cases::read_some() {
    std::string why;
    const auto reader = DiskReader::open(sim::real_file_system(), path(), why);
    if (!reader) return why.empty() ? no_without_reason : no;
    qm_dbframe frame;
    uint32_t recorder = 0;
    if (reader->end() < 50 || !reader->recorded()) return wrong;
    for (uint64_t n = reader->first(); n < reader->end(); ++n)
        if (!reader->read(n, frame) || !m_plan.wrong(frame, n, recorder).empty()) return wrong;
    return yes;
}

void Cases::reader_in_same_process() {
    Writer writer = open_here();
    if (!writer) return;
    m_proof.check(record(*writer, m_plan, 1, 50), "cannot record");
    for (int i = 0; i < 20; ++i) {
        check(read_some(), yes, "reading", "this process");
        m_proof.check(record(*writer, m_plan, 1, 5), "cannot record beside a reader");
        // A reader that closes its files takes the owner's lock from nobody.
        check(try_open(path()), no, "after a reader", "this process");
    }
    end_well(std::move(writer), 1);
    std::string why;
    const auto reader = DiskReader::open(sim::real_file_system(), path(), why);
    m_proof.check(reader && !reader->recorded(), "a reader takes it for being recorded");
    check(try_open(path()), yes, "while a reader is open", "this process");
}

void Cases::reader_in_other_process() {
    Owner owner(path(), m_plan, 1, 50);
    m_proof.check(owner.ready(), "the owner cannot record");
    for (int i = 0; i < 20; ++i) check(read_some(), yes, "reading", "this process");
    check(in_child([&] { return read_some(); }), yes, "reading", "another process");
    expect(path(), no, "after readers");
    owner.end();
    end_well(open_here(), 2);
}

void Cases::path_with_dot() {
    Writer writer = open_here();
    const int before = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (before < 0 || chdir(m_case.c_str()) != 0) abort();
    for (const char* other : {NAME, "./open.ini", ".//./open.ini"}) expect(other, no, other);
    if (fchdir(before) != 0) abort();
    close(before);
    end_well(std::move(writer), 1);
}

void Cases::path_with_dots() {
    Writer writer = open_here();
    std::filesystem::create_directory(m_case + "/x");
    expect(m_case + "/x/../" + NAME, no, "x/../");
    end_well(std::move(writer), 1);
    expect(m_case + "/x/../" + NAME, yes, "x/../, after the end");
}

void Cases::path_by_link() {
    Writer writer = open_here();
    const std::string link = m_case + "-link";
    std::filesystem::create_directory_symlink(m_case, link);
    expect(link + "/" + NAME, no, "by a link to the folder");
    end_well(std::move(writer), 1);
    expect(link + "/" + NAME, yes, "by a link, after the end");
}

// What the owner starts as a program of its own inherits nothing: it keeps no lock.
void Cases::child_of_owner() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) abort();
    Owner owner(path(), m_plan, 1, 50, [&] {
        int begun[2];
        if (pipe2(begun, O_CLOEXEC) != 0) _exit(1);
        const pid_t child = fork();
        if (child == 0) {
            execl("/bin/sleep", "sleep", "600", nullptr);
            _exit(1);
        }
        if (child < 0 || write(ends[1], &child, sizeof child) != sizeof child) _exit(1);
        // The end of the pipe that the child has is closed where the program begins.
        close(begun[1]);
        char none;
        if (read(begun[0], &none, 1) != 0) _exit(1);
    });
    m_proof.check(owner.ready(), "the owner cannot record");
    pid_t child = -1;
    if (read(ends[0], &child, sizeof child) != sizeof child) abort();
    close(ends[0]);
    close(ends[1]);
    owner.end();
    m_proof.check(kill(child, 0) == 0, "the owner's child is gone already");
    expect(path(), yes, "the owner is dead, its child is not");
    kill(child, SIGKILL);
    end_well(open_here(), 2);
}

// With and without a segment to tell of the owner.
void Cases::lock_removed() {
    for (const uint64_t frames : {uint64_t{50}, uint64_t{0}}) {
        m_case = m_folder + "/lock-removed-" + std::to_string(frames);
        std::filesystem::create_directory(m_case);
        Writer writer = open_here();
        if (!writer) continue;
        if (frames > 0) m_proof.check(record(*writer, m_plan, 1, frames), "cannot record");
        m_proof.check(unlink((m_case + "/" + sim::lock_name(NAME)).c_str()) == 0, "no lock file");
        expect(path(), no, frames > 0 ? "its lock file removed" : "the same, nothing recorded");
        end_well(std::move(writer), 1);
        expect(path(), yes, "after the end");
    }
}

void Cases::lock_is_no_file() {
    const std::string lock = m_case + "/" + sim::lock_name(NAME);
    std::filesystem::create_directory(lock);
    expect(path(), no, "its lock file is a folder");
    std::filesystem::remove(lock);
    if (mkfifo(lock.c_str(), 0600) != 0) abort();
    check(in_child([&] { return try_open(path()); }), no, "its lock file is a FIFO",
          "another process");
    check(try_open(path()), no, "its lock file is a FIFO", "this process");
    std::filesystem::remove(lock);
    const std::string target = m_case + "/target";
    std::filesystem::create_symlink(target, lock);
    expect(path(), no, "its lock file is a link");
    m_proof.check(!std::filesystem::exists(target), "the link was followed");
    std::filesystem::remove(lock);
    end_well(open_here(), 1);
}

void Cases::run(const char* name, void (Cases::*work)()) {
    m_proof.at(m_proof.seed(), static_cast<uint64_t>(++m_done));
    m_name = name;
    m_case = m_folder + "/case" + std::to_string(m_done);
    std::filesystem::create_directory(m_case);
    (this->*work)();
}

void Cases::run_all() {
    run("second recorder here", &Cases::same_process);
    run("second recorder elsewhere", &Cases::other_process);
    run("owner killed", &Cases::owner_killed);
    run("owner stopped", &Cases::owner_stopped);
    run("reader here", &Cases::reader_in_same_process);
    run("reader elsewhere", &Cases::reader_in_other_process);
    run("path with ./", &Cases::path_with_dot);
    run("path with ../", &Cases::path_with_dots);
    run("path by a link", &Cases::path_by_link);
    run("owner's child lives on", &Cases::child_of_owner);
    run("lock file removed", &Cases::lock_removed);
    run("lock file is no file", &Cases::lock_is_no_file);
    m_proof.covered("%d cases, each answered in this and in another process", m_done);
}

}  // namespace

int main(int argc, char** argv) {
    Proof proof(
        argc, argv,
        "Opens a database from several places at once: one recorder at most, no stale lock,\n"
        "readers always let in.",
        {{"interleavings", "of two or three processes (60, large 1000)"}});
    const TempDir folder;
    Cases(proof, folder.path()).run_all();
    interleave_all(proof, folder.path(), proof.count("interleavings", 60, 1000));
    return proof.finish();
}
