// ContactsCache: the host's cache of public addresses' contacts, asked before the database.
#ifndef VELM_CONTACTSCACHE_H
#define VELM_CONTACTSCACHE_H

#include "Mutex.h"
#include "SafeLock.h"

#include <atomic>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace velm {
class ContactRecord;
}

// A cache of the contacts of public addresses, kept by the hosting server and
// asked by the proxy before the database (under the cache name "PROXY").
// `Record` is the contact record type (velm::ContactRecord); the cache is a
// template so that it needs nothing of the database layer. A host replaces
// the cache with its own subclass through setInstance; without one, the
// in-process cache below answers.
template <class Record>
class BasicContactsCache {
public:
    static constexpr int NOT_FOUND = 0;
    static constexpr int FOUND = 1;

    virtual ~BasicContactsCache() = default;

    // FOUND with the contacts of public address `key` appended to `contacts`,
    // and its `ordering` and `redirect` flag; NOT_FOUND, outputs untouched,
    // when cache `cacheName` holds nothing for the key.
    virtual int lookup(const std::string& cacheName, int key, std::vector<Record>& contacts, std::string& ordering,
                       bool& redirect) = 0;

    // The cache in use: the installed one, else the process's in-process cache.
    static BasicContactsCache* instance();
    // Installs `cache` for the whole process; null restores the in-process cache.
    static void setInstance(BasicContactsCache* cache) { installed().store(cache, std::memory_order_release); }

private:
    static std::atomic<BasicContactsCache*>& installed() {
        static std::atomic<BasicContactsCache*> cache{nullptr};
        return cache;
    }
};

// The default cache: entries in memory, stored and dropped by the host per
// cache name and public address key. Thread-safe and cancellation-safe.
template <class Record>
class InProcessContactsCache : public BasicContactsCache<Record> {
public:
    // The process's own instance, which instance() gives when no cache is installed.
    static InProcessContactsCache& shared() {
        static InProcessContactsCache cache;
        return cache;
    }

    int lookup(const std::string& cacheName, int key, std::vector<Record>& contacts, std::string& ordering,
               bool& redirect) override {
        return osk::withCancelSafeLock(m_mutex, [&] {
            auto found = m_entries.find(Key(cacheName, key));
            if (found == m_entries.end())
                return BasicContactsCache<Record>::NOT_FOUND;
            contacts.insert(contacts.end(), found->second.contacts.begin(), found->second.contacts.end());
            ordering = found->second.ordering;
            redirect = found->second.redirect;
            return BasicContactsCache<Record>::FOUND;
        });
    }

    // Replaces what cache `cacheName` holds for public address `key`.
    void store(const std::string& cacheName, int key, const std::vector<Record>& contacts,
               const std::string& ordering, bool redirect) {
        osk::withCancelSafeLock(m_mutex, [&] { m_entries[Key(cacheName, key)] = Entry{contacts, ordering, redirect}; });
    }

    // Forgets what cache `cacheName` holds for public address `key`.
    void invalidate(const std::string& cacheName, int key) {
        osk::withCancelSafeLock(m_mutex, [&] { m_entries.erase(Key(cacheName, key)); });
    }

private:
    using Key = std::pair<std::string, int>;
    struct Entry {
        std::vector<Record> contacts;
        std::string ordering;
        bool redirect;
    };

    osk::Mutex m_mutex;
    std::map<Key, Entry> m_entries;
};

template <class Record>
BasicContactsCache<Record>* BasicContactsCache<Record>::instance() {
    BasicContactsCache* cache = installed().load(std::memory_order_acquire);
    return cache != nullptr ? cache : &InProcessContactsCache<Record>::shared();
}

using ContactsCache = BasicContactsCache<velm::ContactRecord>;
using LocalContactsCache = InProcessContactsCache<velm::ContactRecord>;

#endif
