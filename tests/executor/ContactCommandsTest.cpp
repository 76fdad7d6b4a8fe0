// Registering, removing and reading contacts, and the order a request is routed to them in: ACP contacts of
// the subscriber's extensions first, then by qvalue and expiry, with "cycle" sets rotated across threads.
#include "AppProperties.h"
#include "ContactRecord.h"
#include "ExecutorFixture.h"
#include "Registrations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <map>
#include <string>
#include <thread>
#include <vector>

using velm::ContactRecord;
using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using namespace velmtest;

namespace {

const long FUTURE = 2000000000;
const char* const ROLLBACK = "Executing query: \nROLLBACK\n";


// id|csid|user@domain|address|qvalue|expires|header|call id|cseq|type|permanent
std::string fieldsOf(const ContactRecord& c) {
    return joined({text(c.contactId()), text(c.csid()), c.user() + "@" + c.domain(), c.address(), c.qvalue(),
                   text(c.expires()), c.contactHeader(), c.callId(), text(c.cseq()), c.type(), c.permanent()});
}

class ContactCommands : public ExecutorTest {
protected:
    void SetUp() override {
        ExecutorTest::SetUp();
        provisionPeople();
    }

    void TearDown() override { velm::AppProperties::set("LocationService", "GenerateAcpContacts", nullptr); }

    // Three contacts for alice's set and three for bob's "cycle" set.
    void registerSixContacts() {
        rows.contact(100, "sip:a@10.0.0.1", "0.000000", FUTURE + 100);
        rows.contact(100, "sip:a@10.0.0.2", "1.0", FUTURE);
        rows.contact(100, "sip:a@10.0.0.3", "0.000000", FUTURE + 200);
        rows.contact(200, "sip:b@10.0.0.1", "0.800000", FUTURE);
        rows.contact(200, "sip:b@10.0.0.2", "0.000000", FUTURE + 200);
        rows.contact(200, "sip:b@10.0.0.3", "0.000000", FUTURE + 100);
    }

    DatabaseResult lookup(int key, bool resolveCycle = true) {
        contacts.clear();
        return exec.lookupContacts(key, ordering, replaceUri, contacts, resolveCycle);
    }

    std::string ordering;
    bool replaceUri = true;
    std::vector<ContactRecord> contacts;
};

class ContactCycle : public ContactCommands {};

} // namespace

TEST_F(ContactCommands, AddedContactsAreStoredWithTheirTextsEscaped) {
    ContactRecord contact = velmtest::contact("sip:o'neil@10.0.0.1", "0.800000");
    ContactRecord own = velmtest::contact("sip:b@10.0.0.2", "0.800000");
    contact.setExpires(FUTURE);
    TraceCapture capture({EXECUTOR});
    ASSERT_EQ(0, exec.addContact("alice", "example.com", contact)) << exec.getErrorMessage();
    EXPECT_TRUE(capture.contains(EXECUTOR, "SELECT add_contact('alice','example.com','sip:o''neil@10.0.0.1',"
                                           "2000000000,'f','0.800000',NULL,'<sip:o''neil@10.0.0.1>',"
                                           "'call-sip:o''neil@10.0.0.1',1)"));
    // A record that names its set goes into it.
    own.setExpires(FUTURE);
    own.setCsid(200);
    own.setPermanent('t');
    ASSERT_EQ(0, exec.addContact(own)) << exec.getErrorMessage();
    EXPECT_TRUE(capture.contains(EXECUTOR, "INSERT INTO contact(csid,address,expires,permanent,qvalue,capabilities,"
                                           "contact_header,call_id,cseq) VALUES('200','sip:b@10.0.0.2',2000000000,"
                                           "'t','0.800000',NULL,'<sip:b@10.0.0.2>','call-sip:b@10.0.0.2',1);"));
    EXPECT_EQ("100|sip:o'neil@10.0.0.1|2000000000|f|0.800000|<sip:o'neil@10.0.0.1>|call-sip:o'neil@10.0.0.1|1\n"
              "200|sip:b@10.0.0.2|2000000000|t|0.800000|<sip:b@10.0.0.2>|call-sip:b@10.0.0.2|1",
              db.admin().value("SELECT string_agg(concat_ws('|', csid, address, expires, permanent, qvalue, "
                               "contact_header, call_id, cseq), E'\\n' ORDER BY csid) FROM contact"));
}

