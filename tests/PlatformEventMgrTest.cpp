#include "EventCapture.h"
#include "EventMgr.h"

#include <gtest/gtest.h>

using Event = velmtest::EventCapture::Event;
using Events = std::vector<Event>;

TEST(PlatformEventMgr, DatabaseAccessAlarmChoosesItsIdentifierByState) {
    velmtest::EventCapture capture;
    EventMgrForSipServer alarms;
    alarms.ProxyDBAccess("database failure - connect", 0);
    alarms.ProxyDBAccess("back", 1);
    alarms.ProxyDBAccess("odd state", 2);
    EXPECT_EQ((Events{{"zuVELMProxyDBAccessFailed", "database failure - connect"},
                      {"zuVELMProxyDBAccessOK", "back"},
                      {"zuVELMProxyDBAccessFailed", "odd state"}}),
              capture.events());
}

TEST(PlatformEventMgr, ConferenceCapacityAlarmsCarryTheirPrefixes) {
    velmtest::EventCapture capture;
    EventMgrForEventServer alarms;
    alarms.EvtSrvConfCapacity("80 percent usage");
    alarms.EvtSrvConfCapExceeded("100 percent usage", 0);
    alarms.EvtSrvConfCapExceeded("back below", 1);
    EXPECT_EQ((Events{{"zuVELMConfCapacity", "80 percent Conf Ext Used: 80 percent usage"},
                      {"zuVELMConfCapExceeded", "Max Conf Ext Used: 100 percent usage"},
                      {"zuVELMConfCapOK", "Max Conf Ext Used: back below"}}),
              capture.events());
}

TEST(PlatformEventMgr, RemovedSinkReceivesNothingMore) {
    Events first;
    {
        velmtest::EventCapture capture;
        EventMgr::logIt("one", "first");
        first = capture.events();
    }
    velmtest::EventCapture later;
    EventMgr::logIt("two", "second");
    EXPECT_EQ((Events{{"one", "first"}}), first);
    EXPECT_EQ((Events{{"two", "second"}}), later.events());
}
