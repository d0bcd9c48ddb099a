// Waiting for what another thread, or time, brings about.
#ifndef TESTS_SUPPORT_WAIT_H
#define TESTS_SUPPORT_WAIT_H

#include <chrono>
#include <thread>

// Longer than a busy machine holds up any thread: a test that waits it out has failed.
inline constexpr std::chrono::seconds PATIENCE{120};

// Tries `condition` again and again until it holds. False when it has not after `patience`.
template <class Condition>
bool comes_true(Condition condition, std::chrono::milliseconds patience = PATIENCE) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

#endif  // TESTS_SUPPORT_WAIT_H
