// What all proof programs share: the command line, counted checks, and the last line "N passed,
// N failed". What is proven stands in the programs.
#ifndef TESTS_PROOF_PROOF_H
#define TESTS_PROOF_PROOF_H

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

// A build with sanitizers, many times slower, does that part of the small size.
#ifndef PROOF_SHARE
#define PROOF_SHARE 1
#endif

#ifdef __GNUC__
#define PROOF_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define PROOF_PRINTF(text, first)
#endif

// A generator that gives the same numbers on every machine (splitmix64). One thread.
class ProofRandom {
  public:
    explicit ProofRandom(uint64_t seed) : m_state(seed) {}

    uint64_t next() {
        uint64_t z = (m_state += 0x9e3779b97f4a7c15);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
        return z ^ (z >> 31);
    }
    // 0..limit-1; limit is at least 1.
    uint64_t below(uint64_t limit) { return next() % limit; }
    // least..most
    uint64_t between(uint64_t least, uint64_t most) { return least + below(most - least + 1); }
    bool one_in(uint64_t n) { return below(n) == 0; }

  private:
    uint64_t m_state;
};

// An option of one program beside those that all have: "--name N" when it takes a number, else
// "--name".
struct ProofOption {
    const char* name;  // without the dashes
    const char* help;
    bool takes_number = true;
    uint64_t value = 0;  // the default
    bool given = false;
};

// One a program. check() and covered() may be called from any thread.
class Proof {
  public:
    // Reads the command line. --help prints `about` (what is proven, some lines) and the options,
    // and ends the program with 0; a word that is no option ends it with 2.
    Proof(int argc, char** argv, const char* about, std::vector<ProofOption> options = {})
        : m_about(about), m_options(std::move(options)) {
        m_program = std::strrchr(argv[0], '/') ? std::strrchr(argv[0], '/') + 1 : argv[0];
        for (int i = 1; i < argc; ++i) i += take(argv[i], i + 1 < argc ? argv[i + 1] : nullptr);
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
        std::printf("%s: seed %llu%s\n", m_program, as_printed(m_seed), m_large ? ", large" : "");
    }
    Proof(const Proof&) = delete;
    Proof& operator=(const Proof&) = delete;

    uint64_t seed() const { return m_seed; }  // 1 when --seed was not given
    bool large() const { return m_large; }
    // An option's number (its default when it was not given), and whether it was given.
    uint64_t number(const char* name) const { return option(name).value; }
    bool given(const char* name) const { return option(name).given; }
    // The option's number when given, else `small_size` or, with --large, `large_size`.
    uint64_t count(const char* name, uint64_t small_size, uint64_t large_size) const {
        const ProofOption& wanted = option(name);
        if (wanted.given) return wanted.value;
        return m_large ? large_size : small_size / PROOF_SHARE;
    }

    // Where the following checks stand, told with a failure so that it can be repeated.
    void at(uint64_t seed, uint64_t step) {
        m_at_seed.store(seed, std::memory_order_relaxed);
        m_at_step.store(step, std::memory_order_relaxed);
    }

    // Counts; a failure is told on standard output as long as there are no more than 10. Returns
    // `ok`.
    PROOF_PRINTF(3, 4) bool check(bool ok, const char* what, ...) {
        if (ok) {
            m_passed.fetch_add(1, std::memory_order_relaxed);
            return true;
        }
        va_list arguments;
        va_start(arguments, what);
        tell(what, arguments);
        va_end(arguments);
        return false;
    }
    // What holds in many places at once, counted by the program itself.
    void passed(uint64_t checks) { m_passed.fetch_add(checks, std::memory_order_relaxed); }

    // A line about what was covered: counts, not opinions.
    PROOF_PRINTF(2, 3) void covered(const char* what, ...) {
        char text[600];
        va_list arguments;
        va_start(arguments, what);
        std::vsnprintf(text, sizeof text, what, arguments);
        va_end(arguments);
        std::printf("  %s\n", text);
    }

    uint64_t failures() const { return m_failed.load(std::memory_order_relaxed); }

    // The last line; what main returns. A program that checked nothing has failed.
    int finish() {
        if (m_passed == 0 && m_failed == 0 && !m_skipped) check(false, "nothing was checked");
        std::printf("%llu passed, %llu failed\n", as_printed(m_passed), as_printed(m_failed));
        std::fflush(stdout);
        return m_failed == 0 ? 0 : 1;
    }
    // This machine cannot run it; said, and nothing is counted.
    void skipped(const char* why) {
        m_skipped = true;
        std::printf("  skipped: %s\n", why);
    }

  private:
    static unsigned long long as_printed(uint64_t n) { return n; }

    PROOF_PRINTF(2, 0) void tell(const char* what, va_list arguments) {
        const uint64_t before = m_failed.fetch_add(1, std::memory_order_relaxed);
        if (before >= TOLD) return;
        char text[1000];
        std::vsnprintf(text, sizeof text, what, arguments);
        const std::lock_guard lock(m_mutex);
        std::printf("FAILED (seed %llu, step %llu): %s\n", as_printed(m_at_seed),
                    as_printed(m_at_step), text);
        if (before + 1 == TOLD) std::printf("(further failures are only counted)\n");
    }

    // Returns how many further words were taken.
    int take(const char* word, const char* number) {
        if (std::strcmp(word, "--help") == 0) help();
        if (std::strcmp(word, "--large") == 0) return m_large = true, 0;
        if (std::strcmp(word, "--seed") == 0) return m_seed = parsed(word, number), 1;
        for (ProofOption& it : m_options) {
            if (std::strncmp(word, "--", 2) != 0 || std::strcmp(word + 2, it.name) != 0) continue;
            it.given = true;
            if (!it.takes_number) return 0;
            it.value = parsed(word, number);
            return 1;
        }
        std::fprintf(stderr, "%s: no such option: %s (see --help)\n", m_program, word);
        std::exit(2);
    }
    uint64_t parsed(const char* word, const char* number) const {
        char* end = nullptr;
        const uint64_t value = number ? std::strtoull(number, &end, 0) : 0;
        if (number && *number >= '0' && *number <= '9' && *end == 0) return value;
        std::fprintf(stderr, "%s: %s takes a number\n", m_program, word);
        std::exit(2);
    }
    [[noreturn]] void help() const {
        std::printf("usage: %s [options]\n\n%s\n\n", m_program, m_about);
        print_option("seed N", "where the random numbers begin (1)");
        print_option("large", "the large size");
        for (const ProofOption& it : m_options)
            print_option(std::string(it.name) + (it.takes_number ? " N" : ""), it.help);
        print_option("help", "this");
        std::exit(0);
    }
    static void print_option(const std::string& name, const char* text) {
        std::printf("  --%-16s %s\n", name.c_str(), text);
    }
    const ProofOption& option(const char* name) const {
        for (const ProofOption& it : m_options)
            if (std::strcmp(name, it.name) == 0) return it;
        std::fprintf(stderr, "%s: the program has no option %s\n", m_program, name);
        std::abort();
    }

    static constexpr uint64_t TOLD = 10;
    const char* m_program = "";
    const char* const m_about;
    std::vector<ProofOption> m_options;
    uint64_t m_seed = 1;
    bool m_large = false;
    bool m_skipped = false;
    std::mutex m_mutex;  // of the lines about failures
    std::atomic<uint64_t> m_passed{0}, m_failed{0}, m_at_seed{1}, m_at_step{0};
};

#endif  // TESTS_PROOF_PROOF_H
