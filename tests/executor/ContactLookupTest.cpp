// The contacts a request is routed to: ACP contacts of the subscriber's
// extensions first, then the registered contacts by qvalue and expiry, with
// "cycle" sets rotated.
#include "AppProperties.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "Provisioning.h"
#include "Registrations.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using velm::ContactRecord;
using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velmtest::TestDatabase;
using velmtest::addresses;

namespace {

const char* const CHANNEL = "DatabaseCommandExecutor";

// Subscriber 7, set 100 (replace_uri false): alice@example.com (10) with
// three registered contacts. Subscriber 8, set 200 ("cycle"): bob (20) with
// three contacts.
class ContactLookup : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(exec.connect(db.name().c_str(), "velm", "pw")) << exec.getErrorMessage();
        rows.subscriber(7);
        rows.subscriber(8);
        rows.contactSet(100, 7, "sequential", false);
        rows.contactSet(200, 8, "cycle");
        rows.publicAddress(10, "alice", "example.com", 100, true);
        rows.publicAddress(20, "bob", "example.com", 200, true);
        rows.contact(100, "sip:a@10.0.0.1", "0.000000", 2000000100);
        rows.contact(100, "sip:a@10.0.0.2", "1.0", 2000000000);
        rows.contact(100, "sip:a@10.0.0.3", "0.000000", 2000000200);
        rows.contact(200, "sip:b@10.0.0.1", "0.800000", 2000000000);
        rows.contact(200, "sip:b@10.0.0.2", "0.000000", 2000000200);
        rows.contact(200, "sip:b@10.0.0.3", "0.000000", 2000000100);
    }

    // Two trunks; alice's extensions 100 (TLS), 101 (no port), 102 (udp);
    // the contact that stands for extension 102 must not be routed to
    // twice.
    void provisionExtensions() {
        db.admin().exec("INSERT INTO acp (acp_id, sip_trunk_ipaddress, sip_port, link_type) VALUES "
                        "(1, '192.0.2.1', 5061, 'TLS'), (2, '192.0.2.2', NULL, 'udp'), (3, '192.0.2.3', 5060, 'udp')");
        int standIn = rows.contact(100, "sip:102@192.0.2.3", "1.0", 2000000300);
        db.admin().exec("INSERT INTO extension (oid, extension, sid, acp_id, cid) VALUES "
                        "(1, '100', 7, 1, 0), (2, '101', 7, 2, 0), (3, '102', 7, 3, " +
                        std::to_string(standIn) + ")");
    }

    DatabaseResult lookup(int key, bool resolveCycle = true) {
        contacts.clear();
        return exec.lookupContacts(key, ordering, replaceUri, contacts, resolveCycle);
    }

    void TearDown() override { velm::AppProperties::set("LocationService", "GenerateAcpContacts", nullptr); }

    TestDatabase db;
    velmtest::Provisioning rows{db.admin()};
    DatabaseCommandExecutor exec;
    std::string ordering;
    bool replaceUri = true;
    std::vector<ContactRecord> contacts;
};

} // namespace

TEST_F(ContactLookup, RegisteredContactsComeByQvalueThenLatestExpiry) {
    velmtest::TraceCapture capture({CHANNEL});
    ASSERT_TRUE(lookup(10).okay()) << exec.getErrorMessage();
    EXPECT_EQ((std::vector<std::string>{"sip:a@10.0.0.2", "sip:a@10.0.0.3", "sip:a@10.0.0.1"}),
              addresses(contacts));
    EXPECT_EQ("sequential", ordering);
    EXPECT_FALSE(replaceUri);
    const ContactRecord& first = contacts[0];
    EXPECT_EQ("alice", first.user());
    EXPECT_EQ("example.com", first.domain());
    EXPECT_EQ(100, first.csid());
    EXPECT_EQ(2000000000, first.expires());
    EXPECT_EQ("<sip:a@10.0.0.2>", first.contactHeader());
    EXPECT_EQ("sip", first.type());
    EXPECT_EQ("f", first.permanent());
    EXPECT_TRUE(capture.contains(
        CHANNEL,
        "SELECT contact_set.csid, contact_set.ordering, contact_set.replace_uri, subscriber.active, contact.address, "
        "contact.qvalue, contact.expires, contact.capabilities, contact.contact_header, contact.call_id, "
        "contact.cseq, contact.c_type, contact.path_vector, contact.contact_id, public_address.handle, "
        "public_address.sip_domain, contact.capabilities, contact.permanent FROM public_address, contact_set, "
        "contact, subscriber WHERE public_address.public_address_id = 10 AND contact_set.csid = "
        "public_address.csid AND contact.csid = contact_set.csid AND contact_set.sid = subscriber.sid AND "
        "contact.contact_id NOT IN (SELECT cid FROM extension e where e.sid = contact_set.sid) ORDER BY "
        "contact.qvalue DESC, contact.expires DESC; "));
    EXPECT_TRUE(capture.contains(CHANNEL, "Returned 0 ACP contacts. ordering= replaceUri=true"));
}

