// What every benchmark of whole processes needs: time, quantiles, command-line numbers.
#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

#include <cstdint>
#include <string>
#include <vector>

// Monotonic time.
int64_t now_ns();

// The sample that `part` (0..1) of the samples do not exceed. Sorts them; there is at least one.
int64_t quantile(std::vector<int64_t>& samples, double part);

// A line "Vm...:  n kB" of /proc/PID/status, in KiB; 0 when there is none.
long proc_status_kib(int pid, const char* field);

// Prints what is wrong and ends the benchmark with status 1.
[[noreturn]] void give_up(const std::string& why);

// The command line: words, and options of the form "--name number" or "--name".
class Options {
  public:
    Options(int argc, char** argv);

    // The number after `name`, `fallback` when it is not there.
    int number(const char* name, int fallback) const;
    bool has(const char* name) const;
    // Word `index` (0 is the first that is no option); ends the benchmark with `usage` when it is
    // not there.
    const char* word(size_t index, const char* usage) const;

  private:
    std::vector<std::string> m_words;
    std::vector<std::string> m_names;
    std::vector<std::string> m_numbers;  // one a name, empty when it has none
};

#endif  // BENCH_MEASURE_H
