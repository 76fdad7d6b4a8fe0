// Subscribers, contact sets and the provisioning of public addresses.
#include "ContactSetRecord.h"
#include "Crypt.h"
#include "CryptKeyFile.h"
#include "DatabaseCommandExecutor.h"
#include "Provisioning.h"
#include "PublicAddressRecord.h"
#include "SubscriberRecord.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velmtest::TestDatabase;

namespace {

const char* const CHANNEL = "DatabaseCommandExecutor";

class SubscriberCommands : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(exec.connect(db.name().c_str(), "velm", "pw")) << exec.getErrorMessage(); }

    // alice@example.com, primary address 10 of set 100 of subscriber 7.
    void provisionAlice() {
        velmtest::Provisioning rows(db.admin());
        rows.subscriber(7);
        rows.contactSet(100, 7);
        rows.publicAddress(10, "alice", "example.com", 100, true);
    }

    TestDatabase db;
    DatabaseCommandExecutor exec;
};

} // namespace

TEST_F(SubscriberCommands, AddedSubscriberIsFoundByAddressWithItsPasswordDeciphered) {
    velmtest::CryptKeyFile key;
    velm::SubscriberRecord added;
    added.setId(7);
    added.setUserId("alice-auth");
    added.setType("home");
    added.setAuthType("digest");
    added.setPassword(Crypt::encrypt("s3cret"));
    added.setActive('t');
    ASSERT_EQ(1, exec.addSubscriber(added)) << exec.getErrorMessage();
    velm::ContactSetRecord set;
    set.setCsid(100);
    set.setSid(7);
    set.setOrdering("sequential");
    ASSERT_TRUE(exec.addContactSet(set).okay()) << exec.getErrorMessage();
    db.admin().exec("INSERT INTO public_address (handle, sip_domain, csid) VALUES ('alice', 'example.com', 100)");

    velmtest::TraceCapture capture({CHANNEL});
    velm::SubscriberRecord found;
    ASSERT_EQ(1, exec.lookupSubscriber("alice", "example.com", found, false)) << exec.getErrorMessage();
    EXPECT_EQ(7, found.sid());
    EXPECT_EQ("alice-auth", found.userId());
    EXPECT_EQ("home", found.type());
    EXPECT_EQ("digest", found.authType());
    EXPECT_EQ("s3cret", found.password());
    EXPECT_EQ("t", found.active());
    EXPECT_TRUE(capture.contains(
        CHANNEL, "SELECT subscriber.sid, subscriber.auth_user_id, subscriber.s_type, subscriber.auth_type, "
                 "subscriber.s_password, subscriber.active FROM public_address,contact_set,subscriber WHERE  "
                 "subscriber.sid = contact_set.sid AND contact_set.csid = public_address.csid  AND "
                 "public_address.handle = 'alice' AND public_address.sip_domain = 'example.com'"));
    EXPECT_TRUE(capture.contains(CHANNEL, "active = t\n"));
}

TEST_F(SubscriberCommands, EmptyFieldsOfTheRecordAreStoredAsNull) {
    velm::SubscriberRecord added;
    added.setId(8);
    ASSERT_EQ(1, exec.addSubscriber(added)) << exec.getErrorMessage();
    EXPECT_EQ("t", db.admin().value("SELECT auth_user_id IS NULL AND s_password IS NULL AND active IS NULL "
                                    "FROM subscriber WHERE sid = 8"));
    EXPECT_EQ(-1, exec.addSubscriber(added));
    EXPECT_NE(std::string::npos, exec.getErrorMessage().find("23505")) << exec.getErrorMessage();
}

TEST_F(SubscriberCommands, LookupRejectsNullArgumentsAndAnswersZeroForAnUnknownAddressEvenRetrying) {
    provisionAlice();
    velm::SubscriberRecord subscriber;
    EXPECT_EQ(-2, exec.lookupSubscriber(nullptr, "example.com", subscriber, false));
    EXPECT_EQ("invalid parameters passed to lookupSubscriber", exec.getErrorMessage());
    EXPECT_EQ(-2, exec.lookupSubscriber("alice", nullptr, subscriber, true));

    velmtest::TraceCapture capture({CHANNEL});
    EXPECT_EQ(0, exec.lookupSubscriber("bob", "example.com", subscriber, false));
    EXPECT_TRUE(capture.contains(CHANNEL, "lookupSubscriber found 0 rows"));
    // Retrying, it gives up after ten attempts.
    EXPECT_EQ(0, exec.lookupSubscriber("nobody", "example.com", subscriber, true));
    EXPECT_TRUE(capture.contains(CHANNEL, "lookupSubscriber loop counter=10"));

    DatabaseCommandExecutor unconnected;
    EXPECT_EQ(-1, unconnected.lookupSubscriber("alice", "example.com", subscriber, false));
}

TEST_F(SubscriberCommands, InactiveSubscriberAndNullPasswordAreReportedAsStored) {
    velmtest::Provisioning rows(db.admin());
    rows.subscriber(7, false);
    rows.contactSet(100, 7);
    rows.publicAddress(10, "alice", "example.com", 100, true);
    velm::SubscriberRecord subscriber;
    subscriber.setPassword("previous");
    ASSERT_EQ(1, exec.lookupSubscriber("alice", "example.com", subscriber, false));
    EXPECT_EQ("f", subscriber.active());
    EXPECT_EQ("previous", subscriber.password());
}

