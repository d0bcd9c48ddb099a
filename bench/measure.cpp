// Time, quantiles and the command line of the benchmarks.
#include "bench/measure.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

int64_t now_ns() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

int64_t quantile(std::vector<int64_t>& samples, double part) {
    std::sort(samples.begin(), samples.end());
    const auto last = static_cast<double>(samples.size() - 1);
    return samples[static_cast<size_t>(part * last + 0.5)];
}

long proc_status_kib(int pid, const char* field) {
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/status", pid);
    FILE* status = fopen(path, "r");
    if (!status) return 0;
    char line[256];
    long kib = 0;
    const size_t length = strlen(field);
    while (fgets(line, sizeof line, status))
        if (strncmp(line, field, length) == 0 && line[length] == ':')
            kib = strtol(line + length + 1, nullptr, 10);
    fclose(status);
    return kib;
}

void give_up(const std::string& why) {
    fprintf(stderr, "%s\n", why.c_str());
    exit(1);
}

Options::Options(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (strncmp(argv[i], "--", 2) != 0) {
            m_words.push_back(argv[i]);
            continue;
        }
        m_names.push_back(argv[i] + 2);
        const bool has_number = i + 1 < argc && isdigit(static_cast<unsigned char>(*argv[i + 1]));
        m_numbers.push_back(has_number ? argv[++i] : "");
    }
}

int Options::number(const char* name, int fallback) const {
    for (size_t i = 0; i < m_names.size(); ++i)
        if (m_names[i] == name && !m_numbers[i].empty()) return atoi(m_numbers[i].c_str());
    return fallback;
}

bool Options::has(const char* name) const {
    return std::find(m_names.begin(), m_names.end(), name) != m_names.end();
}

const char* Options::word(size_t index, const char* usage) const {
    if (index >= m_words.size()) give_up(std::string("usage: ") + usage);
    return m_words[index].c_str();
}
