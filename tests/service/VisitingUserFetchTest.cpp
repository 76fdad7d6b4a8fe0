// Visiting users: learning them from the administration service of their
// home node (against a gSOAP service and raw peers that misbehave), and the
// service's operations on the recorded visitors.
#include "ProfileService.h"
#include "Provisioning.h"
#include "RawPeer.h"
#include "ServiceFixture.h"
#include "SubscriberRecord.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <thread>

using velm::DatabaseResult;
using velm::SubscriberRecord;
using velmtest::ProfileService;
using velmtest::RawPeer;

namespace {

const int VISITOR = 42;
const char* const SERVICE_PATH = "/admin/services/visitingUser";
const char* const ACTION = "urn:velm:admin:visitingUser#getVisitingProfile";

class Visitors : public velmtest::ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '7')");
    }

    // The service address and the edge credentials.
    void configure(const std::string& topUrl) {
        parameter("top_url", topUrl);
        parameter("EdgeUsername", "edge");
        parameter("EdgePassword", "s3cret");
    }

    // What replication brings once the home node has answered: the visitor,
    // reachable as o'neil@visited.example.com, homed on `node`.
    void replicate(const char* node) {
        velmtest::AdminConnection admin(db.name());
        velmtest::Provisioning provisioning(admin);
        provisioning.subscriber(VISITOR);
        provisioning.contactSet(VISITOR, VISITOR);
        provisioning.publicAddress(VISITOR, "o'neil", "visited.example.com", VISITOR, true);
        if (node != nullptr)
            admin.exec("INSERT INTO velm_users VALUES (" + std::to_string(VISITOR) + ", " + node + ")");
    }

    void visitor(int sid, long expires) {
        db.admin().exec("INSERT INTO replica_extra (packet_type, id, expires) VALUES ('subscriber', " +
                        std::to_string(sid) + ", " + std::to_string(expires) + ")");
    }

    std::string visitors() { return db.admin().value("SELECT string_agg(id::text, ',' ORDER BY id) FROM replica_extra"); }

    DatabaseResult lookup() { return service.lookupSubscriberPassword("O'Neil", "Visited.Example.COM", subscriber); }

    SubscriberRecord subscriber;
};

struct ArrivalCase {
    const char* name;
    const char* node; // the visitor's home node; null: no velm_users row
    DatabaseResult::status status;
    const char *visitors, *alarm; // alarm null: none
};

class Arrival : public Visitors, public ::testing::WithParamInterface<ArrivalCase> {};

} // namespace

TEST_P(Arrival, TheVisitorIsRecordedAndReadOnceReplicated) {
    const ArrivalCase& c = GetParam();
    ProfileService home(VISITOR);
    // https is called as http, with the service's path behind the address.
    configure("https" + home.address().substr(4));
    std::thread replicator([&] {
        if (home.waitForRequest())
            replicate(c.node);
    });
    DatabaseResult result = lookup();
    replicator.join();

    EXPECT_EQ(c.status, result.m_status) << result.getErrorMessage();
    EXPECT_EQ(VISITOR, subscriber.sid());
    EXPECT_FALSE(subscriber.isLocal());
    EXPECT_EQ(c.visitors, visitors());
    EXPECT_EQ(c.alarm != nullptr ? std::vector<std::string>{c.alarm} : std::vector<std::string>{},
              alarms.texts("zuVELMProxyDBAccessFailed"));

    auto requests = home.requests();
    ASSERT_EQ(1u, requests.size());
    EXPECT_EQ(SERVICE_PATH, requests[0].path);
    EXPECT_EQ(ACTION, requests[0].action);
    EXPECT_EQ("edge", requests[0].user);
    EXPECT_EQ("s3cret", requests[0].password);
    // Lower-cased, and escaped once as it is for the database.
    EXPECT_EQ("o''neil", requests[0].handle);
    EXPECT_EQ("visited.example.com", requests[0].domain);
}

INSTANTIATE_TEST_SUITE_P(
    HomeNodes, Arrival,
    testing::Values(ArrivalCase{"OtherNode", "9", DatabaseResult::OKAY, "42", nullptr},
                    ArrivalCase{"NullNode", "NULL", DatabaseResult::OKAY, "42", nullptr},
                    // Its home moved here meanwhile: no visitor any more.
                    ArrivalCase{"ThisNode", "7", DatabaseResult::OKAY, "", nullptr},
                    ArrivalCase{"NoNodeRow", nullptr, DatabaseResult::NOTFOUND, "42",
                                "database failure - lookupSubscriberPassword_7. sid node not found"}),
    [](const testing::TestParamInfo<ArrivalCase>& info) { return std::string(info.param.name); });