TEST_F(SubscriberCommands, RetryingLookupFindsASubscriberProvisionedMeanwhile) {
    velmtest::CryptKeyFile key;
    std::thread provisioner([this] {
        std::this_thread::sleep_for(std::chrono::seconds(2));
        velmtest::AdminConnection other(db.name());
        velmtest::Provisioning rows(other);
        rows.subscriber(7);
        rows.contactSet(100, 7);
        rows.publicAddress(10, "alice", "example.com", 100, true);
    });
    velmtest::TraceCapture capture({CHANNEL});
    velm::SubscriberRecord subscriber;
    int found = exec.lookupSubscriber("alice", "example.com", subscriber, true);
    provisioner.join();
    EXPECT_EQ(1, found) << exec.getErrorMessage();
    EXPECT_EQ(7, subscriber.sid());
    EXPECT_FALSE(capture.contains(CHANNEL, "lookupSubscriber loop counter=10"));
    EXPECT_FALSE(capture.contains(CHANNEL, "lookupSubscriber loop counter=0"));
}

TEST_F(SubscriberCommands, ChangedPasswordIsStoredAsGiven) {
    provisionAlice();
    EXPECT_EQ(1, exec.changeSubscriberPassword(7, "stored-form"));
    EXPECT_EQ("stored-form", db.admin().value("SELECT s_password FROM subscriber WHERE sid = 7"));
    EXPECT_EQ(0, exec.changeSubscriberPassword(99, "x"));
    EXPECT_EQ(-1, exec.changeSubscriberPassword(0, "x"));
    EXPECT_EQ("missing parameters", exec.getErrorMessage());
    EXPECT_EQ(-1, exec.changeSubscriberPassword(7, nullptr));
}

TEST_F(SubscriberCommands, ContactSetFailuresAreQueryErrors) {
    velmtest::Provisioning(db.admin()).subscriber(7);
    velm::ContactSetRecord set;
    set.setCsid(100);
    set.setSid(7);
    ASSERT_TRUE(exec.addContactSet(set).okay()) << exec.getErrorMessage();
    EXPECT_EQ("t", db.admin().value("SELECT ordering IS NULL FROM contact_set WHERE csid = 100"));
    DatabaseResult duplicate = exec.addContactSet(set);
    EXPECT_TRUE(duplicate.queryError());
    EXPECT_EQ(exec.getErrorMessage(), duplicate.getErrorMessage());

    DatabaseCommandExecutor unconnected;
    EXPECT_TRUE(unconnected.addContactSet(set).connectionError());
}

TEST_F(SubscriberCommands, AddedPublicAddressNeedsHandleDomainAndSet) {
    provisionAlice();
    velm::PublicAddressRecord alias;
    alias.setHandle("al");
    alias.setDomain("example.com");
    EXPECT_EQ(-1, exec.addPublicAddress(alias));
    EXPECT_EQ("addPublicAddress: missing one or more parameters\n", exec.getErrorMessage());

    alias.setCsid(100);
    ASSERT_EQ(0, exec.addPublicAddress(alias)) << exec.getErrorMessage();
    EXPECT_EQ("100", db.admin().value("SELECT csid FROM public_address WHERE handle = 'al'"));
    EXPECT_EQ(-1, exec.addPublicAddress(alias));
}

TEST_F(SubscriberCommands, StoredFunctionsProvisionAddressesAliasesAndImports) {
    velmtest::Provisioning(db.admin()).subscriber(7);
    velmtest::TraceCapture capture({CHANNEL});
    ASSERT_EQ(0, exec.createPublicAddress(7, "alice", "example.com")) << exec.getErrorMessage();
    EXPECT_TRUE(capture.contains(CHANNEL, "SELECT create_public_address('7','alice','example.com')"));
    ASSERT_EQ(0, exec.aliasPublicAddress("alice", "example.com", "1234")) << exec.getErrorMessage();
    EXPECT_TRUE(capture.contains(CHANNEL, "SELECT create_public_address_alias('alice','example.com','1234')"));
    ASSERT_EQ(0, exec.importPublicAddress("7", "gw", "example.com", "sip:gw@10.0.0.9")) << exec.getErrorMessage();

    velmtest::Rows addresses = db.admin().query(
        "SELECT handle, primary_handle::text, csid = (SELECT csid FROM public_address WHERE handle = 'alice')"
        " FROM public_address ORDER BY public_address_id");
    ASSERT_EQ(3u, addresses.size());
    EXPECT_EQ((std::vector<std::string>{"alice", "true", "t"}), addresses[0]);
    EXPECT_EQ((std::vector<std::string>{"1234", "false", "t"}), addresses[1]);
    EXPECT_EQ((std::vector<std::string>{"gw", "true", "f"}), addresses[2]);
    EXPECT_EQ("sip:gw@10.0.0.9 true", db.admin().value("SELECT address || ' ' || permanent FROM contact"));
}

TEST_F(SubscriberCommands, FailedStoredFunctionIsFollowedByRollback) {
    velmtest::TraceCapture capture({"DatabaseConnection"});
    EXPECT_EQ(-1, exec.createPublicAddress(99, "alice", "example.com"));
    EXPECT_NE(std::string::npos, exec.getErrorMessage().find("subscriber 99 does not exist")) << exec.getErrorMessage();
    EXPECT_TRUE(capture.contains("DatabaseConnection", "Executing query: \nROLLBACK\n"));
    EXPECT_EQ(-1, exec.aliasPublicAddress("nobody", "example.com", "1"));
    EXPECT_EQ(-1, exec.importPublicAddress(nullptr, "x", "example.com", nullptr));
    EXPECT_EQ("0", db.admin().value("SELECT count(*) FROM public_address"));

    DatabaseCommandExecutor unconnected;
    EXPECT_EQ(-1, unconnected.createPublicAddress(7, "a", "b"));
}
