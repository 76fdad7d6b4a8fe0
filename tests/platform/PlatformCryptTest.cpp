// Stored passwords: round trips, and the stored texts and key files that fail with one trace line saying why.
#include "AppProperties.h"
#include "CryptKeyFile.h"
#include "Crypt.h"
#include "TempDirectory.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

// The Crypt trace lines written while `work` runs; failures are written with the channel off.
std::vector<std::string> traced(const std::function<void()>& work) {
    velmtest::TraceCapture capture({});
    work();
    return capture.lines("Crypt");
}

bool startsWith(const std::vector<std::string>& lines, const std::string& start) {
    return lines.size() == 1 && lines[0].compare(0, start.size(), start) == 0;
}

} // namespace

TEST(PlatformCrypt, AwkwardPasswordsComeBackAndAreStoredDifferentlyEachTime) {
    velmtest::CryptKeyFile key;
    const std::string passwords[] = {"secret", "", "pass word with blanks", std::string("nul\0inside", 10),
                                     "\xc3\xa4\xc3\xb6\xc3\xbc unicode", std::string(5000, 'x')};
    for (const auto& password : passwords) {
        std::string stored = Crypt::encrypt(password);
        ASSERT_FALSE(stored.empty());
        EXPECT_EQ(std::string::npos, stored.find(password.empty() ? std::string("\x01") : password));
        EXPECT_EQ(password, Crypt::decrypt(stored));
        EXPECT_NE(stored, Crypt::encrypt(password));
    }
}

TEST(PlatformCrypt, StoredTextsThatFailSayWhy) {
    std::string foreign;
    {
        velmtest::CryptKeyFile other;
        foreign = Crypt::encrypt("secret");
    }
    velmtest::CryptKeyFile key;
    std::string stored = Crypt::encrypt("secret");
    // Positions inside full base64 groups, where every bit counts: a change in
    // the last group may touch only padding bits and fail decoding instead.
    auto altered = [&](size_t position) {
        std::string text = stored;
        text[position] = text[position] == 'A' ? 'B' : 'A';
        return text;
    };
    const std::string authentication = "stored password fails authentication";
    const std::string tooShort = "stored password is too short";
    const std::pair<std::string, std::string> cases[] = {
        {altered(0), authentication},
        {altered(stored.size() / 2), authentication},
        {altered(stored.size() - 5), authentication},
        {foreign, authentication},
        {stored.substr(0, stored.size() - 4), authentication},
        {stored.substr(0, 8), tooShort},
        {"c2VjcmV0", tooShort},
        {"", tooShort},
        {"plaintext password!", "stored password is not base64 text"},
    };
    for (const auto& c : cases) {
        std::string plain = "stale";
        EXPECT_TRUE(startsWith(traced([&] { plain = Crypt::decrypt(c.first); }), c.second)) << c.first;
        EXPECT_EQ("", plain) << c.first;
    }
}

TEST(PlatformCrypt, MissingOrBadKeyFileIsAClearError) {
    velmtest::TempDirectory directory;
    std::string missing = directory.path() + "/absent.key";
    const std::pair<std::string, std::string> cases[] = {
        {"", "no key file configured ([Crypt] KeyFile)"},
        {missing, "cannot read key file " + missing + ": No such file or directory"},
        {directory.write("short.key", std::string(31, 'k')), "key file " + directory.path() + "/short.key must hold"},
        {directory.write("long.key", std::string(33, 'k')), "key file " + directory.path() + "/long.key must hold"},
        {directory.write("empty.key", ""), "key file " + directory.path() + "/empty.key must hold exactly 32 bytes"},
    };
    for (const auto& c : cases) {
        velm::AppProperties::set("Crypt", "KeyFile", c.first.empty() ? nullptr : c.first.c_str());
        std::string stored = "stale";
        EXPECT_TRUE(startsWith(traced([&] { stored = Crypt::encrypt("secret"); }), c.second)) << c.first;
        EXPECT_EQ("", stored) << c.first;
        EXPECT_TRUE(startsWith(traced([&] { stored = Crypt::decrypt("AAAA"); }), c.second)) << c.first;
        EXPECT_EQ("", stored) << c.first;
    }
}