TEST_F(ContactCommands, FailedAddIsFollowedByRollbackButFailedInsertIsNot) {
    ContactRecord contact = velmtest::contact("sip:x@10.0.0.1");
    {
        TraceCapture capture({"DatabaseConnection"});
        EXPECT_EQ(-1, exec.addContact("nobody", "example.com", contact));
        EXPECT_TRUE(holds(exec.getErrorMessage(), "does not exist"));
        EXPECT_TRUE(capture.contains("DatabaseConnection", ROLLBACK));
    }
    TraceCapture capture({"DatabaseConnection"});
    contact.setCsid(999);
    EXPECT_EQ(-1, exec.addContact(contact));
    EXPECT_TRUE(holds(exec.getErrorMessage(), "23503"));
    EXPECT_FALSE(capture.contains("DatabaseConnection", ROLLBACK));
    EXPECT_EQ("0", db.admin().value("SELECT count(*) FROM contact"));
}

TEST_F(ContactCommands, RemovalByAddress) {
    rows.contact(100, "sip:o'neil@10.0.0.1", "0.800000", FUTURE);
    rows.contact(100, "sip:a@10.0.0.2", "0.000000", FUTURE);
    ASSERT_EQ(0, exec.removeContact("1234", "example.com", "sip:o'neil@10.0.0.1")) << exec.getErrorMessage();
    EXPECT_EQ("sip:a@10.0.0.2", db.admin().value("SELECT string_agg(address, ',') FROM contact"));
    EXPECT_EQ(-1, exec.removeContact("alice", nullptr, "sip:a@10.0.0.2"));
    EXPECT_EQ("invalid parameters", exec.getErrorMessage());
    EXPECT_EQ(-1, exec.removeContact("nobody", "example.com", "sip:a@10.0.0.2"));
}

TEST_F(ContactCommands, LockingLookupFindsTheSetByKeyOrCsid) {
    int first = rows.contact(100, "sip:a@10.0.0.1", "0.800000", FUTURE);
    rows.contact(100, "sip:a@10.0.0.2", "0.000000", FUTURE + 5);
    rows.contact(200, "sip:b@10.0.0.3", "0.800000", FUTURE);
    ContactRecord matching, known, unknown;
    matching.setUser("1234");
    matching.setDomain("example.com");
    std::vector<ContactRecord> existing, other, none;
    ASSERT_TRUE(exec.lookupContacts(11, matching, existing).okay()) << exec.getErrorMessage();
    EXPECT_EQ(100, matching.csid());
    ASSERT_EQ(2u, existing.size());
    EXPECT_EQ(text(first) + "|100|1234@example.com|sip:a@10.0.0.1|0.800000|2000000000|<sip:a@10.0.0.1>|"
                         "call-sip:a@10.0.0.1|1|sip|f",
              fieldsOf(existing[0].address() == "sip:a@10.0.0.1" ? existing[0] : existing[1]));
    known.setCsid(200);
    ASSERT_TRUE(exec.lookupContacts(0, known, other).okay());
    EXPECT_EQ(Texts{"sip:b@10.0.0.3"}, addresses(other));
    DatabaseResult noKey = exec.lookupContacts(0, unknown, none);
    EXPECT_EQ("badParameter|key = 0 and no csid", joined({kind(noKey), noKey.getErrorMessage()}));
    EXPECT_TRUE(exec.lookupContacts(99, unknown, none).okay());
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(-1, unknown.csid());
}

