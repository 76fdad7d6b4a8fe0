// The platform's process-wide services: configuration, traces, alarms, the contacts cache, the resolver module.
#include "AlarmCapture.h"
#include "AppProperties.h"
#include "ContactRecord.h"
#include "ContactResolverAdapter.h"
#include "ContactsCache.h"
#include "EventMgr.h"
#include "ServiceRegistrar.h"
#include "TempDirectory.h"
#include "Trace.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

using velm::AppProperties;
using velm::ContactResolverAdapter;
using velm::Trace;
using Lines = std::vector<std::string>;

namespace {

std::string value(const char* section, const char* key) {
    const char* text = AppProperties::get(section, key);
    return text != nullptr ? text : "<null>";
}

// Where the database service is, after whether it is configured; "velm" when it is not.
std::string locate() {
    std::string location = "stale";
    bool found = velm::ServiceRegistrar::instance()->locate("velm.sip.db", location, "velm");
    return std::to_string(found) + " " + location;
}

std::vector<velm::ContactRecord> records(const Lines& addresses) {
    std::vector<velm::ContactRecord> all(addresses.size());
    for (size_t i = 0; i < addresses.size(); ++i)
        all[i].setAddress(addresses[i]);
    return all;
}

// The cache's answer for (name, key): found flag, ordering, redirect, addresses; the outputs start as "kept".
std::string cached(const char* name, int key) {
    std::vector<velm::ContactRecord> contacts = records({"kept"});
    std::string ordering = "kept";
    bool redirect = true;
    std::string text = std::to_string(ContactsCache::instance()->lookup(name, key, contacts, ordering, redirect));
    text += " " + ordering + (redirect ? " redirect" : "");
    for (const auto& record : contacts)
        text += " " + record.address();
    return text;
}

void configureResolver(const std::string& module) {
    AppProperties::set("LocationService", "ResolverModule", module.c_str());
}

} // namespace

TEST(PlatformAppProperties, FileValuesOverridesAndTheServicesTheyLocate) {
    velmtest::TempDirectory directory;
    std::string file = directory.write("velm.conf", "[SipServer]\nDatabaseType = pgsql\nPrefixMapInterval=5\n"
                                                    "[Services]\nvelm.sip.db = postgresql://db/velm\n");
    ASSERT_TRUE(AppProperties::load(file.c_str()));
    EXPECT_EQ("pgsql", value("SipServer", "DatabaseType"));
    EXPECT_EQ("5", value("SipServer", "PrefixMapInterval"));
    EXPECT_EQ("<null>", value("Absent", "DatabaseType"));
    EXPECT_EQ("1 postgresql://db/velm", locate());

    const char* before = AppProperties::get("SipServer", "PrefixMapInterval");
    AppProperties::set("SipServer", "PrefixMapInterval", "60");
    EXPECT_EQ("60", value("SipServer", "PrefixMapInterval"));
    EXPECT_STREQ("5", before) << "a text handed out earlier stays valid";
    AppProperties::set("SipServer", "DatabaseType", nullptr);
    EXPECT_EQ("<null>", value("SipServer", "DatabaseType"));

    ASSERT_TRUE(AppProperties::load(file.c_str()));
    EXPECT_EQ("5", value("SipServer", "PrefixMapInterval")) << "a load replaces every value";
    EXPECT_FALSE(AppProperties::load((directory.path() + "/absent.conf").c_str()));
    EXPECT_FALSE(AppProperties::load(nullptr));
    EXPECT_EQ("5", value("SipServer", "PrefixMapInterval")) << "a failed load keeps the values";
    AppProperties::clear();
    EXPECT_EQ("<null>", value("SipServer", "PrefixMapInterval"));
    EXPECT_EQ("0 velm", locate()) << "an unconfigured service is at its fallback";

    AppProperties::set(nullptr, "Key", "value");
    AppProperties::set("Section", nullptr, "value");
    EXPECT_EQ(nullptr, AppProperties::get(nullptr, "Key"));
    EXPECT_EQ(nullptr, AppProperties::get("Section", nullptr));
}

TEST(PlatformAppProperties, DatabaseKeyFromPasswordFileOrEnvironment) {
    velmtest::TempDirectory directory;
    std::string key = "stale";
    unsetenv("VELM_DB_PASSWORD");
    EXPECT_TRUE(AppProperties::getDatabaseKey(key));
    EXPECT_EQ("", key);

    setenv("VELM_DB_PASSWORD", "from-environment", 1);
    EXPECT_TRUE(AppProperties::getDatabaseKey(key));
    EXPECT_EQ("from-environment", key);

    AppProperties::set("Database", "PasswordFile", directory.write("db.password", "from file\r\nsecond\n").c_str());
    EXPECT_TRUE(AppProperties::getDatabaseKey(key));
    EXPECT_EQ("from file", key) << "the file wins over the environment";

    AppProperties::set("Database", "PasswordFile", (directory.path() + "/absent").c_str());
    EXPECT_FALSE(AppProperties::getDatabaseKey(key));
    EXPECT_EQ("", key);
}

