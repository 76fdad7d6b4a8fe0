// The server transaction table: begun, completed and acknowledged requests with their timers.
#include "ServerTransactions.h"

namespace registrar {

namespace {

using std::chrono::milliseconds;
// The round-trip estimate and the time a message stays in the network.
const milliseconds T1(500);
const milliseconds T4(5000);
// Timer J (non-INVITE over UDP) and Timer H (INVITE waiting for its ACK);
// also how long a request may stay in work before its entry may go.
const milliseconds WAIT = 64 * T1;

} // namespace

ServerTransactions::ServerTransactions(size_t capacity) : m_capacity(capacity) {}

TransactionState ServerTransactions::begin(const std::string& key, Clock::time_point now, std::string& answer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Entries::iterator found = find(key, now);
    if (found != m_entries.end()) {
        if (!found->second.completed)
            return TransactionState::Proceeding;
        answer = found->second.answer;
        return TransactionState::Completed;
    }
    // Most entries live equally long, so the oldest are also the first to
    // expire: dropping expired ones from the front keeps the table small.
    while (!m_order.empty()) {
        Entries::iterator oldest = m_entries.find(m_order.front());
        if (m_entries.size() < m_capacity && oldest->second.expires > now)
            break;
        erase(oldest);
    }
    Entry& entry = m_entries[key];
    entry.expires = now + WAIT;
    entry.age = m_order.insert(m_order.end(), key);
    return TransactionState::New;
}

void ServerTransactions::complete(const std::string& key, const std::string& answer, bool invite, bool reliable,
                                  Clock::time_point now) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Entries::iterator found = m_entries.find(key);
    if (found == m_entries.end())
        return;
    // Over TCP nothing is retransmitted: a non-INVITE transaction ends here.
    if (!invite && reliable) {
        erase(found);
        return;
    }
    found->second.completed = true;
    found->second.answer = answer;
    found->second.expires = now + WAIT;
}

bool ServerTransactions::acknowledge(const std::string& key, bool reliable, Clock::time_point now) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Entries::iterator found = find(key, now);
    if (found == m_entries.end() || !found->second.completed)
        return false;
    // Timer I absorbs the ACK's own retransmissions; none come over TCP.
    if (reliable)
        erase(found);
    else
        found->second.expires = now + T4;
    return true;
}

bool ServerTransactions::contains(const std::string& key, Clock::time_point now) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return find(key, now) != m_entries.end();
}

ServerTransactions::Entries::iterator ServerTransactions::find(const std::string& key, Clock::time_point now) {
    Entries::iterator found = m_entries.find(key);
    if (found != m_entries.end() && found->second.expires <= now) {
        erase(found);
        return m_entries.end();
    }
    return found;
}

void ServerTransactions::erase(Entries::iterator entry) {
    m_order.erase(entry->second.age);
    m_entries.erase(entry);
}

} // namespace registrar
