// Subscribers, contact sets and public addresses: provisioning them and reading them back, and the
// visiting-user table with this node's id.
#include "ContactSetRecord.h"
#include "Crypt.h"
#include "CryptKeyFile.h"
#include "ExecutorFixture.h"
#include "PublicAddressRecord.h"
#include "Registrations.h"
#include "SubscriberRecord.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

using velm::DatabaseResult;
using namespace velmtest;

namespace {

const char* const NOT_VISITING = "not present in replica_extra table";


class SubscriberCommands : public ExecutorTest {};

class PublicAddressCommands : public ExecutorTest {
protected:
    void SetUp() override {
        ExecutorTest::SetUp();
        provisionPeople();
    }
};

class VisitingUsers : public ExecutorTest {
protected:
    void visitor(int sid, long expires) {
        db.admin().exec("INSERT INTO replica_extra (packet_type, id, expires) VALUES ('subscriber', " + text(sid) +
                        ", " + text(expires) + ")");
    }

    // The expiry of each row of `sid`, ',' between them.
    std::string expiries(int sid) {
        return db.admin().value("SELECT coalesce(string_agg(expires::text, ','), '') FROM replica_extra WHERE id = " +
                                text(sid));
    }
};

} // namespace

TEST_F(SubscriberCommands, AddedSubscriberIsFoundByAddressWithItsPasswordDeciphered) {
    CryptKeyFile key;
    velm::SubscriberRecord added, found, bare;
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
    ASSERT_EQ(1, exec.lookupSubscriber("alice", "example.com", found, false)) << exec.getErrorMessage();
    EXPECT_EQ("7|alice-auth|home|digest|s3cret|t", joined({text(found.sid()), found.userId(), found.type(),
                                                           found.authType(), found.password(), found.active()}));
    // Empty fields of the record are stored as NULL; the same sid twice is refused.
    bare.setId(8);
    ASSERT_EQ(1, exec.addSubscriber(bare)) << exec.getErrorMessage();
    EXPECT_EQ("t", db.admin().value("SELECT auth_user_id IS NULL AND s_password IS NULL AND active IS NULL "
                                    "FROM subscriber WHERE sid = 8"));
    EXPECT_EQ(-1, exec.addSubscriber(bare));
    EXPECT_TRUE(holds(exec.getErrorMessage(), "23505"));
}

TEST_F(SubscriberCommands, LookupOfNullUnknownAndInactiveSubscribers) {
    provisionPeople();
    db.admin().exec("UPDATE subscriber SET active = false WHERE sid = 7");
    velm::SubscriberRecord subscriber;
    EXPECT_EQ(-2, exec.lookupSubscriber(nullptr, "example.com", subscriber, false));
    EXPECT_EQ("invalid parameters passed to lookupSubscriber", exec.getErrorMessage());
    EXPECT_EQ(-2, exec.lookupSubscriber("alice", nullptr, subscriber, true));
    TraceCapture capture({EXECUTOR});
    EXPECT_EQ(0, exec.lookupSubscriber("bob", "example.org", subscriber, false));
    EXPECT_TRUE(capture.contains(EXECUTOR, "lookupSubscriber found 0 rows"));
    // Retrying, it gives up after ten attempts.
    EXPECT_EQ(0, exec.lookupSubscriber("nobody", "example.com", subscriber, true));
    EXPECT_TRUE(capture.contains(EXECUTOR, "lookupSubscriber loop counter=10"));
    // Inactive, and a NULL password leaves the record's.
    subscriber.setPassword("previous");
    ASSERT_EQ(1, exec.lookupSubscriber("1234", "example.com", subscriber, false));
    EXPECT_EQ("f|previous", joined({subscriber.active(), subscriber.password()}));
}

TEST_F(SubscriberCommands, RetryingLookupFindsASubscriberProvisionedMeanwhile) {
    CryptKeyFile key;
    std::thread provisioner([this] {
        std::this_thread::sleep_for(std::chrono::seconds(2));
        AdminConnection other(db.name());
        Provisioning late(other);
        late.subscriber(7);
        late.contactSet(100, 7);
        late.publicAddress(10, "alice", "example.com", 100, true);
    });
    TraceCapture capture({EXECUTOR});
    velm::SubscriberRecord subscriber;
    int found = exec.lookupSubscriber("alice", "example.com", subscriber, true);
    provisioner.join();
    EXPECT_EQ(1, found) << exec.getErrorMessage();
    EXPECT_EQ(7, subscriber.sid());
    EXPECT_FALSE(capture.contains(EXECUTOR, "lookupSubscriber loop counter=10"));
    EXPECT_FALSE(capture.contains(EXECUTOR, "lookupSubscriber loop counter=0"));
}

