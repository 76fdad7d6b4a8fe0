// Registering, removing and re-reading contacts: the commands registration
// and the expiry sweep are built on.
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "Provisioning.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

using velm::ContactRecord;
using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velmtest::TestDatabase;

namespace {

const char* const CHANNEL = "DatabaseCommandExecutor";
const long FUTURE = 2000000000;

// Subscriber 7, set 100: alice@example.com (10, primary) and 1234 (11).
// Subscriber 8, set 200: bob@example.com (20).
class ContactCommands : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(exec.connect(db.name().c_str(), "velm", "pw")) << exec.getErrorMessage();
        rows.subscriber(7);
        rows.subscriber(8);
        rows.contactSet(100, 7);
        rows.contactSet(200, 8);
        rows.publicAddress(10, "alice", "example.com", 100, true);
        rows.publicAddress(11, "1234", "example.com", 100, false);
        rows.publicAddress(20, "bob", "example.com", 200, true);
    }

    static ContactRecord registration(const std::string& address) {
        ContactRecord contact;
        contact.setAddress(address);
        contact.setExpires(FUTURE);
        contact.setQvalue("0.800000");
        contact.setContactHeader("<" + address + ">");
        contact.setCallId("call-1");
        contact.setCseq(3);
        return contact;
    }

    TestDatabase db;
    velmtest::Provisioning rows{db.admin()};
    DatabaseCommandExecutor exec;
};

} // namespace

TEST_F(ContactCommands, AddedContactEscapesItsUriHeaderAndCallId) {
    ContactRecord contact = registration("sip:o'neil@10.0.0.1");
    contact.setCallId("call'1");
    velmtest::TraceCapture capture({CHANNEL});
    ASSERT_EQ(0, exec.addContact("alice", "example.com", contact)) << exec.getErrorMessage();
    EXPECT_TRUE(capture.contains(CHANNEL, "SELECT add_contact('alice','example.com','sip:o''neil@10.0.0.1',"
                                          "2000000000,'f','0.800000',NULL,'<sip:o''neil@10.0.0.1>','call''1',3)"));
    velmtest::Rows stored = db.admin().query(
        "SELECT csid, address, expires, permanent::text, qvalue, contact_header, call_id, cseq FROM contact");
    ASSERT_EQ(1u, stored.size());
    EXPECT_EQ((std::vector<std::string>{"100", "sip:o'neil@10.0.0.1", "2000000000", "false", "0.800000",
                                        "<sip:o'neil@10.0.0.1>", "call'1", "3"}),
              stored[0]);
}

TEST_F(ContactCommands, FailedAddIsFollowedByRollbackButFailedInsertIsNot) {
    const std::string rollback = "Executing query: \nROLLBACK\n";
    ContactRecord contact = registration("sip:x@10.0.0.1");
    {
        velmtest::TraceCapture capture({"DatabaseConnection"});
        EXPECT_EQ(-1, exec.addContact("nobody", "example.com", contact));
        EXPECT_NE(std::string::npos, exec.getErrorMessage().find("does not exist")) << exec.getErrorMessage();
        EXPECT_TRUE(capture.contains("DatabaseConnection", rollback));
    }
    velmtest::TraceCapture capture({"DatabaseConnection"});
    contact.setCsid(999);
    EXPECT_EQ(-1, exec.addContact(contact));
    EXPECT_NE(std::string::npos, exec.getErrorMessage().find("23503")) << exec.getErrorMessage();
    EXPECT_FALSE(capture.contains("DatabaseConnection", rollback));
    EXPECT_EQ("0", db.admin().value("SELECT count(*) FROM contact"));
}

TEST_F(ContactCommands, InsertedContactGoesIntoItsOwnSet) {
    ContactRecord contact = registration("sip:b@10.0.0.2");
    contact.setCsid(200);
    contact.setPermanent('t');
    velmtest::TraceCapture capture({CHANNEL});
    ASSERT_EQ(0, exec.addContact(contact)) << exec.getErrorMessage();
    EXPECT_TRUE(capture.contains(CHANNEL, "INSERT INTO contact(csid,address,expires,permanent,qvalue,capabilities,"
                                          "contact_header,call_id,cseq) VALUES('200','sip:b@10.0.0.2',2000000000,"
                                          "'t','0.800000',NULL,'<sip:b@10.0.0.2>','call-1',3);"));
    EXPECT_EQ("200 true", db.admin().value("SELECT csid || ' ' || permanent FROM contact"));
}

