// A command's round trip through a pseudo-terminal, from the line sent to the next prompt read: the
// program at rest and at full load with its status tables on, beside a shell in the same run.
#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/child.h"
#include "bench/measure.h"

namespace {

const char USAGE[] = "roundtrip_bench PROGRAM ENVFILE [--rounds NUMBER] [--pause MICROSECONDS]";

// The reports of a board of type 6: all rate tables and IDR tables of the encode side.
const char SELECT_ALL_TABLES[] = "t 01000305 00030301\n";

// A table is printed once a second; a pause between the rounds spreads them over many.
constexpr int DEFAULT_PAUSE_US = 7000;

// Both ends of every talk share one core: otherwise the figure is the scheduler's choice of cores.
void share_one_core() {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<unsigned>(sched_getcpu()), &cores);
    if (sched_setaffinity(0, sizeof cores, &cores) != 0) give_up("no core to run on");
}

struct Talk {
    const char* name;
    Child& child;
    const char* line;
    const char* prompt;
    std::vector<int64_t> round_trips_ns = {};

    void once() { round_trips_ns.push_back(child.round_trip_ns(line, prompt)); }
};

void measure(Talk& program, Talk& shell, int rounds, int pause_us) {
    // First by turns: after a pause the first one finds the caches cold.
    for (int i = 0; i < rounds; ++i) {
        (i % 2 ? shell : program).once();
        (i % 2 ? program : shell).once();
        if (pause_us > 0) usleep(static_cast<useconds_t>(pause_us));
    }
    const auto us = [](Talk& talk, double part) {
        return static_cast<double>(quantile(talk.round_trips_ns, part)) / 1e3;
    };
    for (Talk* talk : {&shell, &program})
        printf("%-36s %8.1f %8.1f %12.2f %12.2f\n", talk->name, us(*talk, 0.5), us(*talk, 0.99),
               us(*talk, 0.5) / us(shell, 0.5), us(*talk, 0.99) / us(shell, 0.99));
}

// MAIN, both recordings, all tables selected, status thread on; the STATUS menu waits.
void start_full_load(Child& child) {
    child.wait_for("QM7105>");
    child.send("main\n");
    child.wait_for("MAIN>");
    child.send("encode 0\n");
    child.wait_for("MAIN>");
    child.send("encode 2\n");
    child.wait_for("MAIN>");
    child.send("status\n");
    child.wait_for("STATUS>");
    child.send("set\n");
    child.wait_for("Select Operation : ");
    child.send(SELECT_ALL_TABLES);
    child.wait_for("Select Operation : ");
    child.send("9\n");
    child.wait_for("STATUS>");
    child.send("run\n");
    child.wait_for("STATUS>");
    // From here on the load is steady and tables come.
    child.wait_for("4th Stream Encode Status");
}

}  // namespace

int main(int argc, char** argv) {
    const Options options(argc, argv);
    const std::string program = options.word(0, USAGE);
    const std::string env_file = options.word(1, USAGE);
    const int rounds = options.number("rounds", 2000);
    const int pause_us = options.number("pause", DEFAULT_PAUSE_US);
    alarm(300);
    share_one_core();

    printf("round trip of a command, %d each, in turns\n", rounds);
    printf("%-36s %8s %8s %12s %12s\n", "", "p50 us", "p99 us", "x dash, p50", "x dash, p99");
    {
        Child idle({program, env_file}, "", Wire::terminal);
        idle.wait_for("QM7105>");
        Child dash({"dash", "-i"}, "PS1=dash>", Wire::terminal);
        dash.wait_for("dash>");
        Talk program_talk = {"qm7105, idle", idle, "nothing\n", "QM7105>"};
        Talk shell_talk = {"dash, beside the idle program", dash, ":\n", "dash>"};
        measure(program_talk, shell_talk, rounds, 0);
    }
    {
        Child loaded({program, env_file}, "", Wire::terminal);
        start_full_load(loaded);
        Child dash({"dash", "-i"}, "PS1=dash>", Wire::terminal);
        dash.wait_for("dash>");
        Talk program_talk = {"qm7105, full load and tables", loaded, "nothing\n", "STATUS>"};
        Talk shell_talk = {"dash, beside the full load", dash, ":\n", "dash>"};
        const size_t dropped = loaded.dropped();
        measure(program_talk, shell_talk, rounds, pause_us);
        printf("(at full load %d us between the rounds, and %.1f KiB of tables in them)\n",
               pause_us, static_cast<double>(loaded.dropped() - dropped) / 1024);
    }
    return 0;
}