TEST_F(SubscriberCommands, ChangedPasswordIsStoredAsGiven) {
    rows.subscriber(7);
    EXPECT_EQ(1, exec.changeSubscriberPassword(7, "stored-form"));
    EXPECT_EQ("stored-form", db.admin().value("SELECT s_password FROM subscriber WHERE sid = 7"));
    EXPECT_EQ(0, exec.changeSubscriberPassword(99, "x"));
    EXPECT_EQ(-1, exec.changeSubscriberPassword(0, "x"));
    EXPECT_EQ("missing parameters", exec.getErrorMessage());
    EXPECT_EQ(-1, exec.changeSubscriberPassword(7, nullptr));
}

TEST_F(SubscriberCommands, AddedContactSetAndPublicAddress) {
    rows.subscriber(7);
    velm::ContactSetRecord set;
    set.setCsid(100);
    set.setSid(7);
    ASSERT_TRUE(exec.addContactSet(set).okay()) << exec.getErrorMessage();
    EXPECT_EQ("t", db.admin().value("SELECT ordering IS NULL FROM contact_set WHERE csid = 100"));
    DatabaseResult duplicate = exec.addContactSet(set);
    EXPECT_TRUE(duplicate.queryError());
    EXPECT_EQ(exec.getErrorMessage(), duplicate.getErrorMessage());
    // An address needs a handle, a domain and a set.
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

TEST_F(SubscriberCommands, StoredFunctionsProvisionAddressesAliasesAndImportsOrRollBack) {
    rows.subscriber(7);
    TraceCapture capture({EXECUTOR, "DatabaseConnection"});
    ASSERT_EQ(0, exec.createPublicAddress(7, "alice", "example.com")) << exec.getErrorMessage();
    EXPECT_TRUE(capture.contains(EXECUTOR, "SELECT create_public_address('7','alice','example.com')"));
    ASSERT_EQ(0, exec.aliasPublicAddress("alice", "example.com", "1234")) << exec.getErrorMessage();
    EXPECT_TRUE(capture.contains(EXECUTOR, "SELECT create_public_address_alias('alice','example.com','1234')"));
    ASSERT_EQ(0, exec.importPublicAddress("7", "gw", "example.com", "sip:gw@10.0.0.9")) << exec.getErrorMessage();
    EXPECT_FALSE(capture.contains("DatabaseConnection", "Executing query: \nROLLBACK\n"));
    EXPECT_EQ((Rows{{"alice", "true", "t"}, {"1234", "false", "t"}, {"gw", "true", "f"}}),
              db.admin().query("SELECT handle, primary_handle::text, csid = (SELECT csid FROM public_address WHERE "
                               "handle = 'alice') FROM public_address ORDER BY public_address_id"));
    EXPECT_EQ("sip:gw@10.0.0.9 true", db.admin().value("SELECT address || ' ' || permanent FROM contact"));

    EXPECT_EQ(-1, exec.createPublicAddress(99, "carol", "example.com"));
    EXPECT_TRUE(holds(exec.getErrorMessage(), "subscriber 99 does not exist"));
    EXPECT_TRUE(capture.contains("DatabaseConnection", "Executing query: \nROLLBACK\n"));
    EXPECT_EQ(-1, exec.aliasPublicAddress("nobody", "example.com", "1"));
    EXPECT_EQ(-1, exec.importPublicAddress(nullptr, "x", "example.com", nullptr));
    EXPECT_EQ("3", db.admin().value("SELECT count(*) FROM public_address"));
}

TEST_F(PublicAddressCommands, LookupByNameFillsTheRecordAndEscapesTheHandle) {
    db.admin().exec("UPDATE public_address SET scope = 'private' WHERE public_address_id = 11;"
                    "UPDATE public_address SET handle = 'o''brien' WHERE public_address_id = 12");
    const std::pair<const char*, const char*> cases[] = {{"1234", "11|1234|example.com|100|private"},
                                                         {"o'brien", "12|o'brien|example.com|100|"}};
    for (const auto& c : cases) {
        velm::PublicAddressRecord a;
        ASSERT_TRUE(exec.lookupPublicAddress(c.first, "example.com", a).okay()) << exec.getErrorMessage();
        EXPECT_EQ(c.second, joined({text(a.public_address_id()), a.handle(), a.domain(), text(a.csid()), a.scope()}));
    }
    velm::PublicAddressRecord unknown;
    EXPECT_TRUE(exec.lookupPublicAddress("1234", "example.org", unknown).notFound());
    EXPECT_EQ(-1, unknown.public_address_id());
    DatabaseResult invalid = exec.lookupPublicAddress(nullptr, "example.com", unknown);
    EXPECT_EQ("queryError|invalid parameters", joined({kind(invalid), invalid.getErrorMessage()}));
}

TEST_F(PublicAddressCommands, LookupByIdTellsPrimaryFromAliasAndFindsThePrimary) {
    std::string handle, domain;
    bool primary = false;
    Texts found;
    for (int paid : {10, 12}) {
        EXPECT_TRUE(exec.lookupPublicAddress(paid, handle, domain, primary).okay()) << exec.getErrorMessage();
        found.push_back(joined({handle, domain, text(primary)}));
    }
    EXPECT_TRUE(exec.lookupPublicAddress(30, handle, domain).okay());
    EXPECT_TRUE(exec.lookupPublicAddress(99, handle, domain).notFound());
    found.push_back(joined({handle, domain}));
    EXPECT_EQ(Texts({"alice|example.com|1", "al|example.com|0", "carol|example.org"}), found);
    // The primary of an alias; an unknown id leaves the answer as it was.
    std::vector<int> primaries;
    for (int paid : {12, 20, 99}) {
        int primaryId = 555;
        EXPECT_TRUE(exec.getPrimaryId(paid, primaryId).okay()) << exec.getErrorMessage();
        primaries.push_back(primaryId);
    }
    EXPECT_EQ((std::vector<int>{10, 20, 555}), primaries);
}

TEST_F(PublicAddressCommands, IdentityIsANameAddress) {
    db.admin().exec("INSERT INTO identity VALUES (7, 'sip:alice@example.com', 'Alice A'), "
                    "(8, 'sip:bob@example.com', NULL)");
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"1234", "example.com", "okay|\"Alice A\" <sip:alice@example.com>"},
        {"bob", "example.com", "okay|<sip:bob@example.com>"},
        {"carol", "example.org", "notFound|"},
        {"carol", nullptr, "queryError|stale|invalid handle/domain parameters"}};
    for (const auto& c : cases) {
        std::string identity = "stale";
        DatabaseResult result = exec.getIdentity(std::get<0>(c), std::get<1>(c), identity);
        EXPECT_EQ(std::get<2>(c),
                  joined({kind(result), identity}) + (result.fatalError() ? "|" + result.getErrorMessage() : ""));
    }
}

