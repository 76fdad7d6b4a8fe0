#include "Uri.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string show(const char* part) {
    return part != nullptr ? part : "<null>";
}

// The URI put back together from its parts, the way callers rebuild addresses.
std::string rebuilt(const osk::Uri& uri) {
    std::string text = show(uri.getProtocol()) + ":";
    if (uri.getUser() != nullptr) {
        text += uri.getUser();
        if (uri.getPassword() != nullptr)
            text += std::string(":") + uri.getPassword();
        text += "@";
    }
    text += show(uri.getHost());
    if (uri.getPort() > 0)
        text += ":" + std::to_string(uri.getPort());
    if (uri.getParameters() != nullptr)
        text += std::string(";") + uri.getParameters();
    if (uri.getHeaders() != nullptr)
        text += std::string("?") + uri.getHeaders();
    return text;
}

struct Valid {
    const char* text;
    const char* protocol;
    const char* user;
    const char* password;
    const char* host;
    int port;
    const char* parameters;
    const char* headers;
};

} // namespace

TEST(PlatformUri, ValidUrisGiveTheirPartsAndRebuildUnchanged) {
    const Valid cases[] = {
        {"sip:alice@atlanta.com", "sip", "alice", "<null>", "atlanta.com", 0, "<null>", "<null>"},
        {"sips:bob@192.0.2.4:5061", "sips", "bob", "<null>", "192.0.2.4", 5061, "<null>", "<null>"},
        {"sip:example.com", "sip", "<null>", "<null>", "example.com", 0, "<null>", "<null>"},
        {"sip:+4930123456@gw.example.com;user=phone", "sip", "+4930123456", "<null>", "gw.example.com", 0,
         "user=phone", "<null>"},
        {"sip:+1-212-555-0101;npdi;rn=+1-212-555-0000@example.com;user=phone", "sip",
         "+1-212-555-0101;npdi;rn=+1-212-555-0000", "<null>", "example.com", 0, "user=phone", "<null>"},
        {"sip:alice:secret@[2001:db8::10]:5070;transport=tcp;lr", "sip", "alice", "secret", "[2001:db8::10]", 5070,
         "transport=tcp;lr", "<null>"},
        {"sip:[::1]", "sip", "<null>", "<null>", "[::1]", 0, "<null>", "<null>"},
        {"sip:alice@atlanta.com?subject=project%20x&priority=urgent", "sip", "alice", "<null>", "atlanta.com", 0,
         "<null>", "subject=project%20x&priority=urgent"},
        {"sip:biloxi.com;transport=tcp;method=REGISTER?to=sip:bob%40biloxi.com", "sip", "<null>", "<null>",
         "biloxi.com", 0, "transport=tcp;method=REGISTER", "to=sip:bob%40biloxi.com"},
        {"sip:alice%20smith@host-1.example.com.", "sip", "alice%20smith", "<null>", "host-1.example.com.", 0, "<null>",
         "<null>"},
        {"SIP:Alice@AtLanTa.CoM:65535", "SIP", "Alice", "<null>", "AtLanTa.CoM", 65535, "<null>", "<null>"},
    };
    for (const auto& expected : cases) {
        osk::Uri uri(expected.text);
        ASSERT_TRUE(uri.isValid()) << expected.text << ": " << uri.errorMessage();
        EXPECT_STREQ("", uri.errorMessage());
        EXPECT_EQ(expected.protocol, show(uri.getProtocol())) << expected.text;
        EXPECT_EQ(expected.user, show(uri.getUser())) << expected.text;
        EXPECT_EQ(expected.password, show(uri.getPassword())) << expected.text;
        EXPECT_EQ(expected.host, show(uri.getHost())) << expected.text;
        EXPECT_EQ(expected.port, uri.getPort()) << expected.text;
        EXPECT_EQ(expected.parameters, show(uri.getParameters())) << expected.text;
        EXPECT_EQ(expected.headers, show(uri.getHeaders())) << expected.text;
        EXPECT_EQ(expected.text, rebuilt(uri));
    }
}

