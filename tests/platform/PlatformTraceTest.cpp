#include "AppProperties.h"
#include "Trace.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

using velm::Trace;

namespace {

// Receives every line, of every channel, while installed.
class Sink : public velm::TraceSink {
public:
    using Line = std::pair<std::string, std::string>;

    Sink() { Trace::setSink(this); }
    ~Sink() override { Trace::setSink(nullptr); }

    void write(const char* channel, const char* text) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.emplace_back(channel, text);
    }
    std::vector<Line> lines() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }

private:
    std::mutex m_mutex;
    std::vector<Line> m_lines;
};

using Lines = std::vector<Sink::Line>;

} // namespace

TEST(PlatformTrace, DisabledChannelWritesNothingUntilEnabled) {
    Sink sink;
    Trace trace("PlatformTrace.Gate");
    ASSERT_FALSE(trace.enabled());
    trace.prn("lookupContacts() key=%d", 42);
    trace.prn(std::string("plain text"));
    EXPECT_TRUE(sink.lines().empty());

    Trace::enable("PlatformTrace.Gate", true);
    EXPECT_TRUE(trace.enabled());
    trace.prn("lookupContacts() key=%d", 42);
    trace.prn(std::string("plain text"));
    EXPECT_EQ((Lines{{"PlatformTrace.Gate", "lookupContacts() key=42"}, {"PlatformTrace.Gate", "plain text"}}),
              sink.lines());

    Trace::enable("PlatformTrace.Gate", false);
    trace.prn("after %s", "switching off");
    EXPECT_EQ(2u, sink.lines().size());
}

TEST(PlatformTrace, ChannelsOfTheSameNameShareTheirSwitch) {
    Sink sink;
    Trace first("PlatformTrace.Shared");
    Trace second("PlatformTrace.Shared");
    Trace::enable("PlatformTrace.Shared", true);
    EXPECT_TRUE(first.enabled());
    EXPECT_TRUE(second.enabled());
    EXPECT_FALSE(Trace("PlatformTrace.Other").enabled());
    EXPECT_EQ("PlatformTrace.Shared", first.name());
}

TEST(PlatformTrace, LogAndSyslogLinesAreAlwaysWritten) {
    Sink sink;
    Trace trace("PlatformTrace.Log");
    ASSERT_FALSE(trace.enabled());
    trace.log("connect failed: %s", "no route");
    trace.logToSyslog(8, 6, "No primary key was found in lookupContactsNoCache for key 42");
    EXPECT_EQ((Lines{{"PlatformTrace.Log", "connect failed: no route"},
                     {"PlatformTrace.Log", "No primary key was found in lookupContactsNoCache for key 42"}}),
              sink.lines());
}

TEST(PlatformTrace, LongMessagesArriveWhole) {
    Sink sink;
    Trace trace("PlatformTrace.Long");
    Trace::enable("PlatformTrace.Long", true);
    std::string longText(5000, 'x');
    trace.prn("start %s end", longText.c_str());
    ASSERT_EQ(1u, sink.lines().size());
    EXPECT_EQ("start " + longText + " end", sink.lines()[0].second);
}

TEST(PlatformTrace, ConfigurationAndEnvironmentSwitchChannelsOn) {
    velm::AppProperties::set("Trace", "PlatformTrace.Configured", "yes");
    setenv("VELM_TRACE", "PlatformTrace.Listed,PlatformTrace.Also", 1);
    EXPECT_TRUE(Trace("PlatformTrace.Configured").enabled());
    EXPECT_TRUE(Trace("PlatformTrace.Listed").enabled());
    EXPECT_TRUE(Trace("PlatformTrace.Also").enabled());
    EXPECT_FALSE(Trace("PlatformTrace.Unlisted").enabled());

    velm::AppProperties::set("Trace", "PlatformTrace.Off", "off");
    EXPECT_FALSE(Trace("PlatformTrace.Off").enabled());
    velm::AppProperties::set("Trace", "All", "on");
    EXPECT_TRUE(Trace("PlatformTrace.Anything").enabled());
    unsetenv("VELM_TRACE");
}

TEST(PlatformTrace, RemovedSinkReceivesNothingMore) {
    Trace trace("PlatformTrace.Removed");
    Lines before;
    {
        Sink sink;
        trace.log("first");
        before = sink.lines();
    }
    Sink later;
    trace.log("second");
    EXPECT_EQ((Lines{{"PlatformTrace.Removed", "first"}}), before);
    EXPECT_EQ((Lines{{"PlatformTrace.Removed", "second"}}), later.lines());
}

TEST(PlatformTrace, ClassWideChannel) {
    Sink sink;
    velm::Trace& shared = velm::STrace::instance();
    EXPECT_EQ(&shared, &velm::STrace::instance());
    shared.log("trusted hosts %d", 3);
    ASSERT_EQ(1u, sink.lines().size());
    EXPECT_EQ(shared.name(), sink.lines()[0].first);
    EXPECT_EQ("trusted hosts 3", sink.lines()[0].second);
}