TEST_F(PublicAddressCommands, WalkingPrimariesAndAliasesInIdOrder) {
    std::vector<int> primaries, aliases;
    int id = 0;
    DatabaseResult step;
    while ((step = exec.getNextPublicAddressId(id, id)).okay())
        primaries.push_back(id);
    EXPECT_TRUE(step.notFound()) << step.getErrorMessage();
    EXPECT_EQ((std::vector<int>{10, 20, 30}), primaries);
    id = 0;
    while ((step = exec.getNextAliasId(10, id, id)).okay())
        aliases.push_back(id);
    EXPECT_TRUE(step.notFound());
    EXPECT_EQ((std::vector<int>{11, 12}), aliases);
    EXPECT_TRUE(exec.getNextAliasId(20, 0, id).notFound());
}

TEST_F(PublicAddressCommands, ExtensionLeadsToThePrimaryAndCountsRegistrations) {
    rows.contact(100, "sip:a@10.0.0.1", "0.800000", 2000000000);
    rows.contact(100, "sip:a@10.0.0.2", "0.000000", 2000000000);
    rows.permanentContact(100, "sip:a@10.0.0.3");
    int paid = 0, numReg = -1;
    std::string handle, domain;
    ASSERT_TRUE(exec.lookupExtension("1234", paid, handle, domain, numReg).okay()) << exec.getErrorMessage();
    EXPECT_EQ("10|alice|example.com|2", joined({text(paid), handle, domain, text(numReg)}));
    ASSERT_TRUE(exec.lookupExtension("bob", paid, handle, domain, numReg).okay());
    EXPECT_EQ("20|bob|0", joined({text(paid), handle, text(numReg)}));
    EXPECT_TRUE(exec.lookupExtension("9999", paid, handle, domain, numReg).notFound());
}

