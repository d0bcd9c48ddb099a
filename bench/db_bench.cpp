// The disk database under load: writing beside other stores, stalls, reading, seeking, opening,
// memory. Prints one table; what it showed stands in docs/performance.md.
#include <getopt.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "bench/db_measures.h"
#include "bench/measure.h"

namespace {

const char USAGE[] =
    "db_bench [--folder FOLDER] [--size MIB] [--repetitions NUMBER] [--seconds NUMBER]\n"
    "         [--only WRITE|CPU|STALL|READ|SEEK|OPEN|MEMORY]...\n"
    "\n"
    "  --folder       where the files go, into a folder of their own that is removed at the end;\n"
    "                 the working directory unless told. Needs 4 times the size\n"
    "  --size         of the payload that is stored, in MiB: 1024\n"
    "  --repetitions  of which the median counts: 5\n"
    "  --seconds      of the stalls' ticks, each: 20\n"
    "  --only         one part of the table; more than once for several\n";

const char* const PARTS[] = {"WRITE", "CPU", "STALL", "READ", "SEEK", "OPEN", "MEMORY"};
enum : unsigned { WRITE = 1, CPU = 2, STALL = 4, READ = 8, SEEK = 16, OPEN = 32, MEMORY = 64 };

int positive(const char* text) {
    char* end = nullptr;
    const long number = strtol(text, &end, 10);
    if (*end != '\0' || number < 1 || number > 1'000'000)
        give_up(std::string(text) + " is no number here\n" + USAGE);
    return static_cast<int>(number);
}

unsigned part(const char* name) {
    for (unsigned i = 0; i < std::size(PARTS); ++i)
        if (strcmp(name, PARTS[i]) == 0) return 1u << i;
    give_up(std::string(name) + " is no part\n" + USAGE);
}

// The parts that are wanted.
unsigned read_options(int argc, char** argv, BenchPlan& plan) {
    const option options[] = {{"folder", required_argument, nullptr, 'f'},
                              {"size", required_argument, nullptr, 's'},
                              {"repetitions", required_argument, nullptr, 'r'},
                              {"seconds", required_argument, nullptr, 't'},
                              {"only", required_argument, nullptr, 'o'},
                              {"help", no_argument, nullptr, 'h'},
                              {nullptr, 0, nullptr, 0}};
    unsigned parts = 0;
    for (int letter; (letter = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
        switch (letter) {
            case 'f': plan.folder = optarg; break;
            case 's': plan.bytes = static_cast<uint64_t>(positive(optarg)) << 20; break;
            case 'r': plan.repetitions = positive(optarg); break;
            case 't': plan.stall_seconds = positive(optarg); break;
            case 'o': parts |= part(optarg); break;
            case 'h': fputs(USAGE, stdout); exit(0);
            default: give_up(USAGE);
        }
    }
    if (optind < argc) give_up(USAGE);
    return parts != 0 ? parts : ~0u;
}

}  // namespace

int main(int argc, char** argv) {
    BenchPlan plan;
    plan.folder = ".";
    const unsigned parts = read_options(argc, argv, plan);
    plan.folder += "/db_bench." + std::to_string(getpid());
    std::error_code error;
    if (!std::filesystem::create_directories(plan.folder, error))
        give_up(plan.folder + " cannot be made: " + error.message());

    if (parts & MEMORY) measure_memory(plan);
    if (parts & (WRITE | CPU)) measure_writing(plan, parts & WRITE, parts & CPU);
    if (parts & STALL) measure_stalls(plan);
    if (parts & READ) measure_reading(plan);
    if (parts & SEEK) measure_seeking(plan);
    if (parts & OPEN) measure_opening(plan);
    std::filesystem::remove_all(plan.folder);
    return 0;
}
