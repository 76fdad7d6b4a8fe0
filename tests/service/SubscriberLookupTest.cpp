// Public-address keys, subscribers and identities, and which node serves a
// user.
#include "Provisioning.h"
#include "ServiceFixture.h"
#include "SubscriberRecord.h"

#include <gtest/gtest.h>

#include <string>

using velm::DatabaseResult;
using velm::SubscriberRecord;

namespace {

const int KEY = 100;
const int CSID = 10;

// alice@example.com (sid 1) and o'neil@example.com (sid 2), optionally
// homed on a node, on a node whose replica_id is optionally set.
class Lookups : public velmtest::ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        velmtest::Provisioning provisioning(db.admin());
        provisioning.subscriber(1);
        provisioning.contactSet(CSID, 1);
        provisioning.publicAddress(KEY, "alice", "example.com", CSID, true);
        provisioning.subscriber(2);
        provisioning.contactSet(CSID + 1, 2);
        provisioning.publicAddress(KEY + 1, "o'neil", "example.com", CSID + 1, true);
    }

    void homeOn(int sid, const std::string& node) {
        db.admin().exec("INSERT INTO velm_users (sid, node_id) VALUES (" + std::to_string(sid) + ", " + node + ")");
    }

    void thisNode(const std::string& id) {
        db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '" + id + "')");
    }
};

struct NodeCase {
    const char* name;
    const char* node;      // velm_users.node_id of alice; null: no row
    const char* replicaId; // this node's id; null: no row
    DatabaseResult::status local, key, subscriber;
    bool isLocal;
    const char* alarm; // the one alarm of lookupSubscriber, or null
};

class NodeCheck : public Lookups, public ::testing::WithParamInterface<NodeCase> {};

} // namespace

TEST_P(NodeCheck, DecidesLocalOrVisiting) {
    const NodeCase& c = GetParam();
    if (c.node != nullptr)
        homeOn(1, c.node);
    if (c.replicaId != nullptr)
        thisNode(c.replicaId);

    EXPECT_EQ(c.local, service.isLocalUser("Alice", "EXAMPLE.com").m_status);
    EXPECT_EQ(c.local, service.isLocalUser("sip:ALICE@example.com;transport=tcp").m_status);

    int key = -1;
    DatabaseResult result = service.getPublicAddressKey("sip:Alice@Example.COM", key);
    EXPECT_EQ(c.key, result.m_status) << result.getErrorMessage();
    EXPECT_EQ(c.key == DatabaseResult::OKAY ? KEY : -1, key);
    if (c.key == DatabaseResult::NOTFOUND) {
        EXPECT_EQ("getPublicAddressKey passed visiting user", result.getErrorMessage());
    }

    // The contact set is found whichever node serves the user.
    int csid = -1;
    key = -1;
    EXPECT_TRUE(service.getPublicAddressKeyCSID("ALICE", "example.com", key, csid).okay());
    EXPECT_EQ(KEY, key);
    EXPECT_EQ(CSID, csid);

    size_t before = alarms.alarms().size();
    SubscriberRecord subscriber;
    result = service.lookupSubscriber("Alice", "Example.com", subscriber);
    EXPECT_EQ(c.subscriber, result.m_status) << result.getErrorMessage();
    EXPECT_EQ(1, subscriber.sid());
    EXPECT_EQ(c.isLocal, subscriber.isLocal());
    auto raised = alarms.alarms();
    ASSERT_EQ(before + (c.alarm != nullptr), raised.size());
    if (c.alarm != nullptr) {
        EXPECT_EQ(c.alarm, raised.back().second);
    }
}

const DatabaseResult::status OK = DatabaseResult::OKAY;
const DatabaseResult::status NOT_FOUND = DatabaseResult::NOTFOUND;
const DatabaseResult::status QUERY = DatabaseResult::QUERY_ERROR;