TEST(PlatformUri, EscapesComeBackInCanonicalForm) {
    osk::Uri uri("sip:%61lice@atlanta.com;transport=TCP");
    ASSERT_TRUE(uri.isValid());
    EXPECT_STREQ("alice", uri.getUser());
    EXPECT_STREQ("transport=TCP", uri.getParameters());

    osk::Uri reserved(std::string("sip:us%40er%3A1:pa%3Ass@host"));
    ASSERT_TRUE(reserved.isValid());
    EXPECT_STREQ("us%40er%3A1", reserved.getUser());
    EXPECT_STREQ("pa%3Ass", reserved.getPassword());
    EXPECT_EQ("sip:us%40er%3A1:pa%3Ass@host", rebuilt(reserved));
}

TEST(PlatformUri, InvalidTextsSayWhy) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "empty URI"},
        {"alice@atlanta.com", "not a SIP URI: no scheme"},
        {"http://www.example.com", "not a SIP or SIPS URI: scheme \"http\""},
        {"tel:+1-201-555-0123", "not a SIP or SIPS URI: scheme \"tel\""},
        {"sip:", "not a SIP URI: malformed (user, host, port or parameters)"},
        {"sip:alice@", "not a SIP URI: malformed (user, host, port or parameters)"},
        {"sip:@atlanta.com", "not a SIP URI: empty user part before '@'"},
        {"sip:atlanta.com;%20;lr", "not a SIP URI: a parameter or header starts or ends with an escaped blank"},
        {"sip:a@atlanta.com;x=%20;lr", "not a SIP URI: a parameter or header starts or ends with an escaped blank"},
        {"sip:atlanta.com?subject=hi%0D", "not a SIP URI: a parameter or header starts or ends with an escaped blank"},
        {"sip:alice @atlanta.com", "not a SIP URI: it contains a blank or control character"},
        {"sip:alice@atlanta.com\r\n", "not a SIP URI: it contains a blank or control character"},
        {"sip:alice@atlanta.com:abc", "not a SIP URI: invalid port \"abc\""},
        {"sip:alice@atlanta.com:70000", "not a SIP URI: invalid port \"70000\""},
        {"sip:alice@atlanta.com:0", "not a SIP URI: invalid port \"0\""},
        {"sip:alice@[2001:db8::1", "not a SIP URI: invalid IPv6 host \"[2001:db8:\""},
        {"sip:alice@[example.com]", "not a SIP URI: invalid IPv6 host \"example.com\""},
        {"sip:alice@[::g]", "not a SIP URI: invalid IPv6 host \"::g\""},
        {"sip:alice@256.1.1.1", "not a SIP URI: invalid host \"256.1.1.1\""},
        {"sip:alice@-bad.example.com", "not a SIP URI: invalid host \"-bad.example.com\""},
        {"sip:alice@a..b", "not a SIP URI: invalid host \"a..b\""},
        {"sip:alice@under_score.com", "not a SIP URI: invalid host \"under_score.com\""},
        {"sip:%@atlanta.com", "not a SIP URI: '%' starts no escape of a character"},
        {"sip:al%zzice@atlanta.com", "not a SIP URI: '%' starts no escape of a character"},
        {"sip:alice%00@atlanta.com", "not a SIP URI: '%' starts no escape of a character"},
        {"sip:alice@atlanta.com;tag=%4", "not a SIP URI: '%' starts no escape of a character"},
        {"sip:alice@atlanta.com?subject=%\xff\xff", "not a SIP URI: '%' starts no escape of a character"},
    };
    for (const auto& item : cases) {
        osk::Uri uri(item.first);
        EXPECT_FALSE(uri.isValid()) << item.first;
        EXPECT_STREQ(item.second, uri.errorMessage()) << item.first;
        EXPECT_EQ(nullptr, uri.getProtocol()) << item.first;
        EXPECT_EQ(nullptr, uri.getUser()) << item.first;
        EXPECT_EQ(nullptr, uri.getHost()) << item.first;
        EXPECT_EQ(0, uri.getPort()) << item.first;
        EXPECT_EQ(nullptr, uri.getParameters()) << item.first;
    }
    osk::Uri none(static_cast<const char*>(nullptr));
    EXPECT_FALSE(none.isValid());
    EXPECT_STREQ("no URI given", none.errorMessage());
}