TEST_F(ContactCommands, LockingLookupHoldsOffASecondRegistrationOfTheSameSet) {
    rows.contact(100, "sip:a@10.0.0.1", "0.800000", FUTURE);
    ASSERT_TRUE(exec.execute("BEGIN").okay());
    ContactRecord matching, otherMatching;
    std::vector<ContactRecord> existing, secondExisting;
    ASSERT_TRUE(exec.lookupContacts(10, matching, existing).okay()) << exec.getErrorMessage();
    std::atomic<bool> secondDone{false};
    DatabaseResult secondResult;
    DatabaseCommandExecutor other;
    ASSERT_TRUE(other.connect(db.name().c_str(), "velm", "pw") && other.execute("BEGIN").okay());
    std::thread second([&] {
        secondResult = other.lookupContacts(11, otherMatching, secondExisting);
        secondDone = true;
    });
    // Wait until the server reports the second session waiting for a lock.
    bool waiting = false;
    for (int i = 0; i < 200 && !waiting && !secondDone; ++i) {
        waiting = db.admin().value("SELECT count(*) FROM pg_stat_activity WHERE wait_event_type = 'Lock' "
                                   "AND query LIKE '%FOR UPDATE;'") == "1";
        if (!waiting)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_TRUE(waiting);
    EXPECT_FALSE(secondDone);
    ASSERT_TRUE(exec.execute("COMMIT").okay());
    second.join();
    EXPECT_TRUE(secondResult.okay()) << secondResult.getErrorMessage();
    EXPECT_EQ(1u, secondExisting.size());
    EXPECT_TRUE(other.execute("COMMIT").okay());
}

TEST_F(ContactCommands, MatchingContactByCsidOrByAddressKey) {
    int id = rows.contact(100, "sip:o'neil@10.0.0.1", "0.800000", FUTURE);
    ContactRecord lookup, matched, byKey, other;
    lookup.setAddress("sip:o'neil@10.0.0.1");
    ASSERT_TRUE(exec.lookupMatchingContact(100, 0, lookup, matched).okay()) << exec.getErrorMessage();
    EXPECT_EQ(text(id) + "|100|@|sip:o'neil@10.0.0.1|0.800000|2000000000|<sip:o'neil@10.0.0.1>|"
                      "call-sip:o'neil@10.0.0.1|1|sip|f",
              fieldsOf(matched));
    ASSERT_TRUE(exec.lookupMatchingContact(0, 11, lookup, byKey).okay());
    ASSERT_TRUE(exec.lookupMatchingContact(0, 20, lookup, other).okay());
    EXPECT_EQ(joined({text(id), "-1"}), joined({text(byKey.contactId()), text(other.contactId())}));
    DatabaseResult noSet = exec.lookupMatchingContact(0, 0, lookup, other);
    DatabaseResult noAddress = exec.lookupMatchingContact(100, 0, byKey = ContactRecord(), other);
    EXPECT_EQ("badParameter|lookupMatchingContact: csid=0, paid=0|queryError|lookupContact address empty",
              joined({kind(noSet), noSet.getErrorMessage(), kind(noAddress),
                      noAddress.getErrorMessage()}));
}

TEST_F(ContactCommands, ExpiredContactsComeOncePerPublicAddressUnlessLimitedToOne) {
    long past = static_cast<long>(std::time(nullptr)) - 60;
    int expired = rows.contact(100, "sip:a@10.0.0.1", "0.800000", past);
    rows.contact(100, "sip:a@10.0.0.2", "0.800000", FUTURE);
    db.admin().exec("UPDATE contact SET expires = " + text(past) + " WHERE contact_id = " +
                    text(rows.permanentContact(200, "sip:b@10.0.0.3")));
    std::vector<ContactRecord> all, one;
    ASSERT_TRUE(exec.getExpiredContacts(all, false).okay()) << exec.getErrorMessage();
    Texts found;
    for (const ContactRecord& contact : all)
        found.push_back(contact.user() + "|" + text(contact.contactId() - expired));
    std::sort(found.begin(), found.end());
    EXPECT_EQ(Texts({"1234|0", "alice|0", "al|0"}), found);
    ASSERT_TRUE(exec.getExpiredContacts(one, true).okay());
    ASSERT_EQ(1u, one.size());
    EXPECT_EQ("|100|alice@example.com|sip:a@10.0.0.1|0.800000|" + text(past) +
                  "|<sip:a@10.0.0.1>|call-sip:a@10.0.0.1|1|sip|f",
              fieldsOf(one[0]).substr(fieldsOf(one[0]).find('|')));
}

TEST_F(ContactCommands, RegisteredContactsAreWalkedReadAndCounted) {
    int first = rows.contact(100, "sip:a@10.0.0.1", "0.800000", FUTURE);
    int second = rows.contact(100, "sip:a@10.0.0.2", "0.000000", FUTURE);
    int permanent = rows.permanentContact(100, "sip:a@10.0.0.3");
    rows.contact(200, "sip:b@10.0.0.4", "0.800000", FUTURE);
    db.admin().exec("INSERT INTO identity VALUES (7, 'sip:alice@example.com', 'Alice')");
    TraceCapture capture({EXECUTOR});
    std::vector<int> ids;
    int id = 0;
    DatabaseResult step;
    while ((step = exec.getNextContactId(11, id, id)).okay())
        ids.push_back(id);
    EXPECT_TRUE(step.notFound()) << step.getErrorMessage();
    EXPECT_EQ((std::vector<int>{first, second}), ids);

    std::string displayName, address, qvalue;
    int expires = 0;
    ASSERT_TRUE(exec.lookupContact(first, displayName, address, expires, qvalue).okay()) << exec.getErrorMessage();
    EXPECT_EQ("Alice|sip:a@10.0.0.1|2000000000|0.800000", joined({displayName, address, text(expires), qvalue}));
    // A contact without a Contact header is no registration.
    EXPECT_TRUE(exec.lookupContact(permanent, displayName, address, expires, qvalue).notFound());
    EXPECT_TRUE(capture.contains(EXECUTOR, "zero rows found"));
    db.admin().exec("UPDATE contact SET contact_header = '<x>' WHERE contact_id = " + text(permanent));
    ASSERT_TRUE(exec.lookupContact(permanent, displayName, address, expires, qvalue).okay());
    EXPECT_EQ(0, expires);

    int count = 0;
    ASSERT_TRUE(exec.getRegisteredContactCount(count).okay()) << exec.getErrorMessage();
    EXPECT_EQ(4, count);
}

TEST_F(ContactCommands, RegisteredContactsAreRoutedByQvalueThenLatestExpiry) {
    registerSixContacts();
    ASSERT_TRUE(lookup(10).okay()) << exec.getErrorMessage();
    EXPECT_EQ(Texts({"sip:a@10.0.0.2", "sip:a@10.0.0.3", "sip:a@10.0.0.1"}), addresses(contacts));
    EXPECT_EQ("sequential|0", joined({ordering, text(replaceUri)}));
    EXPECT_EQ("|100|alice@example.com|sip:a@10.0.0.2|1.0|2000000000|<sip:a@10.0.0.2>|call-sip:a@10.0.0.2|1|sip|f",
              fieldsOf(contacts[0]).substr(fieldsOf(contacts[0]).find('|')));
    // An inactive subscriber is not found, but its contacts are still given.
    db.admin().exec("UPDATE subscriber SET active = false WHERE sid = 7");
    EXPECT_TRUE(lookup(10).notFound());
    EXPECT_EQ(3u, contacts.size());
    EXPECT_TRUE(lookup(99).okay());
    EXPECT_TRUE(contacts.empty());
}

TEST_F(ContactCommands, AcpContactsOfTheExtensionsComeFirstUnlessSwitchedOff) {
    registerSixContacts();
    // Three trunks; alice's extensions 100 (TLS), 101 (no port), 102 (udp);
    // the contact that stands for extension 102 is not routed to twice.
    db.admin().exec("INSERT INTO acp (acp_id, sip_trunk_ipaddress, sip_port, link_type) VALUES "
                    "(1, '192.0.2.1', 5061, 'TLS'), (2, '192.0.2.2', NULL, 'udp'), (3, '192.0.2.3', 5060, 'udp')");
    int standIn = rows.contact(100, "sip:102@192.0.2.3", "1.0", FUTURE + 300);
    db.admin().exec("INSERT INTO extension (oid, extension, sid, acp_id, cid) VALUES (1, '100', 7, 1, 0), "
                    "(2, '101', 7, 2, 0), (3, '102', 7, 3, " + text(standIn) + ")");
    TraceCapture capture({EXECUTOR});
    ASSERT_TRUE(lookup(10).okay()) << exec.getErrorMessage();
    EXPECT_EQ(Texts({"sips:100@192.0.2.1:5061;transport=TLS", "sip:102@192.0.2.3:5060;transport=udp",
                     "sip:a@10.0.0.2", "sip:a@10.0.0.3", "sip:a@10.0.0.1"}),
              addresses(contacts));
    EXPECT_TRUE(capture.contains(EXECUTOR, "lookupAcpContacts: Skipping contact with null data: "
                                           "101@192.0.2.2:(null);transport=udp"));
    EXPECT_EQ("0|100|alice@example.com|sips:100@192.0.2.1:5061;transport=TLS|1.0|2147483647|||0|acp|t",
              fieldsOf(contacts[0]));
    // "false" in any case switches them off; anything else leaves them on.
    for (const char* setting : {"false", "FALSE", "False", "TRUE"}) {
        velm::AppProperties::set("LocationService", "GenerateAcpContacts", setting);
        ASSERT_TRUE(lookup(10).okay()) << exec.getErrorMessage();
        EXPECT_EQ(setting[1] == 'R' ? 5u : 3u, contacts.size()) << setting;
    }
    EXPECT_TRUE(capture.contains(EXECUTOR, "Configuration velm.conf GenerateAcpContacts is false.  "
                                           "Not generating ACP contacts."));
}

TEST_F(ContactCycle, SetsAreRotatedAndReportedSequentialOrLeftToTheCaller) {
    registerSixContacts();
    const Texts inOrder = {"sip:b@10.0.0.1", "sip:b@10.0.0.2", "sip:b@10.0.0.3"};
    for (int call = 0; call < 2; ++call) {
        ASSERT_TRUE(lookup(20, false).okay());
        EXPECT_EQ("cycle", ordering);
        EXPECT_EQ(inOrder, addresses(contacts));
    }
    // Looked up by key or by set, a rotation keeps the order of the rest.
    Texts seen;
    for (int call = 0; call < 4; ++call) {
        ASSERT_TRUE((call % 2 ? exec.lookupContacts(ordering, 200, replaceUri, contacts) : lookup(20)).okay());
        seen.push_back(joined({addresses(contacts).at(0), addresses(contacts).at(2), ordering}));
        contacts.clear();
    }
    EXPECT_EQ(Texts({"sip:b@10.0.0.1|sip:b@10.0.0.3|sequential", "sip:b@10.0.0.2|sip:b@10.0.0.1|sequential",
                     "sip:b@10.0.0.3|sip:b@10.0.0.2|sequential", "sip:b@10.0.0.1|sip:b@10.0.0.3|sequential"}),
              seen);
    // By set, the records carry no ids or owner; no set is no contacts.
    ASSERT_TRUE(exec.lookupContacts(ordering, 100, replaceUri, contacts).okay()) << exec.getErrorMessage();
    EXPECT_EQ("3|sequential|0|-1|-1|@", joined({text(contacts.size()), ordering, text(replaceUri),
                                               text(contacts[0].csid()), text(contacts[0].contactId()),
                                               contacts[0].user() + "@"}));
    contacts.clear();
    EXPECT_TRUE(exec.lookupContacts(ordering, 0, replaceUri, contacts).okay());
    EXPECT_TRUE(replaceUri);
    EXPECT_TRUE(contacts.empty());
}

TEST_F(ContactCycle, StartsAgainWhenTheSetShrankBelowTheStoredIndex) {
    std::vector<int> starts;
    for (int size : {5, 5, 5, 5, 2, 2, 2, 1, 1}) {
        std::string csid = size == 1 ? "42" : "41";
        starts.push_back(DatabaseCommandExecutor::getNextCycleIndex(csid, size));
    }
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 0, 1, 0, 0, 0}), starts);
}

TEST_F(ContactCycle, ConcurrentCallersEachGetTheirOwnTurn) {
    std::vector<std::map<int, int>> seen(4);
    std::vector<std::thread> callers;
    for (auto& counts : seen) {
        callers.emplace_back([&counts] {
            std::string csid = "77";
            for (int call = 0; call < 300; ++call)
                ++counts[DatabaseCommandExecutor::getNextCycleIndex(csid, 3)];
        });
    }
    std::map<int, int> total;
    for (size_t t = 0; t < callers.size(); ++t) {
        callers[t].join();
        for (const auto& entry : seen[t])
            total[entry.first] += entry.second;
    }
    // Every index handed out as often as the others: none lost or handed out twice.
    EXPECT_EQ((std::map<int, int>{{0, 400}, {1, 400}, {2, 400}}), total);
}