INSTANTIATE_TEST_SUITE_P(
    Nodes, NodeCheck,
    testing::Values(NodeCase{"NoNodeRow", nullptr, "7", OK, OK, OK, true, nullptr},
                    NodeCase{"NullNode", "NULL", "7", OK, OK, OK, false, nullptr},
                    NodeCase{"ThisNode", "7", "7", OK, OK, OK, true, nullptr},
                    NodeCase{"OtherNode", "8", "7", NOT_FOUND, NOT_FOUND, OK, false, nullptr},
                    NodeCase{"NoReplicaId", "8", nullptr, QUERY, QUERY, QUERY, false, nullptr},
                    NodeCase{"ZeroReplicaId", "8", "0", QUERY, QUERY, QUERY, false,
                             "database failure - lookupSubscriber_3. returned zero home node_id"}),
    [](const testing::TestParamInfo<NodeCase>& info) { return std::string(info.param.name); });

TEST_F(Lookups, AQuoteInTheHandleIsEscapedOnce) {
    // Homed elsewhere, so the node query must find the row too.
    homeOn(2, "8");
    thisNode("7");
    int key = -1;
    int csid = -1;
    EXPECT_TRUE(service.getPublicAddressKeyCSID("O'Neil", "example.com", key, csid).okay());
    EXPECT_EQ(KEY + 1, key);
    EXPECT_TRUE(service.getPublicAddressKey("o'neil", "example.com", key).notFound());
    EXPECT_TRUE(service.isLocalUser("O'NEIL", "example.com").notFound());
    SubscriberRecord subscriber;
    EXPECT_TRUE(service.lookupSubscriber("o'neil", "example.com", subscriber).okay());
    EXPECT_EQ(2, subscriber.sid());
    EXPECT_FALSE(subscriber.isLocal());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(Lookups, UnknownAndInvalidInput) {
    int key = -1;
    int csid = -1;
    EXPECT_TRUE(service.getPublicAddressKey("bob", "example.com", key).notFound());
    EXPECT_TRUE(service.getPublicAddressKeyCSID("bob", "example.com", key, csid).notFound());
    EXPECT_EQ(-1, key);
    EXPECT_EQ(-1, csid);

    DatabaseResult result = service.getPublicAddressKey("alice@example.com", key);
    EXPECT_TRUE(result.queryError());
    EXPECT_EQ("getPublicAddressKey: invalid request uri", result.getErrorMessage());
    result = service.isLocalUser(std::string("not a uri"));
    EXPECT_TRUE(result.queryError());
    EXPECT_EQ("isVisitingUser: invalid lookupAddress", result.getErrorMessage());

    SubscriberRecord subscriber;
    EXPECT_TRUE(service.lookupSubscriber("bob", "example.com", subscriber).notFound());
    EXPECT_EQ(-1, subscriber.sid());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(Lookups, IdentityByAddressOrKey) {
    db.admin().exec("INSERT INTO identity VALUES (1, 'sip:alice@example.com', 'Alice A')");
    std::string identity;
    EXPECT_TRUE(service.getIdentity("ALICE", "example.com", identity).okay());
    EXPECT_EQ("\"Alice A\" <sip:alice@example.com>", identity);
    identity.clear();
    EXPECT_TRUE(service.getIdentity(KEY, identity).okay());
    EXPECT_EQ("\"Alice A\" <sip:alice@example.com>", identity);

    // o'neil has no identity row; key 999 no address.
    EXPECT_TRUE(service.getIdentity(KEY + 1, identity).notFound());
    EXPECT_EQ("", identity);
    identity = "kept";
    EXPECT_TRUE(service.getIdentity(999, identity).notFound());
    EXPECT_EQ("kept", identity);

    std::string user;
    std::string domain;
    EXPECT_TRUE(service.getPublicAddress(KEY + 1, user, domain).okay());
    EXPECT_EQ("o'neil", user);
    EXPECT_EQ("example.com", domain);
    EXPECT_TRUE(service.getPublicAddress(999, user, domain).notFound());
    EXPECT_TRUE(alarms.alarms().empty());
}