TEST_F(Visitors, AVisitorWhoseRowsNeverArriveIsAConnectionErrorAfterTheWait) {
    ProfileService home(VISITOR);
    configure(home.address());
    DatabaseResult result = lookup();
    EXPECT_TRUE(result.connectionError());
    EXPECT_EQ("42", visitors());
    EXPECT_EQ(1u, home.requests().size());
}

TEST_F(Visitors, ALocalSubscriberIsNotAskedFor) {
    ProfileService home(VISITOR);
    configure(home.address());
    replicate(nullptr);
    EXPECT_TRUE(lookup().okay());
    EXPECT_EQ(VISITOR, subscriber.sid());
    EXPECT_TRUE(subscriber.isLocal());
    EXPECT_TRUE(home.requests().empty());
    EXPECT_EQ("", visitors());
}

TEST_F(Visitors, SoapFaultsOfBothVersionsLeaveNoVisitor) {
    for (int version : {1, 2}) {
        ProfileService home(VISITOR, version);
        db.admin().exec("DELETE FROM system_parameters");
        configure(home.address());
        DatabaseResult result = lookup();
        EXPECT_TRUE(result.queryError()) << version;
        EXPECT_EQ("VU soap error=1", result.getErrorMessage()) << version;
        EXPECT_EQ(1u, home.requests().size());
    }
    EXPECT_EQ("", visitors());
    EXPECT_TRUE(alarms.alarms().empty());
}

namespace {

std::string http(const std::string& status, const std::string& type, const std::string& body) {
    return "HTTP/1.1 " + status + "\r\nContent-Type: " + type + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\n\r\n" + body;
}

std::string envelope(const std::string& envelopeNamespace, const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><SOAP-ENV:Envelope xmlns:SOAP-ENV=\"" + envelopeNamespace +
           "\" xmlns:ns4=\"urn:velm:admin:visitingUser\"><SOAP-ENV:Body>" + body + "</SOAP-ENV:Body></SOAP-ENV:Envelope>";
}

const char* const SOAP11 = "http://schemas.xmlsoap.org/soap/envelope/";
const char* const SOAP12 = "http://www.w3.org/2003/05/soap-envelope";

struct PeerCase {
    const char* name;
    std::string response;
    DatabaseResult::status status;
    const char* message;
    RawPeer::Mode mode = RawPeer::ANSWER;
};

class Peers : public Visitors, public ::testing::WithParamInterface<PeerCase> {};

} // namespace