TEST(PlatformTrace, ChannelsWriteWhileSwitchedOnAndLogLinesAlways) {
    velmtest::TraceCapture capture({});
    Trace trace("PlatformTrace.Gate");
    ASSERT_FALSE(trace.enabled());
    trace.prn("lookupContacts() key=%d", 42);
    trace.prn(std::string("plain text"));
    EXPECT_TRUE(capture.lines("PlatformTrace.Gate").empty());

    Trace::enable("PlatformTrace.Gate", true);
    EXPECT_TRUE(Trace("PlatformTrace.Gate").enabled()) << "channels of one name share their switch";
    EXPECT_FALSE(Trace("PlatformTrace.Other").enabled());
    std::string longText(5000, 'x');
    trace.prn("lookupContacts() key=%d", 42);
    trace.prn(std::string("plain text"));
    trace.prn("start %s end", longText.c_str());
    Trace::enable("PlatformTrace.Gate", false);
    trace.prn("after %s", "switching off");
    trace.log("connect failed: %s", "no route");
    trace.logToSyslog(8, 6, "No primary key was found in lookupContactsNoCache for key 42");
    EXPECT_EQ((Lines{"lookupContacts() key=42", "plain text", "start " + longText + " end", "connect failed: no route",
                     "No primary key was found in lookupContactsNoCache for key 42"}),
              capture.lines("PlatformTrace.Gate"));

    Trace& shared = velm::STrace::instance();
    EXPECT_EQ(&shared, &velm::STrace::instance());
    shared.log("trusted hosts %d", 3);
    EXPECT_EQ((Lines{"trusted hosts 3"}), capture.lines(shared.name()));

    // Configuration and the environment switch channels on as they are made.
    AppProperties::set("Trace", "PlatformTrace.Configured", "yes");
    AppProperties::set("Trace", "PlatformTrace.Off", "off");
    setenv("VELM_TRACE", "PlatformTrace.Listed,PlatformTrace.Also", 1);
    EXPECT_TRUE(Trace("PlatformTrace.Configured").enabled());
    EXPECT_TRUE(Trace("PlatformTrace.Listed").enabled());
    EXPECT_TRUE(Trace("PlatformTrace.Also").enabled());
    EXPECT_FALSE(Trace("PlatformTrace.Unlisted").enabled());
    EXPECT_FALSE(Trace("PlatformTrace.Off").enabled());
    AppProperties::set("Trace", "All", "on");
    EXPECT_TRUE(Trace("PlatformTrace.Anything").enabled());
}

