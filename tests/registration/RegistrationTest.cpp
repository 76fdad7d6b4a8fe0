#include "AlarmCapture.h"
#include "AppProperties.h"
#include "ContactRecord.h"
#include "LocationService.h"
#include "Registrations.h"
#include "TestConfiguration.h"
#include "TestServer.h"

#include <gtest/gtest.h>

using velm::ContactRecord;
using velm::DatabaseResult;
using velm::LocationService;
using velmtest::addresses;
using velmtest::contact;
using Stored = std::map<std::string, std::string>;
using Names = std::vector<std::string>;

namespace {

struct Outcome {
    DatabaseResult result;
    std::vector<ContactRecord> added;
    std::vector<ContactRecord> deleted;
    std::vector<ContactRecord> changed;
};

const char* const A = "sip:alice@192.0.2.10:5060";
const char* const B = "sip:alice@192.0.2.11:5060";
const char* const C = "sip:alice@192.0.2.12:5060";

} // namespace

class Registration : public testing::Test {
protected:
    void SetUp() override {
        velmtest::resetProperties();
        key = velmtest::provisionAddress(db, 1, "alice", "example.com");
        ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "").okay());
    }

    using Form = DatabaseResult (LocationService::*)(int, std::vector<ContactRecord>&, std::vector<ContactRecord>&,
                                                     std::vector<ContactRecord>&, std::vector<ContactRecord>&);
    Outcome run(Form form, std::vector<ContactRecord> contacts) {
        Outcome outcome;
        outcome.result = (service.*form)(key, contacts, outcome.added, outcome.deleted, outcome.changed);
        return outcome;
    }
    Outcome registerContacts(std::vector<ContactRecord> c) { return run(&LocationService::registerContacts, c); }
    Outcome unregisterContacts(std::vector<ContactRecord> c) { return run(&LocationService::unregisterContacts, c); }
    Outcome updateContacts(std::vector<ContactRecord> c) { return run(&LocationService::updateContacts, c); }
    Stored stored() { return velmtest::storedQvalues(db, key); }

    velmtest::TestDatabase db;
    velmtest::AlarmCapture alarms;
    LocationService service;
    int key = 0;
};