TEST_F(ContactCommands, RemovalByAddressAndItsAsymmetryWithoutAConnection) {
    rows.contact(100, "sip:o'neil@10.0.0.1", "0.800000", FUTURE);
    rows.contact(100, "sip:a@10.0.0.2", "0.000000", FUTURE);
    ASSERT_EQ(0, exec.removeContact("1234", "example.com", "sip:o'neil@10.0.0.1")) << exec.getErrorMessage();
    EXPECT_EQ("sip:a@10.0.0.2", db.admin().value("SELECT string_agg(address, ',') FROM contact"));
    EXPECT_EQ(-1, exec.removeContact("alice", nullptr, "sip:a@10.0.0.2"));
    EXPECT_EQ("invalid parameters", exec.getErrorMessage());
    EXPECT_EQ(-1, exec.removeContact("nobody", "example.com", "sip:a@10.0.0.2"));

    DatabaseCommandExecutor unconnected;
    ContactRecord contact = registration("sip:a@10.0.0.2");
    EXPECT_EQ(0, unconnected.removeContact("alice", "example.com", "sip:a@10.0.0.2"));
    EXPECT_EQ(-1, unconnected.addContact("alice", "example.com", contact));
    EXPECT_EQ(-1, unconnected.addContact(contact));
}

TEST_F(ContactCommands, LockingLookupFindsTheSetByKeyOrCsid) {
    int first = rows.contact(100, "sip:a@10.0.0.1", "0.800000", FUTURE);
    rows.contact(100, "sip:a@10.0.0.2", "0.000000", FUTURE + 5);
    rows.contact(200, "sip:b@10.0.0.3", "0.800000", FUTURE);

    ContactRecord matching;
    matching.setUser("1234");
    matching.setDomain("example.com");
    std::vector<ContactRecord> existing;
    ASSERT_TRUE(exec.lookupContacts(11, matching, existing).okay()) << exec.getErrorMessage();
    EXPECT_EQ(100, matching.csid());
    ASSERT_EQ(2u, existing.size());
    const ContactRecord& a = existing[0].address() == "sip:a@10.0.0.1" ? existing[0] : existing[1];
    EXPECT_EQ(first, a.contactId());
    EXPECT_EQ(100, a.csid());
    EXPECT_EQ("1234", a.user());
    EXPECT_EQ("example.com", a.domain());
    EXPECT_EQ(FUTURE, a.expires());
    EXPECT_EQ("<sip:a@10.0.0.1>", a.contactHeader());
    EXPECT_EQ(1, a.cseq());
    EXPECT_EQ("f", a.permanent());

    existing.clear();
    ContactRecord known;
    known.setCsid(200);
    ASSERT_TRUE(exec.lookupContacts(0, known, existing).okay());
    ASSERT_EQ(1u, existing.size());
    EXPECT_EQ("sip:b@10.0.0.3", existing[0].address());
}

TEST_F(ContactCommands, LockingLookupRejectsAMissingSet) {
    ContactRecord unknown;
    std::vector<ContactRecord> existing;
    DatabaseResult noKey = exec.lookupContacts(0, unknown, existing);
    EXPECT_TRUE(noKey.badParameter());
    EXPECT_EQ("key = 0 and no csid", noKey.getErrorMessage());
    EXPECT_TRUE(exec.lookupContacts(99, unknown, existing).okay());
    EXPECT_TRUE(existing.empty());
    EXPECT_EQ(-1, unknown.csid());
}

