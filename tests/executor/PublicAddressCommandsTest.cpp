// Reading public addresses: by name, by id, by extension, walking them, and
// the identity and primary address of their subscriber.
#include "DatabaseCommandExecutor.h"
#include "Provisioning.h"
#include "PublicAddressRecord.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velmtest::TestDatabase;

namespace {

const char* const CHANNEL = "DatabaseCommandExecutor";

// Subscriber 7: set 100 with alice (10, primary) and the aliases 1234 (11)
// and al (12). Subscriber 8: set 200 with bob (20, primary). Subscriber 9:
// set 300 with carol (30, primary).
class PublicAddressCommands : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(exec.connect(db.name().c_str(), "velm", "pw")) << exec.getErrorMessage();
        velmtest::Provisioning rows(db.admin());
        for (int sid : {7, 8, 9})
            rows.subscriber(sid);
        rows.contactSet(100, 7);
        rows.contactSet(200, 8);
        rows.contactSet(300, 9);
        rows.publicAddress(10, "alice", "example.com", 100, true);
        rows.publicAddress(11, "1234", "example.com", 100, false);
        rows.publicAddress(12, "al", "example.com", 100, false);
        rows.publicAddress(20, "bob", "example.com", 200, true);
        rows.publicAddress(30, "carol", "example.org", 300, true);
    }

    TestDatabase db;
    DatabaseCommandExecutor exec;
};

} // namespace

TEST_F(PublicAddressCommands, LookupByNameFillsTheRecordAndEscapesTheHandle) {
    db.admin().exec("UPDATE public_address SET scope = 'private' WHERE public_address_id = 11");
    db.admin().exec("UPDATE public_address SET handle = 'o''brien' WHERE public_address_id = 12");
    velm::PublicAddressRecord address;
    ASSERT_TRUE(exec.lookupPublicAddress("1234", "example.com", address).okay()) << exec.getErrorMessage();
    EXPECT_EQ(11, address.public_address_id());
    EXPECT_EQ("1234", address.handle());
    EXPECT_EQ("example.com", address.domain());
    EXPECT_EQ(100, address.csid());
    EXPECT_EQ("private", address.scope());

    velm::PublicAddressRecord unknown;
    EXPECT_TRUE(exec.lookupPublicAddress("1234", "example.org", unknown).notFound());
    EXPECT_EQ(-1, unknown.public_address_id());
    DatabaseResult invalid = exec.lookupPublicAddress(nullptr, "example.com", unknown);
    EXPECT_TRUE(invalid.queryError());
    EXPECT_EQ("invalid parameters", invalid.getErrorMessage());

    velm::PublicAddressRecord quoted;
    ASSERT_TRUE(exec.lookupPublicAddress("o'brien", "example.com", quoted).okay()) << exec.getErrorMessage();
    EXPECT_EQ("o'brien", quoted.handle());
    EXPECT_EQ(12, quoted.public_address_id());
}

TEST_F(PublicAddressCommands, LookupByIdTellsPrimaryFromAlias) {
    std::string handle, domain;
    bool primary = false;
    ASSERT_TRUE(exec.lookupPublicAddress(10, handle, domain, primary).okay()) << exec.getErrorMessage();
    EXPECT_EQ("alice", handle);
    EXPECT_EQ("example.com", domain);
    EXPECT_TRUE(primary);
    ASSERT_TRUE(exec.lookupPublicAddress(12, handle, domain, primary).okay());
    EXPECT_EQ("al", handle);
    EXPECT_FALSE(primary);
    ASSERT_TRUE(exec.lookupPublicAddress(30, handle, domain).okay());
    EXPECT_EQ("example.org", domain);

    velmtest::TraceCapture capture({CHANNEL});
    EXPECT_TRUE(exec.lookupPublicAddress(99, handle, domain).notFound());
    EXPECT_TRUE(capture.contains(CHANNEL, "zero rows found"));
    EXPECT_EQ("carol", handle);
}

