#include "AddressMap.h"
#include "LocationService.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

using velm::AddressMap;

TEST(LocationServiceAddressMap, APatternIsCompiledAgainOnlyWhenItsRowChanged) {
    velmtest::TraceCapture capture({"AddressMap"});
    AddressMap entry;
    entry.compile("^sip:1[0-9]{3}@", 100);
    EXPECT_TRUE(entry.matches("sip:1234@example.com"));

    // Same modification time: the text is remembered, the old expression kept.
    entry.compile("^sip:2[0-9]{3}@", 100);
    EXPECT_TRUE(capture.contains("AddressMap", "expression already compiled"));
    EXPECT_EQ("^sip:2[0-9]{3}@", entry.pattern());
    EXPECT_TRUE(entry.matches("sip:1234@example.com"));
    EXPECT_FALSE(entry.matches("sip:2234@example.com"));

    entry.compile("^sip:2[0-9]{3}@", 101);
    EXPECT_TRUE(capture.contains("AddressMap", "compiling expression '^sip:2[0-9]{3}@'"));
    EXPECT_FALSE(entry.matches("sip:1234@example.com"));
    EXPECT_TRUE(entry.matches("sip:2234@example.com"));
}

TEST(LocationServiceAddressMap, APatternThatDoesNotCompileMatchesNothing) {
    velmtest::TraceCapture capture({"RegEx"});
    velm::RegExp expression;
    EXPECT_FALSE(expression.compile("sip:(unclosed", false));
    EXPECT_FALSE(expression.valid());
    EXPECT_FALSE(expression.match("sip:(unclosed"));
    EXPECT_TRUE(capture.contains("RegEx", "compile failed"));
    EXPECT_TRUE(capture.contains("RegEx", "match failed, invalid regex"));

    EXPECT_TRUE(expression.compile("^SIP:", true));
    EXPECT_TRUE(expression.match("sip:alice@example.com"));
    EXPECT_TRUE(expression.compile("^SIP:", false));
    EXPECT_FALSE(expression.match("sip:alice@example.com"));
}

TEST(LocationServiceAddressMap, TheServiceFreesItsEntries) {
    // The leak checker of the test run fails this test if they are not freed.
    velm::LocationService service;
    for (int i = 0; i < 3; ++i) {
        service.m_addrMap.push_back(new AddressMap());
        service.m_addrMap.back()->compile("^sip:", 1);
    }
}
