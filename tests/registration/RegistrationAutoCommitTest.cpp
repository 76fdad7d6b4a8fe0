#include "AlarmCapture.h"
#include "ContactRecord.h"
#include "LocationService.h"
#include "Registrations.h"
#include "TestConfiguration.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

using velm::ContactRecord;
using velm::DatabaseResult;
using velm::LocationService;
using velmtest::contact;
using Stored = std::map<std::string, std::string>;

namespace {

const char* const A = "sip:alice@192.0.2.10:5060";
const char* const B = "sip:alice@192.0.2.11:5060";

// The statements the connection ran, in order.
std::vector<std::string> statements(const velmtest::TraceCapture& capture) {
    const std::string prefix = "Executing query: \n";
    std::vector<std::string> found;
    for (const auto& line : capture.lines("DatabaseConnection"))
        if (line.rfind(prefix, 0) == 0)
            found.push_back(line.substr(prefix.size(), line.size() - prefix.size() - 1));
    return found;
}

} // namespace

class RegistrationForms : public testing::Test {
protected:
    void SetUp() override {
        velmtest::resetProperties();
        key = velmtest::provisionAddress(db, 1, "alice", "example.com");
        ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "").okay());
        subSelect = "(SELECT csid FROM public_address where public_address_id = " + std::to_string(key) + ")";
    }
    Stored stored() { return velmtest::storedQvalues(db, key); }

    velmtest::TestDatabase db;
    velmtest::AlarmCapture alarms;
    LocationService service;
    int key = 0;
    std::string subSelect;
};

