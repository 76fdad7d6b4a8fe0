#include "AlarmCapture.h"
#include "EventMgr.h"

#include <gtest/gtest.h>

using Event = std::pair<std::string, std::string>;
using Events = std::vector<Event>;

TEST(PlatformEventMgr, DatabaseAccessAlarmChoosesItsIdentifierByState) {
    velmtest::AlarmCapture capture;
    EventMgrForSipServer alarms;
    alarms.ProxyDBAccess("database failure - connect", 0);
    alarms.ProxyDBAccess("back", 1);
    alarms.ProxyDBAccess("odd state", 2);
    EXPECT_EQ((Events{{"zuVELMProxyDBAccessFailed", "database failure - connect"},
                      {"zuVELMProxyDBAccessOK", "back"},
                      {"zuVELMProxyDBAccessFailed", "odd state"}}),
              capture.alarms());
}

TEST(PlatformEventMgr, ConferenceCapacityAlarmsCarryTheirPrefixes) {
    velmtest::AlarmCapture capture;
    EventMgrForEventServer alarms;
    alarms.EvtSrvConfCapacity("80 percent usage");
    alarms.EvtSrvConfCapExceeded("100 percent usage", 0);
    alarms.EvtSrvConfCapExceeded("back below", 1);
    EXPECT_EQ((Events{{"zuVELMConfCapacity", "80 percent Conf Ext Used: 80 percent usage"},
                      {"zuVELMConfCapExceeded", "Max Conf Ext Used: 100 percent usage"},
                      {"zuVELMConfCapOK", "Max Conf Ext Used: back below"}}),
              capture.alarms());
}

TEST(PlatformEventMgr, RemovedSinkReceivesNothingMore) {
    Events first;
    {
        velmtest::AlarmCapture capture;
        EventMgr::logIt("one", "first");
        first = capture.alarms();
    }
    velmtest::AlarmCapture later;
    EventMgr::logIt("two", "second");
    EXPECT_EQ((Events{{"one", "first"}}), first);
    EXPECT_EQ((Events{{"two", "second"}}), later.alarms());
}
