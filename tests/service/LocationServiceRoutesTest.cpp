// The node's default route, its outbound policy and out-of-dialog REFER.
#include "AlarmCapture.h"
#include "AppProperties.h"
#include "ContactRecord.h"
#include "LocationService.h"
#include "Provisioning.h"
#include "TestConfiguration.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using velm::ContactRecord;
using velm::DatabaseResult;
using velm::LocationService;

namespace {

class Routes : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "").okay()); }

    void parameter(const std::string& name, const std::string& value) {
        db.admin().exec("INSERT INTO system_parameters VALUES ('velm', 'system', '" + name + "', '" + value + "')");
    }

    velmtest::TestDatabase db;
    velmtest::AlarmCapture alarms;
    LocationService service;
};

struct OutboundCase {
    const char* name;
    bool internal;
    const char* allowInternal;
    const char* allowExternal;
    const char* proxy;
    const char* direct;
    const char* uri;
    bool allowed;
    // What `proxy` holds afterwards; it starts as "unchanged".
    const char* proxyAfter;
};

class OutboundRoute : public Routes, public testing::WithParamInterface<OutboundCase> {};

} // namespace

TEST_P(OutboundRoute, PolicyOfTheNodeDecides) {
    const OutboundCase& c = GetParam();
    parameter("outbound_allowed_internal", c.allowInternal);
    parameter("outbound_allowed_external", c.allowExternal);
    if (c.proxy != nullptr)
        parameter("outbound_proxy", c.proxy);
    if (c.direct != nullptr)
        parameter("outbound_direct", c.direct);
    std::string proxy = "unchanged";
    bool allowed = !c.allowed;
    DatabaseResult result = service.getOutboundRoute(c.uri, c.internal, proxy, allowed);
    ASSERT_TRUE(result.okay()) << result.getErrorMessage();
    EXPECT_EQ(c.allowed, allowed);
    EXPECT_EQ(c.proxyAfter, proxy);
}

INSTANTIATE_TEST_SUITE_P(
    Policies, OutboundRoute,
    testing::Values(OutboundCase{"ExternalSwitchedOff", false, "t", "f", "proxy.example.net", nullptr,
                                 "sip:bob@far.example.org", false, "unchanged"},
                    OutboundCase{"InternalAlwaysAllowed", true, "f", "f", nullptr, nullptr, "sip:bob@near.example.org",
                                 true, ""},
                    OutboundCase{"InternalThroughProxy", true, "t", "f", "proxy.example.net", "",
                                 "sip:bob@near.example.org", true, "proxy.example.net"},
                    OutboundCase{"SecondBypassHostGoesDirect", false, "t", "t", "proxy.example.net",
                                 "a.example.com, b.example.com", "sip:bob@b.example.com:5070", true, ""},
                    OutboundCase{"BypassSeparators", true, "t", "t", "proxy.example.net",
                                 "a.example.com;c.example.com:d", "sip:bob@c.example.com", true, ""},
                    OutboundCase{"BypassIsCaseSensitive", false, "t", "t", "proxy.example.net",
                                 "a.example.com, b.example.com", "sip:bob@B.example.com", true, "proxy.example.net"},
                    OutboundCase{"HostNotInBypassList", false, "t", "t", "proxy.example.net", "a.example.com",
                                 "sip:bob@example.com", true, "proxy.example.net"}),
    [](const testing::TestParamInfo<OutboundCase>& info) { return std::string(info.param.name); });

TEST_F(Routes, OutboundRouteRejectsBadInput) {
    parameter("outbound_allowed_external", "t");
    std::string proxy = "unchanged";
    bool allowed = false;
    DatabaseResult result = service.getOutboundRoute(nullptr, false, proxy, allowed);
    EXPECT_TRUE(result.badParameter());
    EXPECT_EQ("getOutboundRoute: null outbound uri", result.getErrorMessage());
    result = service.getOutboundRoute("mailto:bob@example.com", false, proxy, allowed);
    EXPECT_TRUE(result.badParameter());
    EXPECT_EQ(0u, result.getErrorMessage().find("getOutboundRoute: invalid outbound uri: "))
        << result.getErrorMessage();
    EXPECT_GT(result.getErrorMessage().size(), std::string("getOutboundRoute: invalid outbound uri: ").size());
    EXPECT_EQ("unchanged", proxy);
    EXPECT_FALSE(allowed);
}

TEST_F(Routes, DefaultRouteIsTheParentContactSet) {
    velmtest::Provisioning provisioning(db.admin());
    provisioning.subscriber(1);
    provisioning.contactSet(40, 1, "sequential", false);
    provisioning.permanentContact(40, "sip:upstream@192.0.2.40");
    parameter("parent_contact", "40");
    std::string ordering;
    bool redirect = true;
    std::vector<ContactRecord> contacts;
    ASSERT_TRUE(service.getDefaultRoute(ordering, redirect, contacts).okay());
    EXPECT_EQ("sequential", ordering);
    EXPECT_FALSE(redirect);
    ASSERT_EQ(1u, contacts.size());
    EXPECT_EQ("sip:upstream@192.0.2.40", contacts[0].address());
}

TEST_F(Routes, DefaultRouteWithoutParentContactHasNoContacts) {
    parameter("parent_contact", "");
    velmtest::TraceCapture capture({"LocationService"});
    std::string ordering;
    bool redirect = false;
    std::vector<ContactRecord> contacts;
    EXPECT_TRUE(service.getDefaultRoute(ordering, redirect, contacts).okay());
    EXPECT_TRUE(contacts.empty());
    EXPECT_TRUE(capture.contains("LocationService", "fetching contacts for csid="));

    db.admin().exec("DELETE FROM system_parameters");
    EXPECT_TRUE(service.getDefaultRoute(ordering, redirect, contacts).notFound());
    EXPECT_TRUE(capture.contains("LocationService", "getHostInfo failed"));
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(Routes, UnreadableHostInformationRaisesTheAlarm) {
    db.admin().exec("DROP TABLE system_parameters");
    std::string ordering;
    std::string proxy;
    bool redirect = false;
    bool allowed = false;
    std::vector<ContactRecord> contacts;
    DatabaseResult route = service.getDefaultRoute(ordering, redirect, contacts);
    DatabaseResult outbound = service.getOutboundRoute("sip:bob@example.com", false, proxy, allowed);
    ASSERT_TRUE(route.queryError());
    ASSERT_TRUE(outbound.queryError());
    EXPECT_EQ((std::vector<std::string>{"database failure - getDefaultRoute. " + route.getErrorMessage(),
                                        "database failure - getOutboundRoute_1. " + outbound.getErrorMessage()}),
              alarms.texts("zuVELMProxyDBAccessFailed"));
}

TEST(OutOfDialogRefer, AllowedUnlessSwitchedOffExplicitly) {
    const std::pair<const char*, bool> cases[] = {{nullptr, true},  {"", true},   {"false", false},
                                                  {"FALSE", false}, {"no", true}, {"true", true}};
    LocationService service;
    for (const auto& c : cases) {
        velmtest::resetProperties();
        if (c.first != nullptr)
            velm::AppProperties::set("Proxy", "EnableOODReferRouting", c.first);
        EXPECT_EQ(c.second, service.isOODReferAllowed()) << (c.first != nullptr ? c.first : "(absent)");
    }
}