// The default sink is made at the first line that no installed sink takes; without [Trace] Output it writes to
// standard error.
TEST(PlatformTrace, DefaultSinkTakesTheLinesOnceTheInstalledSinkIsRemoved) {
    Trace trace("PlatformTrace.Default");
    Lines captured;
    {
        velmtest::TraceCapture capture({});
        trace.log("to the capture");
        captured = capture.lines("PlatformTrace.Default");
    }
    testing::internal::CaptureStderr();
    trace.log("first %d", 1);
    trace.log("second\n");
    EXPECT_EQ("[PlatformTrace.Default] first 1\n[PlatformTrace.Default] second\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ((Lines{"to the capture"}), captured);
}

TEST(PlatformEventMgr, AlarmsChooseTheirIdentifierByStateUntilTheSinkIsRemoved) {
    using Events = std::vector<std::pair<std::string, std::string>>;
    auto capture = std::make_unique<velmtest::AlarmCapture>();
    EventMgrForSipServer().ProxyDBAccess("database failure - connect", 0);
    EventMgrForSipServer().ProxyDBAccess("back", 1);
    EventMgrForSipServer().ProxyDBAccess("odd state", 2);
    EventMgrForEventServer().EvtSrvConfCapacity("80 percent usage");
    EventMgrForEventServer().EvtSrvConfCapExceeded("100 percent usage", 0);
    EventMgrForEventServer().EvtSrvConfCapExceeded("back below", 1);
    EXPECT_EQ((Events{{"zuVELMProxyDBAccessFailed", "database failure - connect"},
                      {"zuVELMProxyDBAccessOK", "back"},
                      {"zuVELMProxyDBAccessFailed", "odd state"},
                      {"zuVELMConfCapacity", "80 percent Conf Ext Used: 80 percent usage"},
                      {"zuVELMConfCapExceeded", "Max Conf Ext Used: 100 percent usage"},
                      {"zuVELMConfCapOK", "Max Conf Ext Used: back below"}}),
              capture->alarms());
    capture.reset();
    velmtest::AlarmCapture later;
    EventMgr::logIt("two", "second");
    EXPECT_EQ((Events{{"two", "second"}}), later.alarms());
}

TEST(PlatformContactsCache, HostFillsAndInvalidatesByNameAndKey) {
    EXPECT_EQ("0 kept redirect kept", cached("PROXY", 42)) << "nothing stored leaves the outputs";
    LocalContactsCache& cache = LocalContactsCache::shared();
    cache.store("PROXY", 42, records({"sip:a@192.0.2.1", "sip:b@192.0.2.2"}), "cycle", false);
    cache.store("PROXY", 43, records({"sip:c@192.0.2.3"}), "sequential", true);
    cache.store("OTHER", 42, records({"sip:other@192.0.2.9"}), "sequential", true);
    EXPECT_EQ("1 cycle kept sip:a@192.0.2.1 sip:b@192.0.2.2", cached("PROXY", 42));
    cache.store("PROXY", 42, records({"sip:new@192.0.2.4"}), "sequential", true);
    EXPECT_EQ("1 sequential redirect kept sip:new@192.0.2.4", cached("PROXY", 42));
    cache.invalidate("PROXY", 42);
    EXPECT_EQ("0 kept redirect kept", cached("PROXY", 42));
    EXPECT_EQ("1 sequential redirect kept sip:c@192.0.2.3", cached("PROXY", 43));
    EXPECT_EQ("1 sequential redirect kept sip:other@192.0.2.9", cached("OTHER", 42));
}

// Each test case runs in a process of its own, where the adapter loads its module once, at first use.
TEST(PlatformContactResolver, ModuleLoadedAtFirstUseAnswers) {
    configureResolver(VELM_TEST_RESOLVER_MODULE);
    ContactResolverAdapter* adapter = ContactResolverAdapter::instance();
    Lines contacts{"sip:already@there"};
    std::string error;
    EXPECT_EQ(0, adapter->resolve("sip:two@example.com", contacts, error));
    EXPECT_EQ((Lines{"sip:already@there", "sip:first@192.0.2.1:5060", "sip:second@192.0.2.2;transport=tcp"}),
              contacts);
    configureResolver("/nonexistent/other-module.so");
    const struct {
        const char* uri;
        int status;
        std::string error;
    } answers[] = {{"sip:none@example.com", 0, ""}, {"sip:unknown@example.com", 1, ""}, {"sip:other@example.com", 2, ""},
                   {"sip:odd@example.com", 7, ""}, {"sip:fail@example.com", 3, "routing service unreachable for sip:fail@example.com"},
                   {nullptr, 3, "no request URI given"}};
    for (const auto& answer : answers) {
        contacts.clear();
        EXPECT_EQ(answer.status, adapter->resolve(answer.uri, contacts, error)) << answer.error;
        EXPECT_EQ(answer.error, error);
        EXPECT_TRUE(contacts.empty());
    }
}

// The modules that give no answer: none configured (no action), one that is absent, a file that is no shared
// object, a library without the entry point (errors, logged once even with the channel off).
class PlatformContactResolverLoad : public testing::TestWithParam<int> {};

TEST_P(PlatformContactResolverLoad, NoModuleTakesNoActionAndOneThatFailsToLoadIsAnError) {
    velmtest::TempDirectory directory;
    const std::string paths[] = {"", directory.path() + "/absent-resolver.so",
                                 directory.write("broken-resolver.so", "#!/bin/sh\n" + std::string(200, '#') + "\n"),
                                 VELM_TEST_NOT_A_RESOLVER};
    const std::string& path = paths[GetParam()];
    configureResolver(path);
    velmtest::TraceCapture capture({});
    Lines contacts;
    std::string error;
    EXPECT_EQ(path.empty() ? 2 : 3, ContactResolverAdapter::instance()->resolve("sip:two@example.com", contacts, error));
    EXPECT_TRUE(contacts.empty());
    // The error in full, or its start when the loader's own reason follows.
    const std::string loadFailure = "cannot load resolver module " + path + ": ";
    const std::pair<std::string, bool> expected[] = {
        {"", true}, {loadFailure, false}, {loadFailure, false},
        {"resolver module " + path + " has no function velm_resolve_contacts", true}};
    const auto& want = expected[GetParam()];
    EXPECT_EQ(want.first, want.second ? error : error.substr(0, want.first.size()));
    EXPECT_TRUE(want.second || error.size() > want.first.size()) << error;
    EXPECT_EQ(GetParam() == 1, error.find("No such file or directory") != std::string::npos) << error;
    std::string again;
    ContactResolverAdapter::instance()->resolve("sip:two@example.com", contacts, again);
    EXPECT_EQ(error, again);
    EXPECT_EQ(path.empty() ? Lines{} : Lines{error}, capture.lines("ContactResolverAdapter"));
}

INSTANTIATE_TEST_SUITE_P(Modules, PlatformContactResolverLoad, testing::Values(0, 1, 2, 3));