TEST_P(Peers, AnswerOutcome) {
    const PeerCase& c = GetParam();
    RawPeer peer(c.response, c.mode);
    configure(peer.address());
    DatabaseResult result = lookup();
    EXPECT_EQ(c.status, result.m_status);
    EXPECT_EQ(c.message, result.getErrorMessage());
    EXPECT_FALSE(peer.request().empty());
    EXPECT_EQ("", visitors());
    EXPECT_TRUE(alarms.alarms().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Answers, Peers,
    testing::Values(
        PeerCase{"GarbageWith200", http("200 OK", "text/xml", "hello, world"), DatabaseResult::QUERY_ERROR,
                 "VU soap error=200"},
        PeerCase{"HtmlErrorPage",
                 http("500 Internal Server Error", "text/html", "<html><body><h1>Oops</h1></body></html>"),
                 DatabaseResult::QUERY_ERROR, "VU soap error=3"},
        PeerCase{"ServerErrorWithoutBody", http("500 Internal Server Error", "text/plain", ""),
                 DatabaseResult::QUERY_ERROR, "VU soap error=500"},
        PeerCase{"NeverAnswers", "", DatabaseResult::QUERY_ERROR, "VU soap error=-1", RawPeer::SILENT},
        // Every read finds a byte, the answer never ends: the whole call's time-out ends it.
        PeerCase{"DripsForEver", "HTTP/1.1 200 OK\r\nX-Slow: x", DatabaseResult::QUERY_ERROR, "VU soap error=-1",
                 RawPeer::DRIP},
        // Answers the service may give: SOAP 1.2, or no id at all.
        PeerCase{"Soap12Envelope",
                 http("200 OK", "application/soap+xml",
                      envelope(SOAP12, "<ns4:getVisitingProfileResponse><subscriberId>0</subscriberId>"
                                       "</ns4:getVisitingProfileResponse>")),
                 DatabaseResult::NOTFOUND, ""},
        PeerCase{"ResponseWithoutId",
                 http("200 OK", "text/xml", envelope(SOAP11, "<ns4:getVisitingProfileResponse/>")),
                 DatabaseResult::NOTFOUND, ""}),
    [](const testing::TestParamInfo<PeerCase>& info) { return std::string(info.param.name); });

namespace {

struct SetupCase {
    const char* name;
    const char* topUrl; // null: no row; "PEER": the peer's address
    const char *user, *password, *warning;
};

const char* const NO_ADDRESS = "lookupSubscriberPassword: WARNING administration service address (top_url) not found";
const char* const NO_CREDENTIALS = "LocationService:: WARNING user name and/or password not found";

class Setup : public Visitors, public ::testing::WithParamInterface<SetupCase> {};

} // namespace

TEST_P(Setup, WithoutAServiceOrCredentialsNothingIsSent) {
    const SetupCase& c = GetParam();
    RawPeer peer("HTTP/1.1 500 Internal Server Error\r\nContent-Length: 0\r\n\r\n");
    if (c.topUrl != nullptr)
        parameter("top_url", std::string(c.topUrl) == "PEER" ? peer.address() : c.topUrl);
    if (c.user != nullptr)
        parameter("EdgeUsername", c.user);
    if (c.password != nullptr)
        parameter("EdgePassword", c.password);
    velmtest::TraceCapture traces({"LocationService"});
    EXPECT_TRUE(lookup().notFound());
    EXPECT_TRUE(traces.contains("LocationService", c.warning));
    EXPECT_TRUE(peer.request().empty());
    EXPECT_EQ("", visitors());
    EXPECT_TRUE(alarms.alarms().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Configurations, Setup,
    testing::Values(SetupCase{"NoAddress", nullptr, "edge", "pw", NO_ADDRESS},
                    SetupCase{"PathOnly", "/admin", "edge", "pw", NO_ADDRESS},
                    SetupCase{"NotHttp", "ftp://127.0.0.1", "edge", "pw", NO_ADDRESS},
                    SetupCase{"NoUser", "PEER", nullptr, "pw", NO_CREDENTIALS},
                    SetupCase{"NoPassword", "PEER", "edge", nullptr, NO_CREDENTIALS}),
    [](const testing::TestParamInfo<SetupCase>& info) { return std::string(info.param.name); });

TEST_F(Visitors, RemovingExpiredVisitorsKeepsTheLiveOnes) {
    velmtest::TraceCapture traces({"LocationService"});
    long now = std::time(nullptr);
    visitor(1, now - 10);
    visitor(2, now + 600);
    visitor(3, now - 1);
    EXPECT_TRUE(service.removeExpiredVisitingUsers().okay());
    EXPECT_EQ("2", visitors());
    EXPECT_TRUE(traces.contains("LocationService", "removed -2  expired visiting users"));
}

TEST_F(Visitors, TheTimerOfAVisitorGivenInAnyCaseMovesLater) {
    replicate(nullptr);
    long now = std::time(nullptr);
    visitor(VISITOR, now + 60);
    EXPECT_TRUE(service.updateTimer("O'Neil", "Visited.example.com", 3600).okay());
    EXPECT_GE(std::stol(db.admin().value("SELECT expires FROM replica_extra")), now + 3600);
}

TEST_F(Visitors, OnlyARecordedVisitorIsNotHome) {
    int node = 0;
    EXPECT_TRUE(service.getHomeNode_id(node).okay());
    EXPECT_EQ(7, node);
    bool home = false;
    EXPECT_TRUE(service.isSubscriberHome(8, home).okay());
    EXPECT_TRUE(home);
    EXPECT_TRUE(service.addVisitingUser(8).okay());
    EXPECT_EQ("8", visitors());
    EXPECT_TRUE(service.isSubscriberHome(8, home).okay());
    EXPECT_FALSE(home);
    EXPECT_TRUE(service.deleteVisitingUser(8).okay());
    EXPECT_TRUE(service.deleteVisitingUser(8).notFound());
    EXPECT_TRUE(alarms.alarms().empty());
}