TEST_F(RegistrationForms, ShortFormsSendOneTransactionScriptAndStoreTheQvalueAsGiven) {
    ContactRecord a = contact(A, "0.5");
    a.setExpires(2000000000);
    std::vector<ContactRecord> contacts{a};
    velmtest::TraceCapture capture({"DatabaseConnection"});
    ASSERT_TRUE(service.registerContacts(key, contacts).okay());
    std::vector<std::string> expected = {
        "BEGIN TRANSACTION; INSERT INTO contact(address,csid,qvalue,expires,permanent,capabilities,contact_header,"
        "call_id,cseq, path_vector)  VALUES('sip:alice@192.0.2.10:5060'," +
        subSelect +
        ", '0.5',2000000000,'f','','<sip:alice@192.0.2.10:5060>','call-sip:alice@192.0.2.10:5060','1',''); "
        "COMMIT TRANSACTION;"};
    EXPECT_EQ(expected, statements(capture));
    EXPECT_EQ((Stored{{A, "0.5"}}), stored());

    contacts[0].setExpires(2000000100);
    ASSERT_TRUE(service.updateContacts(key, contacts).okay());
    EXPECT_EQ("2000000100", db.admin().value("SELECT expires FROM contact"));

    ContactRecord wildcard;
    wildcard.setAddress("*");
    std::vector<ContactRecord> remove{contacts[0], wildcard};
    ASSERT_TRUE(service.unregisterContacts(key, remove).okay());
    EXPECT_EQ("BEGIN TRANSACTION; DELETE FROM contact WHERE address = 'sip:alice@192.0.2.10:5060' AND csid = " +
                  subSelect + "; COMMIT TRANSACTION;",
              statements(capture).back());
    EXPECT_TRUE(stored().empty());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(RegistrationForms, AFailingScriptIsRolledBackAndAlarmed) {
    std::vector<ContactRecord> contacts{contact(A, "0.5")};
    DatabaseResult result = service.registerContacts(key + 100, contacts);
    ASSERT_TRUE(result.queryError());
    ASSERT_EQ(1u, alarms.alarms().size());
    EXPECT_EQ("database failure - registerContacts_2. " + result.getErrorMessage(), alarms.alarms()[0].second);
    // The connection is usable again: the failed transaction was ended.
    EXPECT_TRUE(service.registerContacts(key, contacts).okay());
}

TEST_F(RegistrationForms, AutoCommitFormsRunEachStatementOnItsOwn) {
    ContactRecord a = contact(A, "0.5");
    a.setExpires(2000000000);
    std::vector<ContactRecord> contacts{a, contact(B, "0.7")};
    velmtest::TraceCapture capture({"DatabaseConnection", "LocationService"});
    ASSERT_TRUE(service.registerContactsAC(key, contacts).okay());
    std::vector<std::string> ran = statements(capture);
    ASSERT_EQ(2u, ran.size());
    EXPECT_EQ("INSERT INTO contact(address,csid,qvalue,expires,permanent,capabilities,contact_header,call_id,cseq,"
              "path_vector)  VALUES('sip:alice@192.0.2.10:5060', " +
                  subSelect +
                  ", '0.5',2000000000,'f','','<sip:alice@192.0.2.10:5060>','call-sip:alice@192.0.2.10:5060','1','')",
              ran[0]);
    EXPECT_TRUE(capture.contains("LocationService", "registerContactsAC okay"));
    EXPECT_EQ((Stored{{A, "0.5"}, {B, "0.7"}}), stored());

    contacts[1].setQvalue("0.1");
    ASSERT_TRUE(service.updateContactsAC(key, contacts).okay());
    EXPECT_TRUE(capture.contains("LocationService", "udpate contacts OKAY"));
    EXPECT_EQ((Stored{{A, "0.5"}, {B, "0.1"}}), stored());

    ContactRecord byHeader;
    byHeader.setAddress("*");
    byHeader.setContactHeader(contacts[1].contactHeader());
    std::vector<ContactRecord> remove{byHeader};
    ASSERT_TRUE(service.unregisterContactsAC(key, remove).okay());
    EXPECT_EQ("DELETE FROM contact WHERE contact_header = '<sip:alice@192.0.2.11:5060>' AND csid = " + subSelect,
              statements(capture).back());
    EXPECT_EQ((Stored{{A, "0.5"}}), stored());
    for (const auto& statement : statements(capture))
        EXPECT_EQ(std::string::npos, statement.find("TRANSACTION")) << statement;
}

TEST_F(RegistrationForms, TheAutoCommitSettingHandsAllThreeOverToTheAcForms) {
    service.m_useAutoCommit = true;
    std::vector<ContactRecord> contacts{contact(A, "0.3")};
    // Output vectors that the step-by-step forms would reject.
    std::vector<ContactRecord> added{contact(B)}, deleted, changed;

    ASSERT_TRUE(service.registerContacts(key, contacts, added, deleted, changed).okay());
    EXPECT_EQ((Stored{{A, "0.3"}}), stored());
    contacts[0].setQvalue("0.4");
    ASSERT_TRUE(service.updateContacts(key, contacts, added, deleted, changed).okay());
    EXPECT_EQ((Stored{{A, "0.4"}}), stored());
    ASSERT_TRUE(service.unregisterContacts(key, contacts, added, deleted, changed).okay());
    EXPECT_TRUE(stored().empty());
    EXPECT_EQ(1u, added.size());
    EXPECT_TRUE(deleted.empty());
    EXPECT_TRUE(changed.empty());

    // The short forms delegate too: no transaction text is sent.
    velmtest::TraceCapture capture({"DatabaseConnection"});
    ASSERT_TRUE(service.registerContacts(key, contacts).okay());
    ASSERT_TRUE(service.updateContacts(key, contacts).okay());
    ASSERT_TRUE(service.unregisterContacts(key, contacts).okay());
    std::vector<std::string> ran = statements(capture);
    ASSERT_EQ(3u, ran.size());
    for (const auto& statement : ran)
        EXPECT_EQ(std::string::npos, statement.find("TRANSACTION")) << statement;
}

TEST_F(RegistrationForms, UpdateContactSelectsBySetAndAddress) {
    std::vector<ContactRecord> contacts{contact(A, "0.5")};
    ASSERT_TRUE(service.registerContacts(key, contacts).okay());
    ContactRecord changed = contacts[0];
    changed.setQvalue("0.9");
    changed.setPathVector("<sip:edge.example.com;lr>");
    velmtest::TraceCapture capture({"DatabaseConnection"});
    ASSERT_TRUE(service.updateContact(key, changed).okay());
    std::string statement = statements(capture).at(0);
    EXPECT_NE(std::string::npos,
              statement.find("path_vector = '<sip:edge.example.com;lr>' WHERE csid =" + subSelect +
                             " AND address = 'sip:alice@192.0.2.10:5060' ;"))
        << statement;
    EXPECT_EQ((Stored{{A, "0.9"}}), stored());
}

TEST_F(RegistrationForms, ContactIdsCannotComeFromTheSequenceSyntaxOfOtherDatabases) {
    std::string id = "unchanged";
    DatabaseResult result = service.getContactId(id);
    EXPECT_TRUE(result.queryError());
    EXPECT_EQ("unchanged", id);
    ASSERT_EQ(1u, alarms.alarms().size());
    EXPECT_EQ("database failure - getContactId. " + result.getErrorMessage(), alarms.alarms()[0].second);
}
