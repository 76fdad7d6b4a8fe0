// What every benchmark program shares: the database, thread counts, the filled population and the iteration marks.
#ifndef VELM_BENCH_BENCHSUPPORT_H
#define VELM_BENCH_BENCHSUPPORT_H

// What every benchmark program shares: the database to use, the thread
// counts, the filled population, and the marks that let scripts/bench find
// the statements of one iteration in the server's log.
//
// Environment (set by scripts/bench): VELM_BENCH_DATABASE, PGHOST/PGPORT,
// VELM_BENCH_SUBSCRIBERS (subscribers of the fill, whose public address ids
// are 1..N with two contacts each), VELM_BENCH_CAPTURE (mark iterations).
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <random>
#include <string>
#include <thread>

namespace velmbench {

inline const char* database() {
    return std::getenv("VELM_BENCH_DATABASE");
}

// Connects `service` to the bench database; false without one.
inline bool connect(velm::LocationService& service) {
    return database() != nullptr && service.connect(database(), "velm", "").okay();
}

inline int filledSubscribers() {
    const char* count = std::getenv("VELM_BENCH_SUBSCRIBERS");
    return count != nullptr ? std::atoi(count) : 0;
}

// One subscriber of the fill, different for each thread.
inline int filledKey() {
    thread_local std::mt19937 random(std::hash<std::thread::id>()(std::this_thread::get_id()));
    return filledSubscribers() > 0 ? 1 + static_cast<int>(random() % filledSubscribers()) : 0;
}

// In a capture run, a statement the server logs before each iteration;
// otherwise nothing.
inline void markIteration(velm::DatabaseCommandExecutor& exec) {
    static const bool capture = std::getenv("VELM_BENCH_CAPTURE") != nullptr;
    if (capture)
        exec.execute("SELECT 'velm-bench-iteration'");
}

// Rates are per second of wall time, over all threads.
inline void threads(benchmark::internal::Benchmark* bench) {
    bench->Unit(benchmark::kMicrosecond)->UseRealTime()->Threads(1)->Threads(2)->Threads(8);
}

} // namespace velmbench

#endif