TEST_F(PublicAddressCommands, IdentityIsANameAddress) {
    db.admin().exec("INSERT INTO identity VALUES (7, 'sip:alice@example.com', 'Alice A'), "
                    "(8, 'sip:bob@example.com', NULL)");
    std::string identity;
    ASSERT_TRUE(exec.getIdentity("1234", "example.com", identity).okay()) << exec.getErrorMessage();
    EXPECT_EQ("\"Alice A\" <sip:alice@example.com>", identity);
    ASSERT_TRUE(exec.getIdentity("bob", "example.com", identity).okay());
    EXPECT_EQ("<sip:bob@example.com>", identity);
    EXPECT_TRUE(exec.getIdentity("carol", "example.org", identity).notFound());
    EXPECT_EQ("", identity);
    DatabaseResult invalid = exec.getIdentity("carol", nullptr, identity);
    EXPECT_TRUE(invalid.queryError());
    EXPECT_EQ("invalid handle/domain parameters", invalid.getErrorMessage());
}

TEST_F(PublicAddressCommands, PrimaryIdOfAnAliasAndLeniencyForUnknownIds) {
    int primaryId = 0;
    ASSERT_TRUE(exec.getPrimaryId(12, primaryId).okay()) << exec.getErrorMessage();
    EXPECT_EQ(10, primaryId);
    ASSERT_TRUE(exec.getPrimaryId(20, primaryId).okay());
    EXPECT_EQ(20, primaryId);

    primaryId = 555;
    DatabaseResult unknown = exec.getPrimaryId(99, primaryId);
    EXPECT_TRUE(unknown.okay());
    EXPECT_EQ(555, primaryId);
}

TEST_F(PublicAddressCommands, WalkingPrimariesAndAliasesInIdOrder) {
    velmtest::TraceCapture capture({CHANNEL});
    std::vector<int> primaries;
    int id = 0;
    DatabaseResult step;
    while ((step = exec.getNextPublicAddressId(id, id)).okay())
        primaries.push_back(id);
    EXPECT_TRUE(step.notFound()) << step.getErrorMessage();
    EXPECT_EQ((std::vector<int>{10, 20, 30}), primaries);
    EXPECT_TRUE(capture.contains(CHANNEL, "SELECT DISTINCT p.public_address_id FROM public_address p WHERE "
                                          "p.primary_handle='t' AND p.public_address_id > '20' ORDER BY "
                                          "p.public_address_id ASC LIMIT 1;"));
    EXPECT_TRUE(capture.contains(CHANNEL, "getNextPublicAddressId: pNextId=30"));

    std::vector<int> aliases;
    id = 0;
    while ((step = exec.getNextAliasId(10, id, id)).okay())
        aliases.push_back(id);
    EXPECT_TRUE(step.notFound());
    EXPECT_EQ((std::vector<int>{11, 12}), aliases);
    EXPECT_TRUE(exec.getNextAliasId(20, 0, id).notFound());
}

TEST_F(PublicAddressCommands, ExtensionLeadsToThePrimaryAndCountsRegistrations) {
    velmtest::Provisioning rows(db.admin());
    rows.contact(100, "sip:a@10.0.0.1", "0.800000", 2000000000);
    rows.contact(100, "sip:a@10.0.0.2", "0.000000", 2000000000);
    rows.permanentContact(100, "sip:a@10.0.0.3");

    int paid = 0, numReg = -1;
    std::string handle, domain;
    ASSERT_TRUE(exec.lookupExtension("1234", paid, handle, domain, numReg).okay()) << exec.getErrorMessage();
    EXPECT_EQ(10, paid);
    EXPECT_EQ("alice", handle);
    EXPECT_EQ("example.com", domain);
    EXPECT_EQ(2, numReg);

    ASSERT_TRUE(exec.lookupExtension("bob", paid, handle, domain, numReg).okay());
    EXPECT_EQ(20, paid);
    EXPECT_EQ(0, numReg);
    EXPECT_TRUE(exec.lookupExtension("9999", paid, handle, domain, numReg).notFound());
}
