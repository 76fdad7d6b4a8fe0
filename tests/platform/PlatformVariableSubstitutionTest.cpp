#include "Hashtable.h"
#include "VariableSubstitution.h"

#include <gtest/gtest.h>

namespace {

Hashtable uriTable() {
    Hashtable table;
    table.put("protocol", "sip");
    table.put("user", "+4930123");
    table.put("host", "example.com");
    table.put("port", "5070");
    table.put("parameters", "user=phone");
    table.put("empty", "");
    table.put("money", "$user");
    return table;
}

std::string subst(const std::string& text, const std::string& marker = "$") {
    std::string out = "stale";
    VariableSubstitution::subst(text, out, uriTable(), marker);
    return out;
}

} // namespace

TEST(PlatformHashtable, PutReplacesAndAbsentKeysAreNull) {
    Hashtable table;
    EXPECT_EQ(nullptr, table.get("node_type"));
    EXPECT_FALSE(table.containsKey("node_type"));
    table.put("node_type", "edge");
    table.put("node_type", "home");
    table.put("parent", "");
    EXPECT_STREQ("home", table.get("node_type"));
    EXPECT_STREQ("", table.get("parent"));
    EXPECT_TRUE(table.containsKey("parent"));
    EXPECT_EQ(2u, table.size());
    EXPECT_TRUE(table.remove("parent"));
    EXPECT_FALSE(table.remove("parent"));
    EXPECT_EQ(nullptr, table.get("parent"));
    EXPECT_EQ(nullptr, table.get("NODE_TYPE")) << "keys are case-sensitive";
}

TEST(PlatformVariableSubstitution, PlainAndBracedNames) {
    EXPECT_EQ("sip:+4930123@gw.example.net:5070;user=phone", subst("$protocol:$user@gw.example.net:$port;$parameters"));
    EXPECT_EQ("sip:+4930123@example.com", subst("${protocol}:${user}@${host}"));
    EXPECT_EQ("example.comname", subst("${host}name"));
    EXPECT_EQ("sip:@example.com", subst("sip:$empty@$host"));
    EXPECT_EQ("no variables at all", subst("no variables at all"));
    EXPECT_EQ("", subst(""));
}

TEST(PlatformVariableSubstitution, UnknownNamesStayAsWritten) {
    EXPECT_EQ("$hostname", subst("$hostname")) << "the longest name counts";
    EXPECT_EQ("${hostname}:5070", subst("${hostname}:$port"));
    EXPECT_EQ("sip:$password@example.com", subst("sip:$password@$host"));
    EXPECT_EQ("$USER", subst("$USER")) << "names are case-sensitive";
}

TEST(PlatformVariableSubstitution, MarkersThatStartNoVariable) {
    EXPECT_EQ("cost $5 and 100$", subst("cost $5 and 100$"));
    EXPECT_EQ("$ user", subst("$ user"));
    EXPECT_EQ("${user", subst("${user"));
    EXPECT_EQ("${}example.com", subst("${}$host"));
    EXPECT_EQ("$+4930123", subst("$$$user"));
    EXPECT_EQ("$user", subst("$$user"));
    EXPECT_EQ("$$", subst("$$$$"));
}

TEST(PlatformVariableSubstitution, ValuesAreNotExpandedAgain) {
    EXPECT_EQ("$user", subst("$money"));
}

TEST(PlatformVariableSubstitution, OtherMarkersAndOutputInPlace) {
    EXPECT_EQ("sip:+4930123@example.com %", subst("sip:%user@%{host} %%", "%"));
    EXPECT_EQ("+4930123 and $user", subst("@@user and $user", "@@"));
    EXPECT_EQ("$user", subst("$user", ""));

    std::string address = "sip:$user@$host";
    VariableSubstitution::subst(address, address, uriTable(), "$");
    EXPECT_EQ("sip:+4930123@example.com", address);
}
