// ServerTransactions: the answers already sent, so that a retransmitted request gets the same one again.
#ifndef VELM_REGISTRAR_SERVERTRANSACTIONS_H
#define VELM_REGISTRAR_SERVERTRANSACTIONS_H

#include <chrono>
#include <cstddef>
#include <list>
#include <mutex>
#include <string>
#include <unordered_map>

namespace registrar {

// What begin() found for a request.
enum class TransactionState {
    // A request not seen before: the caller answers it and calls complete().
    New,
    // Another thread is still answering it: nothing to send.
    Proceeding,
    // Answered: send the stored answer again, unchanged.
    Completed,
};

// The server transactions of every worker thread and both transports, keyed
// by SipRequest::transactionKey(). One table behind one mutex: a UDP
// retransmission can reach any worker while the first copy is still in the
// database, so the workers must see each other's entries, and a lookup is
// short next to the database work it saves. Entries leave when their timer
// runs out (non-INVITE: Timer J, 64*T1 over UDP and at once over TCP; INVITE:
// Timer H waiting for the ACK, then Timer I), and the oldest go first when
// the table is full.
class ServerTransactions {
public:
    using Clock = std::chrono::steady_clock;

    explicit ServerTransactions(size_t capacity);

    // Looks `key` up at `now`; for Completed, `answer` is the answer sent.
    TransactionState begin(const std::string& key, Clock::time_point now, std::string& answer);
    // Stores the answer of a transaction begun with begin().
    void complete(const std::string& key, const std::string& answer, bool invite, bool reliable, Clock::time_point now);
    // An ACK for the INVITE transaction `key`: false when there is none.
    bool acknowledge(const std::string& key, bool reliable, Clock::time_point now);
    // Whether transaction `key` exists at `now` (the INVITE a CANCEL names).
    bool contains(const std::string& key, Clock::time_point now);

private:
    struct Entry {
        bool completed = false;
        std::string answer;
        Clock::time_point expires;
        std::list<std::string>::iterator age;
    };
    using Entries = std::unordered_map<std::string, Entry>;

    // The live entry of `key`, or end(); the caller holds the mutex.
    Entries::iterator find(const std::string& key, Clock::time_point now);
    void erase(Entries::iterator entry);

    std::mutex m_mutex;
    const size_t m_capacity;
    Entries m_entries;
    // The keys, oldest first.
    std::list<std::string> m_order;
};

} // namespace registrar

#endif
