// The platform's process-wide services: configuration, service locations, traces, alarms and the contacts cache.
#include "AlarmCapture.h"
#include "AppProperties.h"
#include "ContactRecord.h"
#include "ContactsCache.h"
#include "EventMgr.h"
#include "ServiceRegistrar.h"
#include "TempDirectory.h"
#include "Trace.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using velm::AppProperties;
using velm::Trace;
using Lines = std::vector<std::string>;

namespace {

std::string value(const char* section, const char* key) {
    const char* text = AppProperties::get(section, key);
    return text != nullptr ? text : "<null>";
}

std::string locate(const std::string& fallback, bool expectFound) {
    std::string location = "stale";
    EXPECT_EQ(expectFound, velm::ServiceRegistrar::instance()->locate("velm.sip.db", location, fallback));
    return location;
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

} // namespace

TEST(PlatformAppProperties, FileValuesOverridesAndTheServicesTheyLocate) {
    velmtest::TempDirectory directory;
    std::string file = directory.write("velm.conf", "[SipServer]\nDatabaseType = pgsql\nPrefixMapInterval=5\n"
                                                    "[Services]\nvelm.sip.db = postgresql://db/velm\n");
    ASSERT_TRUE(AppProperties::load(file.c_str()));
    EXPECT_EQ("pgsql", value("SipServer", "DatabaseType"));
    EXPECT_EQ("5", value("SipServer", "PrefixMapInterval"));
    EXPECT_EQ("<null>", value("Absent", "DatabaseType"));
    EXPECT_EQ("postgresql://db/velm", locate("velm", true));

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
    EXPECT_EQ("velm", locate("velm", false)) << "an unconfigured service is at its fallback";

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

TEST(PlatformTrace, ChannelsWriteWhileOnAndLogLinesAlways) {
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
}

TEST(PlatformTrace, ConfigurationAndEnvironmentSwitchChannelsOn) {
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

// The default sink, made once per process at the first line no installed sink takes: to a configured file, or to
// standard error.
class PlatformTraceDefaultSink : public testing::TestWithParam<bool> {};

TEST_P(PlatformTraceDefaultSink, WritesLinesOfItsChannelOnceTheInstalledSinkIsRemoved) {
    velmtest::TempDirectory directory;
    std::string file = directory.path() + "/trace.log";
    if (GetParam())
        AppProperties::set("Trace", "Output", file.c_str());
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
    std::string written = testing::internal::GetCapturedStderr();
    if (GetParam()) {
        EXPECT_EQ("", written);
        std::ostringstream text;
        text << std::ifstream(file).rdbuf();
        written = text.str();
    }
    EXPECT_EQ((Lines{"to the capture"}), captured);
    EXPECT_EQ("[PlatformTrace.Default] first 1\n[PlatformTrace.Default] second\n", written);
}

INSTANTIATE_TEST_SUITE_P(ToFileOrStandardError, PlatformTraceDefaultSink, testing::Bool());

TEST(PlatformEventMgr, AlarmsChooseTheirIdentifierByStateUntilTheSinkIsRemoved) {
    using Events = std::vector<std::pair<std::string, std::string>>;
    Events raised;
    {
        velmtest::AlarmCapture capture;
        EventMgrForSipServer proxy;
        proxy.ProxyDBAccess("database failure - connect", 0);
        proxy.ProxyDBAccess("back", 1);
        proxy.ProxyDBAccess("odd state", 2);
        EventMgrForEventServer events;
        events.EvtSrvConfCapacity("80 percent usage");
        events.EvtSrvConfCapExceeded("100 percent usage", 0);
        events.EvtSrvConfCapExceeded("back below", 1);
        raised = capture.alarms();
    }
    EXPECT_EQ((Events{{"zuVELMProxyDBAccessFailed", "database failure - connect"},
                      {"zuVELMProxyDBAccessOK", "back"},
                      {"zuVELMProxyDBAccessFailed", "odd state"},
                      {"zuVELMConfCapacity", "80 percent Conf Ext Used: 80 percent usage"},
                      {"zuVELMConfCapExceeded", "Max Conf Ext Used: 100 percent usage"},
                      {"zuVELMConfCapOK", "Max Conf Ext Used: back below"}}),
              raised);
    EventMgr::logIt("lost", "to syslog");
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
