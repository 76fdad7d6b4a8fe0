// Tracking the nonce counts of digest credentials in a bounded table.
#include "NonceCounts.h"

#include <algorithm>

namespace registrar {

NonceCounts::NonceCounts(size_t capacity) : m_capacity(std::max<size_t>(capacity, 1)) {}

bool NonceCounts::accept(const std::string& nonce, unsigned long count, long expiry, long now) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto found = m_highest.find(nonce);
    if (found != m_highest.end()) {
        if (count <= found->second)
            return false;
        found->second = count;
        return true;
    }
    if (expiry <= m_forgottenUpTo)
        return false;
    makeRoom(now);
    m_highest.emplace(nonce, count);
    m_order.emplace_back(expiry, nonce);
    return true;
}

void NonceCounts::makeRoom(long now) {
    // Nonces are first seen roughly in the order they expire: the front holds
    // the expired ones.
    while (!m_order.empty() && (m_order.front().first < now || m_highest.size() >= m_capacity)) {
        if (m_order.front().first >= now)
            m_forgottenUpTo = std::max(m_forgottenUpTo, m_order.front().first);
        m_highest.erase(m_order.front().second);
        m_order.pop_front();
    }
}

} // namespace registrar