TEST_F(VisitingUsers, HomeNodeIdIsTheReplicaIdAndZeroOrNullIsAQueryError) {
    // The zero is read back before it is refused; a missing value never is.
    const std::pair<const char*, const char*> values[] = {{nullptr, "notFound|-1|"},
                                                          {"NULL", "queryError|-1|returned NULL homeNode_id"},
                                                          {"'0'", "queryError|0|returned zero home node_id"},
                                                          {"'17'", "okay|17|"}};
    for (const auto& value : values) {
        db.admin().exec("DELETE FROM local_parameters");
        if (value.first != nullptr)
            db.admin().exec(std::string("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', ") +
                            value.first + ")");
        int id = -1;
        DatabaseResult result = exec.getHomeNode_id(id);
        EXPECT_EQ(value.second, joined({kind(result), text(id), result.fatalError() ? result.getErrorMessage() : ""}));
    }
}

TEST_F(VisitingUsers, VisitorsAreAddedForEightHoursFoundAndDeleted) {
    time_t before = std::time(nullptr);
    ASSERT_TRUE(exec.addVisitingUser(42).okay()) << exec.getErrorMessage();
    time_t after = std::time(nullptr);
    EXPECT_EQ("subscriber", db.admin().value("SELECT packet_type FROM replica_extra WHERE id = 42"));
    EXPECT_TRUE(std::stol(expiries(42)) >= before + 28800 && std::stol(expiries(42)) <= after + 28800);
    // Adding a known visitor changes nothing.
    visitor(43, before + 60);
    EXPECT_TRUE(exec.addVisitingUser(43).okay());
    EXPECT_EQ(text(before + 60), expiries(43));
    bool known = false;
    EXPECT_EQ("okay|1", joined({kind(exec.hasVisitingUserSubscriberId(42, known)), text(known)}));
    DatabaseResult result = exec.hasVisitingUserSubscriberId(44, known);
    EXPECT_EQ(joined({"notFound", NOT_VISITING, "0"}), joined({kind(result), result.getErrorMessage(), text(known)}));

    ASSERT_TRUE(exec.deleteVisitingUser(42).okay());
    EXPECT_EQ(joined({"", text(before + 60)}), joined({expiries(42), expiries(43)}));
    result = exec.deleteVisitingUser(42);
    EXPECT_EQ(joined({"notFound", NOT_VISITING}), joined({kind(result), result.getErrorMessage()}));
    EXPECT_TRUE(exec.addVisitingUser(0).badParameter());
    db.admin().exec("ALTER TABLE replica_extra RENAME TO replica_extra_old");
    result = exec.addVisitingUser(45);
    EXPECT_TRUE(result.queryError() && holds(result.getErrorMessage(), "replica_extra")) << result.getErrorMessage();
}

TEST_F(VisitingUsers, TimerMovesANearExpiryLaterButNeverShortensOne) {
    provisionAddress(db, 42, "roamer", "visited.example.com");
    provisionAddress(db, 43, "resident", "visited.example.com");
    time_t now = std::time(nullptr);
    visitor(42, now + 600);
    ASSERT_TRUE(exec.updateTimer("roamer", "visited.example.com", 3600).okay()) << exec.getErrorMessage();
    EXPECT_TRUE(std::stol(expiries(42)) >= now + 3600 && std::stol(expiries(42)) <= std::time(nullptr) + 3600);
    long later = std::time(nullptr) + 5 * 3600;
    db.admin().exec("UPDATE replica_extra SET expires = " + text(later) + " WHERE id = 42");
    TraceCapture capture({EXECUTOR});
    ASSERT_TRUE(exec.updateTimer("roamer", "visited.example.com", 3600).okay());
    EXPECT_EQ(text(later), expiries(42));
    EXPECT_TRUE(capture.contains(EXECUTOR, "updateTimer: no update for roamer@visited.example.com"));
    // It needs a handle, a domain, and a visitor of that address.
    DatabaseResult result = exec.updateTimer(nullptr, "visited.example.com", 60);
    EXPECT_EQ("badParameter|missing parameters", joined({kind(result), result.getErrorMessage()}));
    EXPECT_TRUE(exec.updateTimer("roamer", nullptr, 60).badParameter());
    result = exec.updateTimer("resident", "visited.example.com", 60);
    EXPECT_EQ("notFound|sid not found in replica_extra table ", joined({kind(result), result.getErrorMessage()}));
    EXPECT_TRUE(capture.contains(EXECUTOR,
                                 "updateTimer: no subscrinber id for handle=resident & domain=visited.example.com"));
}