TEST_F(Registration, AnActiveContactDemotesTheActiveOneAndReportsBoth) {
    Outcome first = registerContacts({contact(A, "1.0")});
    ASSERT_TRUE(first.result.okay()) << first.result.getErrorMessage();
    ASSERT_EQ(Names{A}, addresses(first.added));
    EXPECT_EQ("0.800000", first.added[0].qvalue());
    EXPECT_EQ(db.admin().value(std::string("SELECT contact_id FROM contact WHERE address = '") + A + "'"),
              std::to_string(first.added[0].contactId()));
    EXPECT_TRUE(first.changed.empty());

    Outcome second = registerContacts({contact(B, "0.5")});
    ASSERT_TRUE(second.result.okay()) << second.result.getErrorMessage();
    EXPECT_EQ(Names{B}, addresses(second.added));
    ASSERT_EQ(Names{A}, addresses(second.changed));
    EXPECT_EQ("0.000000", second.changed[0].qvalue());
    EXPECT_TRUE(second.deleted.empty());
    EXPECT_EQ((Stored{{A, "0.000000"}, {B, "0.800000"}}), stored());

    // Qvalue zero is stored inactive and changes nothing else.
    Outcome zero = registerContacts({contact(C, "0")});
    ASSERT_TRUE(zero.result.okay()) << zero.result.getErrorMessage();
    EXPECT_TRUE(zero.changed.empty());
    EXPECT_EQ((Stored{{A, "0.000000"}, {B, "0.800000"}, {C, "0.000000"}}), stored());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(Registration, MissingQvalueFollowsTheConfiguredTreatment) {
    ASSERT_TRUE(registerContacts({contact(A)}).result.okay());
    EXPECT_EQ((Stored{{A, "0.800000"}}), stored());

    velm::AppProperties::set("Registrar", "QValueNotPresentRegisterTreatment", "inactive");
    ASSERT_TRUE(registerContacts({contact(B)}).result.okay());
    EXPECT_EQ((Stored{{A, "0.800000"}, {B, "0.000000"}}), stored());

    velm::AppProperties::set("Registrar", "QValueNotPresentRegisterTreatment", "Inactive");
    ASSERT_TRUE(registerContacts({contact(C)}).result.okay());
    EXPECT_EQ((Stored{{A, "0.000000"}, {B, "0.000000"}, {C, "0.800000"}}), stored());
}

TEST_F(Registration, AQvalueThatIsNoNumberIsRejectedAndNothingIsStored) {
    Outcome outcome = registerContacts({contact(A, "high")});
    EXPECT_TRUE(outcome.result.badParameter());
    EXPECT_TRUE(outcome.added.empty());
    EXPECT_TRUE(stored().empty());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(Registration, FilledOutputVectorsAreRejectedBeforeAnyDatabaseWork) {
    std::vector<ContactRecord> contacts{contact(A)};
    std::vector<ContactRecord> added{contact(B)};
    std::vector<ContactRecord> none;
    std::vector<ContactRecord> changed{contact(C)};
    DatabaseResult result = service.registerContacts(key, contacts, added, none, changed);
    EXPECT_TRUE(result.badParameter());
    EXPECT_EQ("addedContacts not empty", result.getErrorMessage());
    result = service.unregisterContacts(key, contacts, none, none, changed);
    EXPECT_EQ("changedContacts not empty", result.getErrorMessage());
    EXPECT_TRUE(stored().empty());
}

TEST_F(Registration, UnregisteringTheActiveContactPromotesTheOnlyInactiveOne) {
    ASSERT_TRUE(registerContacts({contact(A)}).result.okay());
    ASSERT_TRUE(registerContacts({contact(B, "0")}).result.okay());

    Outcome outcome = unregisterContacts({contact(A)});
    ASSERT_TRUE(outcome.result.okay()) << outcome.result.getErrorMessage();
    EXPECT_EQ(Names{A}, addresses(outcome.deleted));
    ASSERT_EQ(Names{B}, addresses(outcome.changed));
    EXPECT_EQ("0.800000", outcome.changed[0].qvalue());
    EXPECT_EQ((Stored{{B, "0.800000"}}), stored());
}

TEST_F(Registration, WithTwoInactiveContactsLeftNoneIsPromoted) {
    ASSERT_TRUE(registerContacts({contact(A)}).result.okay());
    ASSERT_TRUE(registerContacts({contact(B, "0")}).result.okay());
    ASSERT_TRUE(registerContacts({contact(C, "0")}).result.okay());

    Outcome outcome = unregisterContacts({contact(A)});
    ASSERT_TRUE(outcome.result.okay()) << outcome.result.getErrorMessage();
    EXPECT_TRUE(outcome.changed.empty());
    EXPECT_EQ((Stored{{B, "0.000000"}, {C, "0.000000"}}), stored());
}

TEST_F(Registration, UnregisteringMatchesTheContactHeaderAsSipAddresses) {
    ASSERT_TRUE(registerContacts({contact(A)}).result.okay());
    ContactRecord same = contact(A);
    same.setContactHeader("\"Alice\" <sip:alice@192.0.2.10:5060>;expires=0");
    Outcome outcome = unregisterContacts({same});
    ASSERT_TRUE(outcome.result.okay()) << outcome.result.getErrorMessage();
    EXPECT_EQ(Names{A}, addresses(outcome.deleted));
    EXPECT_TRUE(stored().empty());
}

TEST_F(Registration, TheWildcardMixedWithAContactIsRejected) {
    ASSERT_TRUE(registerContacts({contact(A)}).result.okay());
    ContactRecord wildcard;
    wildcard.setAddress("*");
    Outcome outcome = unregisterContacts({wildcard, contact(A)});
    EXPECT_TRUE(outcome.result.badParameter());
    EXPECT_EQ("mixed contact headers", outcome.result.getErrorMessage());
    EXPECT_EQ((Stored{{A, "0.800000"}}), stored());
}

TEST_F(Registration, UnregisteringAnUnknownContactRollsBack) {
    ASSERT_TRUE(registerContacts({contact(A)}).result.okay());
    ASSERT_TRUE(registerContacts({contact(B, "0")}).result.okay());
    Outcome outcome = unregisterContacts({contact(B), contact(C)});
    EXPECT_TRUE(outcome.result.badParameter());
    EXPECT_EQ("unregistering contact not registered", outcome.result.getErrorMessage());
    EXPECT_TRUE(outcome.deleted.empty());
    EXPECT_EQ((Stored{{A, "0.800000"}, {B, "0.000000"}}), stored());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(Registration, UnregisteringFromAnEmptySetIsABadParameter) {
    Outcome outcome = unregisterContacts({contact(A)});
    EXPECT_TRUE(outcome.result.badParameter());
    EXPECT_EQ("unregisteringContacts: no contacts", outcome.result.getErrorMessage());
}

TEST_F(Registration, TheWildcardSparesPermanentAndHeaderlessContacts) {
    ASSERT_TRUE(registerContacts({contact(A)}).result.okay());
    ASSERT_TRUE(registerContacts({contact(B, "0")}).result.okay());
    std::string csid = db.admin().value("SELECT csid FROM public_address WHERE public_address_id = " +
                                        std::to_string(key));
    db.admin().exec("INSERT INTO contact (csid, address, permanent, contact_header) VALUES (" + csid +
                    ", 'sip:desk@192.0.2.20', true, '<sip:desk@192.0.2.20>')");
    db.admin().exec("INSERT INTO contact (csid, address, contact_header) VALUES (" + csid +
                    ", 'sip:provisioned@192.0.2.21', '')");

    ContactRecord wildcard;
    wildcard.setAddress("*");
    wildcard.setContactHeader("*");
    Outcome outcome = unregisterContacts({wildcard});
    ASSERT_TRUE(outcome.result.okay()) << outcome.result.getErrorMessage();
    EXPECT_EQ((Stored{{"sip:desk@192.0.2.20", "0.000000"}, {"sip:provisioned@192.0.2.21", "0.000000"}}), stored());
    Names deleted = addresses(outcome.deleted);
    std::sort(deleted.begin(), deleted.end());
    // Reported: every stored contact that is not permanent.
    EXPECT_EQ((Names{A, B, "sip:provisioned@192.0.2.21"}), deleted);
}

TEST_F(Registration, RefreshingKeepsTheLevelAndReportsTheStoredRow) {
    ASSERT_TRUE(registerContacts({contact(A)}).result.okay());
    ASSERT_TRUE(registerContacts({contact(B, "0")}).result.okay());

    ContactRecord refresh = contact(B, "1.0", 7200);
    refresh.setCseq(2);
    refresh.setCallId("call-refresh");
    Outcome outcome = updateContacts({refresh});
    ASSERT_TRUE(outcome.result.okay()) << outcome.result.getErrorMessage();
    ASSERT_EQ(Names{B}, addresses(outcome.changed));
    EXPECT_EQ(refresh.expires(), outcome.changed[0].expires());
    EXPECT_EQ(2, outcome.changed[0].cseq());
    EXPECT_EQ("call-refresh", outcome.changed[0].callId());
    EXPECT_EQ((Stored{{A, "0.800000"}, {B, "0.000000"}}), stored());
}

TEST_F(Registration, RefreshingAnUnknownContactChangesNothing) {
    ASSERT_TRUE(registerContacts({contact(A)}).result.okay());
    Outcome outcome = updateContacts({contact(B)});
    EXPECT_TRUE(outcome.result.badParameter());
    EXPECT_EQ("re-reg address not found", outcome.result.getErrorMessage());
    EXPECT_TRUE(outcome.changed.empty());
}

TEST_F(Registration, ExpiryRemovesOneContactPerCallAndPromotesTheLastInactiveOne) {
    ASSERT_TRUE(registerContacts({contact(A, "1", -60)}).result.okay());
    ASSERT_TRUE(registerContacts({contact(B, "0")}).result.okay());
    ASSERT_TRUE(registerContacts({contact(C, "0", -30)}).result.okay());
    ASSERT_EQ((Stored{{A, "0.800000"}, {B, "0.000000"}, {C, "0.000000"}}), stored());

    std::vector<ContactRecord> added, deleted, changed;
    ASSERT_TRUE(service.removeExpiredContacts(added, deleted, changed).okay());
    ASSERT_EQ(1u, deleted.size());
    EXPECT_TRUE(changed.empty()) << "two inactive contacts were left";

    deleted.clear();
    ASSERT_TRUE(service.removeExpiredContacts(added, deleted, changed).okay());
    ASSERT_EQ(1u, deleted.size());
    EXPECT_EQ((Stored{{B, "0.800000"}}), stored());
    EXPECT_EQ(Names{B}, addresses(changed));

    deleted.clear();
    changed.clear();
    ASSERT_TRUE(service.removeExpiredContacts(added, deleted, changed).okay());
    EXPECT_TRUE(deleted.empty());
    EXPECT_EQ((Stored{{B, "0.800000"}}), stored());
}

TEST_F(Registration, RemovingAllExpiredContactsSparesPermanentOnes) {
    ASSERT_TRUE(registerContacts({contact(A, "1", -60)}).result.okay());
    ASSERT_TRUE(registerContacts({contact(B, "0")}).result.okay());
    db.admin().exec(std::string("UPDATE contact SET permanent = true, expires = 1 WHERE address = '") + B + "'");
    ASSERT_TRUE(registerContacts({contact(C, "0", -1)}).result.okay());

    ASSERT_TRUE(service.removeExpiredContacts().okay());
    EXPECT_EQ((Stored{{B, "0.000000"}}), stored());
}

TEST_F(Registration, DumpListsTheContactFieldsOnePerLine) {
    ContactRecord record = contact(A, "0.8");
    record.setUser("alice");
    record.setDomain("example.com");
    record.setCsid(4);
    record.setCapabilities("audio");
    record.setType("sip");
    EXPECT_EQ(std::string("user=alice\ndomain=example.com\naddress=") + A + "\ncsid=4\nqvalue=0.8\n" +
                  "capabilities=audio\ncontactHeader=<" + A + ">\ncallId=call-" + A + "\ntype=sip\n",
              service.dumpToString(record));
}
