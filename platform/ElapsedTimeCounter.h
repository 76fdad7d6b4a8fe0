// ElapsedTimeCounter: microseconds elapsed on the monotonic clock.
#ifndef VELM_ELAPSEDTIMECOUNTER_H
#define VELM_ELAPSEDTIMECOUNTER_H

#include <chrono>

// Measures elapsed time in microseconds on the monotonic clock, so changes of
// the wall clock do not disturb it. Counting starts at construction.
class ElapsedTimeCounter {
public:
    ElapsedTimeCounter() : m_start(std::chrono::steady_clock::now()) {}

    // Starts counting again from now.
    void start() { m_start = std::chrono::steady_clock::now(); }
    // Microseconds since the start.
    long elapsed() const {
        return static_cast<long>(
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - m_start).count());
    }

private:
    std::chrono::steady_clock::time_point m_start;
};

#endif