TEST_F(ContactLookup, AcpContactsOfTheExtensionsComeFirst) {
    provisionExtensions();
    velmtest::TraceCapture capture({CHANNEL});
    ASSERT_TRUE(lookup(10).okay()) << exec.getErrorMessage();
    EXPECT_EQ((std::vector<std::string>{"sips:100@192.0.2.1:5061;transport=TLS",
                                        "sip:102@192.0.2.3:5060;transport=udp", "sip:a@10.0.0.2",
                                        "sip:a@10.0.0.3", "sip:a@10.0.0.1"}),
              addresses(contacts));
    EXPECT_TRUE(capture.contains(CHANNEL,
                                 "lookupAcpContacts: Skipping contact with null data: 101@192.0.2.2:(null);transport=udp"));
    const ContactRecord& acp = contacts[0];
    EXPECT_EQ("acp", acp.type());
    EXPECT_EQ("t", acp.permanent());
    EXPECT_EQ("1.0", acp.qvalue());
    EXPECT_EQ(2147483647, acp.expires());
    EXPECT_EQ(0, acp.contactId());
    EXPECT_EQ(100, acp.csid());
    EXPECT_EQ("alice", acp.user());
}

TEST_F(ContactLookup, GenerateAcpContactsFalseInAnyCaseSuppressesThem) {
    provisionExtensions();
    for (const char* setting : {"false", "FALSE", "False"}) {
        velm::AppProperties::set("LocationService", "GenerateAcpContacts", setting);
        velmtest::TraceCapture capture({CHANNEL});
        ASSERT_TRUE(lookup(10).okay()) << exec.getErrorMessage();
        EXPECT_EQ(3u, contacts.size()) << setting;
        EXPECT_TRUE(capture.contains(
            CHANNEL, "Configuration velm.conf GenerateAcpContacts is false.  Not generating ACP contacts."));
    }
    velm::AppProperties::set("LocationService", "GenerateAcpContacts", "TRUE");
    ASSERT_TRUE(lookup(10).okay());
    EXPECT_EQ(5u, contacts.size());
}

TEST_F(ContactLookup, InactiveSubscriberIsNotFoundButItsContactsAreStillGiven) {
    db.admin().exec("UPDATE subscriber SET active = false WHERE sid = 7");
    EXPECT_TRUE(lookup(10).notFound());
    EXPECT_EQ(3u, contacts.size());
    EXPECT_TRUE(lookup(99).okay());
    EXPECT_TRUE(contacts.empty());
}

TEST_F(ContactLookup, CycleSetsAreRotatedAndReportedSequential) {
    std::vector<std::string> firsts;
    for (int call = 0; call < 4; ++call) {
        ASSERT_TRUE(lookup(20).okay()) << exec.getErrorMessage();
        ASSERT_EQ(3u, contacts.size());
        EXPECT_EQ("sequential", ordering);
        firsts.push_back(contacts[0].address());
    }
    EXPECT_EQ((std::vector<std::string>{"sip:b@10.0.0.1", "sip:b@10.0.0.2", "sip:b@10.0.0.3", "sip:b@10.0.0.1"}),
              firsts);
    // A rotation keeps the order of the rest.
    ASSERT_TRUE(lookup(20).okay());
    EXPECT_EQ((std::vector<std::string>{"sip:b@10.0.0.2", "sip:b@10.0.0.3", "sip:b@10.0.0.1"}), addresses(contacts));
}

TEST_F(ContactLookup, CycleLeftToTheCallerWhenNotResolved) {
    for (int call = 0; call < 2; ++call) {
        ASSERT_TRUE(lookup(20, false).okay());
        EXPECT_EQ("cycle", ordering);
        EXPECT_EQ((std::vector<std::string>{"sip:b@10.0.0.1", "sip:b@10.0.0.2", "sip:b@10.0.0.3"}),
                  addresses(contacts));
    }
}

TEST_F(ContactLookup, ContactsOfASetById) {
    ASSERT_TRUE(exec.lookupContacts(ordering, 100, replaceUri, contacts).okay()) << exec.getErrorMessage();
    EXPECT_EQ(3u, contacts.size());
    EXPECT_EQ("sequential", ordering);
    EXPECT_FALSE(replaceUri);
    EXPECT_EQ(-1, contacts[0].csid());
    EXPECT_EQ(-1, contacts[0].contactId());
    EXPECT_EQ("", contacts[0].user());

    std::vector<std::string> firsts;
    for (int call = 0; call < 4; ++call) {
        contacts.clear();
        ASSERT_TRUE(exec.lookupContacts(ordering, 200, replaceUri, contacts).okay());
        EXPECT_EQ("sequential", ordering);
        EXPECT_TRUE(replaceUri);
        firsts.push_back(contacts[0].address());
    }
    EXPECT_EQ(firsts[0], firsts[3]);
    EXPECT_NE(firsts[0], firsts[1]);
    EXPECT_NE(firsts[1], firsts[2]);

    contacts.clear();
    replaceUri = false;
    EXPECT_TRUE(exec.lookupContacts(ordering, 0, replaceUri, contacts).okay());
    EXPECT_TRUE(replaceUri);
    EXPECT_TRUE(contacts.empty());
}
