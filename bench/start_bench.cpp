// From the start of a process to its first prompt, and what memory it has touched by then: the
// program beside two shells. All are read through a pipe, and all show the same prompt.
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/child.h"
#include "bench/measure.h"

namespace {

const char USAGE[] = "start_bench PROGRAM ENVFILE [--runs NUMBER]";

const char PROMPT[] = "QM7105>";
const char SHELL_PROMPT[] = "PS1=QM7105>";

struct Subject {
    const char* name;
    std::vector<std::string> argv;
    std::vector<int64_t> start_ns = {};
    std::vector<int64_t> peak_kib = {};

    void start_once() {
        const int64_t begin = now_ns();
        Child child(argv, SHELL_PROMPT, Wire::pipes);
        child.wait_for(PROMPT);
        start_ns.push_back(now_ns() - begin);
        peak_kib.push_back(proc_status_kib(child.pid(), "VmHWM"));
    }
};

}  // namespace

int main(int argc, char** argv) {
    const Options options(argc, argv);
    const std::string program = options.word(0, USAGE);
    const std::string env_file = options.word(1, USAGE);
    const int runs = options.number("runs", 500);
    alarm(300);

    // The shells are interactive, which gives the prompt, without job control, which needs a
    // terminal.
    Subject subjects[] = {
        {"busybox sh", {"busybox", "sh", "-i", "+m"}},
        {"dash", {"dash", "-i", "+m"}},
        {"qm7105, built-in environment", {program, "/nonexistent.ini"}},
        {"qm7105, environment file", {program, env_file}},
    };
    for (int run = 0; run < runs; ++run)
        for (Subject& subject : subjects) subject.start_once();

    printf("start to first prompt, %d runs each, in turns\n", runs);
    printf("%-30s %9s %9s %13s %10s\n", "", "median us", "p90 us", "x busybox sh", "peak KiB");
    const double busybox = static_cast<double>(quantile(subjects[0].start_ns, 0.5));
    for (Subject& subject : subjects) {
        const double median = static_cast<double>(quantile(subject.start_ns, 0.5));
        const double p90 = static_cast<double>(quantile(subject.start_ns, 0.9));
        printf("%-30s %9.0f %9.0f %13.2f %10lld\n", subject.name, median / 1e3, p90 / 1e3,
               median / busybox, static_cast<long long>(quantile(subject.peak_kib, 0.5)));
    }
    return 0;
}
