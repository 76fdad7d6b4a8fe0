// ContactsCacheSync: velm-registrar's contacts cache, filled from the database and kept in step by LISTEN/NOTIFY.
#ifndef VELM_REGISTRAR_CONTACTSCACHESYNC_H
#define VELM_REGISTRAR_CONTACTSCACHESYNC_H

#include "Trace.h"

#include <future>
#include <set>
#include <string>
#include <thread>

struct pg_conn;

namespace velm {
class LocationService;
}

namespace registrar {

// True when the configuration says [Registrar] ContactsCache=true (any case).
bool contactsCacheConfigured();

// Keeps the library's in-process contacts cache equal to the database for
// every public address, whichever server changed it: the schema's triggers
// notify channel velm_contacts with the contact set of each changed contact or
// public address, and a thread with its own libpq session LISTENs there and
// reads the notified sets' addresses again.
//
// The cache is answered from ([SipServer] UseContactsCache) only while that
// session is up and the cache has been rebuilt since it last connected: when
// the session is lost the library reads the database until the thread has
// connected again, LISTENed, and read every public address.
class ContactsCacheSync {
public:
    ContactsCacheSync();
    ~ContactsCacheSync();
    ContactsCacheSync(const ContactsCacheSync&) = delete;
    ContactsCacheSync& operator=(const ContactsCacheSync&) = delete;

    // Starts the thread and waits for its first fill of the cache; false,
    // with the cache off and the thread retrying, when that fill failed.
    bool start();
    // Turns the cache off and ends the thread.
    void stop();

private:
    void run(std::promise<bool>* firstFill);
    // Connects and LISTENs; then every public address's contacts are read.
    bool connect();
    bool rebuild(velm::LocationService& service);
    // Reads again the addresses that pending notifications name.
    bool follow(velm::LocationService& service);
    bool reload(velm::LocationService& service, const std::set<int>& keys);
    // The public address keys a query gives; false when it fails.
    bool keysOf(const char* sql, const char* parameter, std::set<int>& keys);
    // Drops the session and turns the cache off.
    void disconnect();
    void setCacheUsed(bool used);
    // Waits for the session's socket (or `timeoutMs`); false when stopped.
    bool wait(int timeoutMs);

    pg_conn* m_conn = nullptr;
    // The keys stored in the cache, so that a rebuild drops vanished ones.
    std::set<int> m_stored;
    int m_wake[2] = {-1, -1};
    std::thread m_thread;
    velm::Trace m_trace;
};

} // namespace registrar

#endif
