#include "AlarmCapture.h"
#include "AppProperties.h"
#include "ContactRecord.h"
#include "LocationService.h"
#include "Provisioning.h"
#include "Registrations.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <ctime>
#include <memory>
#include <string>
#include <vector>

using velm::AppProperties;
using velm::ContactRecord;
using velm::DatabaseResult;
using velm::LocationService;

namespace {

struct LookupCase {
    const char* uri;
    DatabaseResult::status status;
    const char* messageStart;
    std::vector<std::string> addresses;
};

} // namespace

class DigitMap : public testing::Test {
protected:
    void SetUp() override {
        velmtest::server();
        AppProperties::set("Database", "ProxyDatabaseUser", "velm");
        AppProperties::set("Services", "velm.sip.db", db.name().c_str());
        service.reset(LocationService::getConnection());

        velmtest::Provisioning provisioning(db.admin());
        long later = static_cast<long>(time(nullptr)) + 3600;
        provisioning.subscriber(1);
        provisioning.contactSet(10, 1);
        provisioning.contact(10, "sip:alice@192.0.2.1:5062;transport=tcp", "0.800000", later);
        provisioning.contact(10, "sip:bob@192.0.2.2:5060", "0.0", later);
        provisioning.contactSet(11, 1);
        provisioning.contactSet(12, 1);
        provisioning.contact(12, "sip:carol@192.0.2.3", "0.800000", later);
        provisioning.contactSet(13, 1);
        provisioning.contact(13, "garbage", "0.800000", later);
        // A subscriber served by node 7, seen from node 1.
        provisioning.subscriber(2);
        provisioning.contactSet(20, 2);
        provisioning.publicAddress(20, "visitor", "example.com", 20, true);
        db.admin().exec("INSERT INTO velm_users (sid, node_id) VALUES (2, 7)");
        db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '1')");
        db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('555', 10), ('666', 11), ('777', 12), "
                        "('888', 13), ('v', 10)");
        ASSERT_TRUE(service->createPrefixMap().okay());
    }
    void TearDown() override { service->destroyPrefixmap(); }

    velmtest::TestDatabase db;
    std::unique_ptr<LocationService> service;
};

TEST_F(DigitMap, RoutesByPrefixAndRewritesOnlyTheFirstContact) {
    const LookupCase cases[] = {
        {"sip:5551234@example.com", DatabaseResult::OKAY, "",
         {"sip:5551234@192.0.2.1:5062;transport=tcp", "sip:bob@192.0.2.2:5060"}},
        // Without port and parameters the separators stay.
        {"sips:7771@Example.com;user=phone", DatabaseResult::OKAY, "", {"sips:7771@192.0.2.3:;"}},
        {"sip:4441@example.com", DatabaseResult::NOTFOUND, "", {}},
        {"sip:6661@example.com", DatabaseResult::QUERY_ERROR, "no contact found", {}},
        {"sip:8881@example.com", DatabaseResult::QUERY_ERROR, "lookupDigitMap: contact address garbage is not a SIP URI",
         {"garbage"}},
        {"sip:visitor@example.com", DatabaseResult::NOTFOUND, "lookupDigitMap passed visiting user", {}},
        {"sip:example.com", DatabaseResult::QUERY_ERROR, "lookupDigitMap: null uri.user or .domain", {}},
        {"tel:5551234", DatabaseResult::QUERY_ERROR, "lookupDigitMap: null uri.user or .domain", {}},
        {nullptr, DatabaseResult::QUERY_ERROR, "null uri", {}},
    };
    for (const LookupCase& c : cases) {
        SCOPED_TRACE(c.uri != nullptr ? c.uri : "(null)");
        std::string ordering = "cycle";
        bool redirect = true;
        std::vector<ContactRecord> contacts;
        DatabaseResult result = service->lookupDigitMap(c.uri, ordering, redirect, contacts);
        EXPECT_EQ(c.status, result.m_status) << result.getErrorMessage();
        EXPECT_EQ(0u, result.getErrorMessage().find(c.messageStart)) << result.getErrorMessage();
        EXPECT_EQ(c.addresses, velmtest::addresses(contacts));
        EXPECT_EQ("sequential", ordering);
    }
}

TEST_F(DigitMap, WithoutATreeTheAnswerIsOkAndEmpty) {
    service->destroyPrefixmap();
    std::string ordering;
    bool redirect = true;
    std::vector<ContactRecord> contacts;
    DatabaseResult result = service->lookupDigitMap("sip:5551234@example.com", ordering, redirect, contacts);
    EXPECT_TRUE(result.okay());
    EXPECT_TRUE(contacts.empty());
    EXPECT_FALSE(redirect);
}

TEST_F(DigitMap, AFailedContactQueryIsAlarmedAndTraced) {
    db.admin().exec("DROP TABLE contact CASCADE");
    velmtest::AlarmCapture alarms;
    velmtest::TraceCapture capture({"LocationService"});
    std::string ordering;
    bool redirect = false;
    std::vector<ContactRecord> contacts;
    DatabaseResult result = service->lookupDigitMap("sip:5551234@example.com", ordering, redirect, contacts);
    EXPECT_TRUE(result.queryError());
    EXPECT_EQ(std::vector<std::string>{"database failure - lookupDigitMap. " + result.getErrorMessage()},
              alarms.texts("zuVELMProxyDBAccessFailed"));
    EXPECT_TRUE(capture.contains("LocationService", "lookup failed: " + result.getErrorMessage()));
}