TEST_F(ContactCommands, LockingLookupHoldsOffASecondRegistrationOfTheSameSet) {
    rows.contact(100, "sip:a@10.0.0.1", "0.800000", FUTURE);
    ASSERT_TRUE(exec.execute("BEGIN").okay());
    ContactRecord matching;
    std::vector<ContactRecord> existing;
    ASSERT_TRUE(exec.lookupContacts(10, matching, existing).okay()) << exec.getErrorMessage();

    std::atomic<bool> secondDone{false};
    DatabaseResult secondResult;
    std::vector<ContactRecord> secondExisting;
    std::thread second([&] {
        DatabaseCommandExecutor other;
        ASSERT_TRUE(other.connect(db.name().c_str(), "velm", "pw"));
        ASSERT_TRUE(other.execute("BEGIN").okay());
        ContactRecord otherMatching;
        secondResult = other.lookupContacts(11, otherMatching, secondExisting);
        secondDone = true;
        other.execute("COMMIT");
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
    EXPECT_TRUE(secondDone);
    EXPECT_TRUE(secondResult.okay()) << secondResult.getErrorMessage();
    EXPECT_EQ(1u, secondExisting.size());
}

TEST_F(ContactCommands, MatchingContactByCsidOrByAddressKey) {
    int id = rows.contact(100, "sip:o'neil@10.0.0.1", "0.800000", FUTURE);
    ContactRecord lookup;
    lookup.setAddress("sip:o'neil@10.0.0.1");
    ContactRecord matched;
    ASSERT_TRUE(exec.lookupMatchingContact(100, 0, lookup, matched).okay()) << exec.getErrorMessage();
    EXPECT_EQ(id, matched.contactId());
    EXPECT_EQ(100, matched.csid());
    EXPECT_EQ("0.800000", matched.qvalue());
    EXPECT_EQ("call-sip:o'neil@10.0.0.1", matched.callId());

    ContactRecord byKey;
    ASSERT_TRUE(exec.lookupMatchingContact(0, 11, lookup, byKey).okay());
    EXPECT_EQ(id, byKey.contactId());
    ContactRecord other;
    ASSERT_TRUE(exec.lookupMatchingContact(0, 20, lookup, other).okay());
    EXPECT_EQ(-1, other.contactId());

    DatabaseResult noSet = exec.lookupMatchingContact(0, 0, lookup, other);
    EXPECT_TRUE(noSet.badParameter());
    EXPECT_EQ("lookupMatchingContact: csid=0, paid=0", noSet.getErrorMessage());
    ContactRecord empty;
    DatabaseResult noAddress = exec.lookupMatchingContact(100, 0, empty, other);
    EXPECT_TRUE(noAddress.queryError());
    EXPECT_EQ("lookupContact address empty", noAddress.getErrorMessage());
}

TEST_F(ContactCommands, ExpiredContactsComeOncePerPublicAddressUnlessLimitedToOne) {
    long past = static_cast<long>(std::time(nullptr)) - 60;
    int expired = rows.contact(100, "sip:a@10.0.0.1", "0.800000", past);
    rows.contact(100, "sip:a@10.0.0.2", "0.800000", FUTURE);
    db.admin().exec("UPDATE contact SET expires = " + std::to_string(past) + " WHERE contact_id = " +
                    std::to_string(rows.permanentContact(200, "sip:b@10.0.0.3")));

    std::vector<ContactRecord> all;
    ASSERT_TRUE(exec.getExpiredContacts(all, false).okay()) << exec.getErrorMessage();
    ASSERT_EQ(2u, all.size());
    EXPECT_EQ(expired, all[0].contactId());
    EXPECT_EQ(expired, all[1].contactId());
    EXPECT_NE(all[0].user(), all[1].user());

    std::vector<ContactRecord> one;
    ASSERT_TRUE(exec.getExpiredContacts(one, true).okay());
    ASSERT_EQ(1u, one.size());
    EXPECT_EQ("alice", one[0].user());
    EXPECT_EQ("example.com", one[0].domain());
    EXPECT_EQ(100, one[0].csid());
    EXPECT_EQ(past, one[0].expires());
    EXPECT_EQ("sip", one[0].type());
}

TEST_F(ContactCommands, RegisteredContactsAreWalkedReadAndCounted) {
    int first = rows.contact(100, "sip:a@10.0.0.1", "0.800000", FUTURE);
    int second = rows.contact(100, "sip:a@10.0.0.2", "0.000000", FUTURE);
    rows.permanentContact(100, "sip:a@10.0.0.3");
    rows.contact(200, "sip:b@10.0.0.4", "0.800000", FUTURE);
    db.admin().exec("INSERT INTO identity VALUES (7, 'sip:alice@example.com', 'Alice')");

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
    EXPECT_EQ("Alice", displayName);
    EXPECT_EQ("sip:a@10.0.0.1", address);
    EXPECT_EQ(FUTURE, expires);
    EXPECT_EQ("0.800000", qvalue);

    velmtest::TraceCapture capture({CHANNEL});
    int count = 0;
    ASSERT_TRUE(exec.getRegisteredContactCount(count).okay()) << exec.getErrorMessage();
    EXPECT_EQ(3, count);
    EXPECT_TRUE(capture.contains(CHANNEL, "getRegisteredContactCount: returned 1 rows"));
    EXPECT_TRUE(capture.contains(CHANNEL, "getNextContactId: pCount=3"));
}

TEST_F(ContactCommands, ContactWithoutRegistrationIsNotFoundByItsId) {
    int permanent = rows.permanentContact(100, "sip:a@10.0.0.3");
    std::string displayName, address, qvalue;
    int expires = 0;
    velmtest::TraceCapture capture({CHANNEL});
    EXPECT_TRUE(exec.lookupContact(permanent, displayName, address, expires, qvalue).notFound());
    EXPECT_TRUE(capture.contains(CHANNEL, "zero rows found"));
    db.admin().exec("UPDATE contact SET contact_header = '<x>' WHERE contact_id = " +
                    std::to_string(permanent));
    ASSERT_TRUE(exec.lookupContact(permanent, displayName, address, expires, qvalue).okay());
    EXPECT_EQ("", displayName);
    EXPECT_EQ(0, expires);
}
