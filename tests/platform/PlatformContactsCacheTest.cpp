#include "ContactRecord.h"
#include "ContactsCache.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using velm::ContactRecord;

namespace {

ContactRecord contact(const std::string& address) {
    ContactRecord record;
    record.setAddress(address);
    return record;
}

std::vector<std::string> addresses(const std::vector<ContactRecord>& contacts) {
    std::vector<std::string> all;
    for (const auto& record : contacts)
        all.push_back(record.address());
    return all;
}

} // namespace

TEST(PlatformContactsCache, NothingStoredIsNotFoundAndLeavesTheOutputs) {
    std::vector<ContactRecord> contacts{contact("sip:kept@host")};
    std::string ordering = "sequential";
    bool redirect = true;
    EXPECT_EQ(ContactsCache::NOT_FOUND, ContactsCache::instance()->lookup("PROXY", 42, contacts, ordering, redirect));
    EXPECT_EQ(0, ContactsCache::NOT_FOUND);
    EXPECT_EQ((std::vector<std::string>{"sip:kept@host"}), addresses(contacts));
    EXPECT_EQ("sequential", ordering);
    EXPECT_TRUE(redirect);
}

TEST(PlatformContactsCache, HostFillsAndInvalidatesByKey) {
    LocalContactsCache& cache = LocalContactsCache::shared();
    cache.store("PROXY", 42, {contact("sip:a@192.0.2.1"), contact("sip:b@192.0.2.2")}, "cycle", true);
    cache.store("PROXY", 43, {contact("sip:c@192.0.2.3")}, "sequential", false);
    cache.store("OTHER", 42, {contact("sip:other@192.0.2.9")}, "sequential", false);

    std::vector<ContactRecord> contacts;
    std::string ordering;
    bool redirect = false;
    ASSERT_EQ(1, ContactsCache::instance()->lookup("PROXY", 42, contacts, ordering, redirect));
    EXPECT_EQ((std::vector<std::string>{"sip:a@192.0.2.1", "sip:b@192.0.2.2"}), addresses(contacts));
    EXPECT_EQ("cycle", ordering);
    EXPECT_TRUE(redirect);

    cache.store("PROXY", 42, {contact("sip:new@192.0.2.4")}, "sequential", false);
    contacts.clear();
    ASSERT_EQ(1, ContactsCache::instance()->lookup("PROXY", 42, contacts, ordering, redirect));
    EXPECT_EQ((std::vector<std::string>{"sip:new@192.0.2.4"}), addresses(contacts));
    EXPECT_FALSE(redirect);

    cache.invalidate("PROXY", 42);
    contacts.clear();
    EXPECT_EQ(0, ContactsCache::instance()->lookup("PROXY", 42, contacts, ordering, redirect));
    EXPECT_TRUE(contacts.empty());
    EXPECT_EQ(1, ContactsCache::instance()->lookup("PROXY", 43, contacts, ordering, redirect));
    EXPECT_EQ(1, ContactsCache::instance()->lookup("OTHER", 42, contacts, ordering, redirect));
}

TEST(PlatformContactsCache, HostCacheReplacesTheDefault) {
    struct HostCache : ContactsCache {
        std::vector<std::string> asked;
        int lookup(const std::string& cacheName, int key, std::vector<ContactRecord>& contacts, std::string& ordering,
                   bool& redirect) override {
            asked.push_back(cacheName + "/" + std::to_string(key));
            contacts.push_back(contact("sip:host-cache@192.0.2.7"));
            ordering = "sequential";
            redirect = false;
            return FOUND;
        }
    } hostCache;
    LocalContactsCache::shared().store("PROXY", 7, {contact("sip:local@192.0.2.8")}, "cycle", true);

    ContactsCache::setInstance(&hostCache);
    std::vector<ContactRecord> contacts;
    std::string ordering;
    bool redirect = true;
    EXPECT_EQ(1, ContactsCache::instance()->lookup("PROXY", 7, contacts, ordering, redirect));
    EXPECT_EQ((std::vector<std::string>{"sip:host-cache@192.0.2.7"}), addresses(contacts));
    EXPECT_EQ((std::vector<std::string>{"PROXY/7"}), hostCache.asked);

    ContactsCache::setInstance(nullptr);
    contacts.clear();
    EXPECT_EQ(1, ContactsCache::instance()->lookup("PROXY", 7, contacts, ordering, redirect));
    EXPECT_EQ((std::vector<std::string>{"sip:local@192.0.2.8"}), addresses(contacts));
}
