#include "SipAddr.h"

#include <gtest/gtest.h>

#include <string>

using velm::SipAddr;

namespace {

struct Pair {
    const char* unregistering;
    const char* stored;
};

bool matches(const std::string& a, const std::string& b, std::string& detail) {
    return SipAddr::addressMatches(a, b, detail);
}

// URI parameters of a Contact value belong to the URI only inside angle
// brackets; after a bare addr-spec they are header parameters.
bool urisMatch(const std::string& a, const std::string& b, std::string& detail) {
    return matches("<" + a + ">", "<" + b + ">", detail);
}

} // namespace

TEST(PlatformSipAddr, EquivalentUrisOfRfc3261Match) {
    const Pair pairs[] = {
        {"sip:%61lice@atlanta.com;transport=TCP", "sip:alice@AtLanTa.CoM;Transport=tcp"},
        {"sip:carol@chicago.com", "sip:carol@chicago.com;newparam=5"},
        {"sip:carol@chicago.com", "sip:carol@chicago.com;security=on"},
        {"sip:carol@chicago.com;newparam=5", "sip:carol@chicago.com;security=on"},
        {"sip:biloxi.com;transport=tcp;method=REGISTER?to=sip:bob%40biloxi.com",
         "sip:biloxi.com;method=REGISTER;transport=tcp?to=sip:bob%40biloxi.com"},
        {"sip:alice@atlanta.com?subject=project%20x&priority=urgent",
         "sip:alice@atlanta.com?priority=urgent&subject=project%20x"},
    };
    for (const auto& pair : pairs) {
        std::string detail;
        EXPECT_TRUE(urisMatch(pair.unregistering, pair.stored, detail)) << pair.unregistering << " / " << detail;
        EXPECT_FALSE(detail.empty()) << pair.unregistering;
        EXPECT_TRUE(urisMatch(pair.stored, pair.unregistering, detail)) << pair.stored << " / " << detail;
    }
}

TEST(PlatformSipAddr, NonEquivalentUrisOfRfc3261DoNotMatch) {
    const std::pair<Pair, const char*> pairs[] = {
        {{"SIP:ALICE@AtLanTa.CoM;Transport=udp", "sip:alice@AtLanTa.CoM;Transport=UDP"}, "users differ"},
        {{"sip:bob@biloxi.com", "sip:bob@biloxi.com:5060"}, "port given in one URI only"},
        {{"sip:bob@biloxi.com", "sip:bob@biloxi.com;transport=udp"}, "parameter transport in one URI only"},
        {{"sip:bob@biloxi.com", "sip:bob@biloxi.com:6000;transport=tcp"}, "port given in one URI only"},
        {{"sip:carol@chicago.com", "sip:carol@chicago.com?Subject=next%20meeting"}, "headers differ"},
        {{"sip:bob@phone21.boxesbybob.com", "sip:bob@192.0.2.4"}, "hosts differ"},
        {{"sip:carol@chicago.com;security=on", "sip:carol@chicago.com;security=off"}, "parameter security differs"},
    };
    for (const auto& item : pairs) {
        std::string detail;
        EXPECT_FALSE(urisMatch(item.first.unregistering, item.first.stored, detail)) << item.first.unregistering;
        EXPECT_EQ(item.second, detail) << item.first.unregistering;
        EXPECT_FALSE(urisMatch(item.first.stored, item.first.unregistering, detail)) << item.first.stored;
    }
}

TEST(PlatformSipAddr, OtherDifferencesThatSeparateContacts) {
    const std::pair<Pair, const char*> pairs[] = {
        {{"sip:alice@atlanta.com", "sips:alice@atlanta.com"}, "schemes differ"},
        {{"sip:alice:one@atlanta.com", "sip:alice:two@atlanta.com"}, "passwords differ"},
        {{"sip:alice@atlanta.com:5060", "sip:alice@atlanta.com:5070"}, "ports differ"},
        {{"sip:alice@atlanta.com;user=phone", "sip:alice@atlanta.com"}, "parameter user in one URI only"},
        {{"sip:alice@atlanta.com;maddr=239.255.255.1", "sip:alice@atlanta.com"}, "parameter maddr in one URI only"},
        {{"sip:alice@atlanta.com;ttl=15", "sip:alice@atlanta.com"}, "parameter ttl in one URI only"},
        {{"sip:alice@atlanta.com;method=INVITE", "sip:alice@atlanta.com"}, "parameter method in one URI only"},
        {{"sip:alice@atlanta.com;transport=tcp", "sip:alice@atlanta.com;transport=udp"}, "parameter transport differs"},
        {{"sip:alice@atlanta.com?a=1&b=2", "sip:alice@atlanta.com?a=1"}, "headers differ"},
        {{"sip:alice@atlanta.com?Subject=x", "sip:alice@atlanta.com?Subject=X"}, "headers differ"},
        {{"sip:[2001:db8::1]", "sip:[2001:db8::2]"}, "hosts differ"},
    };
    for (const auto& item : pairs) {
        std::string detail;
        EXPECT_FALSE(urisMatch(item.first.unregistering, item.first.stored, detail)) << item.first.unregistering;
        EXPECT_EQ(item.second, detail) << item.first.unregistering;
    }
}

