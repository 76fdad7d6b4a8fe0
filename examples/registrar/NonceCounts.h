// NonceCounts: the highest nonce count seen per nonce, against replayed credentials.
#ifndef VELM_REGISTRAR_NONCECOUNTS_H
#define VELM_REGISTRAR_NONCECOUNTS_H

#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

namespace registrar {

// The highest nc accepted per nonce, for at most `capacity` nonces, shared
// by the worker threads. Expired nonces are forgotten first; when the table
// is still full the oldest entry goes, and every nonce expiring no later
// than a forgotten one is refused from then on, so that forgetting never
// lets a replay through (the phone is sent a fresh nonce instead).
class NonceCounts {
public:
    explicit NonceCounts(size_t capacity);

    // Records `count` for `nonce` (valid until `expiry`); false when it is
    // not higher than the count already seen, or the nonce was forgotten.
    bool accept(const std::string& nonce, unsigned long count, long expiry, long now);

private:
    void makeRoom(long now);

    std::mutex m_mutex;
    size_t m_capacity;
    std::unordered_map<std::string, unsigned long> m_highest;
    // (expiry, nonce) in the order first seen.
    std::deque<std::pair<long, std::string>> m_order;
    long m_forgottenUpTo = 0;
};

} // namespace registrar

#endif