TEST(PlatformSipAddr, RepeatedParametersAndHeadersGiveOneAnswerBothWays) {
    const std::pair<Pair, bool> pairs[] = {
        {{"sip:a;dr=x;dr", "sip:a;dr=x"}, false},
        {{"sip:a@h;dr=x;dr=y", "sip:a@h;DR=X;dr=Y"}, true},
        {{"sip:a@h;dr=x;dr=y", "sip:a@h;dr=y;dr=x"}, false},
        {{"sip:a@h;dr=x;dr=x", "sip:a@h;dr=x"}, false},
        {{"sip:a@h;lr;lr", "sip:a@h"}, true},
        {{"sip:a@h;transport=tcp;transport=udp", "sip:a@h;transport=tcp"}, false},
        {{"sip:a@h?h=1&h=1", "sip:a@h?h=1&h=2"}, false},
        {{"sip:a@h?h=1&h=1", "sip:a@h?h=1"}, false},
        {{"sip:a@h?h=1&h=2", "sip:a@h?H=2&h=1"}, true},
        {{"sip:a@h?h", "sip:a@h?h="}, false},
    };
    for (const auto& item : pairs) {
        std::string detail;
        EXPECT_EQ(item.second, urisMatch(item.first.unregistering, item.first.stored, detail))
            << item.first.unregistering << " / " << item.first.stored << ": " << detail;
        EXPECT_EQ(item.second, urisMatch(item.first.stored, item.first.unregistering, detail))
            << item.first.stored << " / " << item.first.unregistering << ": " << detail;
    }
}

TEST(PlatformSipAddr, DetailIsEmptyOnlyForIdenticalTexts) {
    std::string detail = "stale";
    EXPECT_TRUE(matches("<sip:alice@atlanta.com;transport=tcp>;expires=60", "<sip:alice@atlanta.com;transport=tcp>;expires=60",
                        detail));
    EXPECT_EQ("", detail);

    EXPECT_TRUE(matches("sip:alice@atlanta.com", "sip:alice@ATLANTA.com", detail));
    EXPECT_EQ("host letter case", detail);

    EXPECT_TRUE(urisMatch("sip:alice@atlanta.com", "sip:alice@atlanta.com;lr", detail));
    EXPECT_EQ("parameter in one URI only: lr", detail);

    EXPECT_TRUE(matches("sip:alice@[2001:DB8::1]", "sip:alice@[2001:db8:0:0::1]", detail));
    EXPECT_EQ("IPv6 address written differently", detail);
}

TEST(PlatformSipAddr, NameAddrFormsAndHeaderParametersPlayNoPart) {
    std::string detail;
    EXPECT_TRUE(matches("\"Alice\" <sip:alice@192.0.2.10:5060;transport=tcp>;expires=0",
                        "<sip:alice@192.0.2.10:5060;transport=tcp>;expires=3600;q=0.8", detail));
    EXPECT_EQ("display name ignored; header parameters ignored: expires, q", detail);

    EXPECT_TRUE(matches("sip:alice@192.0.2.10;expires=0", "Alice <sip:alice@192.0.2.10>", detail));
    EXPECT_EQ("display name ignored; header parameters ignored: expires", detail);

    EXPECT_TRUE(matches("<sip:+4930123;npdi@gw.example.com;user=phone>;+sip.instance=\"<urn:uuid:1>\"",
                        "<sip:+4930123;npdi@gw.example.com;user=phone>", detail));
    EXPECT_EQ("header parameters ignored: +sip.instance", detail);

    EXPECT_FALSE(matches("<sip:alice@192.0.2.10;transport=tcp>;expires=0", "sip:alice@192.0.2.10;transport=tcp",
                         detail))
        << "a bare addr-spec's parameters are header parameters, so its URI has no transport";
    EXPECT_EQ("parameter transport in one URI only", detail);
}

TEST(PlatformSipAddr, TextsThatAreNoSipAddressNeverMatch) {
    const Pair pairs[] = {
        {"*", "*"},
        {"garbage", "garbage"},
        {"<sip:alice@atlanta.com", "sip:alice@atlanta.com"},
        {"<tel:+1-201-555-0123>", "<tel:+1-201-555-0123>"},
        {"", ""},
    };
    for (const auto& pair : pairs) {
        std::string detail;
        EXPECT_FALSE(matches(pair.unregistering, pair.stored, detail)) << pair.unregistering;
        EXPECT_FALSE(detail.empty()) << pair.unregistering;
    }
    std::string detail;
    EXPECT_FALSE(matches("*", "sip:alice@atlanta.com", detail));
    EXPECT_EQ("'*' names no single contact", detail);
    EXPECT_FALSE(matches("sip:alice@atlanta.com", "<http://www.example.com>", detail));
    EXPECT_EQ("not a SIP address: not a SIP or SIPS URI: scheme \"http\"", detail);
}
