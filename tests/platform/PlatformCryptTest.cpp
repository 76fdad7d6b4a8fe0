#include "AppProperties.h"
#include "CryptKeyFile.h"
#include "Crypt.h"
#include "TempDirectory.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

namespace {

bool anyLine(const velmtest::TraceCapture& capture, const std::string& part) {
    for (const auto& line : capture.lines("Crypt"))
        if (line.find(part) != std::string::npos)
            return true;
    return false;
}

} // namespace

TEST(PlatformCrypt, RoundTripOfAwkwardPasswords) {
    velmtest::CryptKeyFile key;
    const std::string passwords[] = {"secret", "", "pass word with blanks", std::string("nul\0inside", 10),
                                     "\xc3\xa4\xc3\xb6\xc3\xbc unicode", std::string(5000, 'x')};
    for (const auto& password : passwords) {
        std::string stored = Crypt::encrypt(password);
        ASSERT_FALSE(stored.empty());
        EXPECT_EQ(std::string::npos, stored.find(password.empty() ? std::string("\x01") : password));
        EXPECT_EQ(password, Crypt::decrypt(stored));
    }
}

TEST(PlatformCrypt, SamePasswordGivesDifferentStoredTexts) {
    velmtest::CryptKeyFile key;
    std::string first = Crypt::encrypt("secret");
    std::string second = Crypt::encrypt("secret");
    EXPECT_NE(first, second);
    EXPECT_EQ("secret", Crypt::decrypt(first));
    EXPECT_EQ("secret", Crypt::decrypt(second));
}

TEST(PlatformCrypt, AlteredOrTruncatedTextFailsWithATrace) {
    velmtest::CryptKeyFile key;
    std::string stored = Crypt::encrypt("secret");

    // Positions inside full base64 groups, where every bit counts: a change in
    // the last group may touch only padding bits and fail decoding instead.
    for (size_t position : {size_t(0), stored.size() / 2, stored.size() - 5}) {
        velmtest::TraceCapture capture({"Crypt"});
        std::string altered = stored;
        altered[position] = altered[position] == 'A' ? 'B' : 'A';
        EXPECT_EQ("", Crypt::decrypt(altered)) << "altered at " << position;
        EXPECT_TRUE(anyLine(capture, "fails authentication")) << "altered at " << position;
    }

    velmtest::TraceCapture capture({"Crypt"});
    EXPECT_EQ("", Crypt::decrypt(stored.substr(0, stored.size() - 4)));
    EXPECT_EQ("", Crypt::decrypt(stored.substr(0, 8)));
    EXPECT_TRUE(anyLine(capture, "too short"));
}

TEST(PlatformCrypt, ForeignTextFailsWithATrace) {
    velmtest::CryptKeyFile key;
    velmtest::TraceCapture capture({"Crypt"});
    EXPECT_EQ("", Crypt::decrypt("plaintext password!"));
    EXPECT_TRUE(anyLine(capture, "not base64"));
    EXPECT_EQ("", Crypt::decrypt(""));
    EXPECT_EQ("", Crypt::decrypt("c2VjcmV0"));
    EXPECT_TRUE(anyLine(capture, "too short"));
}

TEST(PlatformCrypt, TextOfAnotherKeyFails) {
    std::string stored;
    {
        velmtest::CryptKeyFile first;
        stored = Crypt::encrypt("secret");
    }
    velmtest::CryptKeyFile second;
    velmtest::TraceCapture capture({"Crypt"});
    EXPECT_EQ("", Crypt::decrypt(stored));
    EXPECT_TRUE(anyLine(capture, "fails authentication"));
}

TEST(PlatformCrypt, MissingOrBadKeyFileIsAClearError) {
    velmtest::TraceCapture capture({"Crypt"});
    EXPECT_EQ("", Crypt::encrypt("secret"));
    EXPECT_TRUE(anyLine(capture, "no key file configured"));

    velmtest::TempDirectory directory;
    std::string missing = directory.path() + "/absent.key";
    velm::AppProperties::set("Crypt", "KeyFile", missing.c_str());
    EXPECT_EQ("", Crypt::encrypt("secret"));
    EXPECT_TRUE(anyLine(capture, "cannot read key file " + missing + ": No such file or directory"));

    for (const std::string& content : {std::string(31, 'k'), std::string(33, 'k'), std::string()}) {
        velm::AppProperties::set("Crypt", "KeyFile", directory.write("bad.key", content).c_str());
        EXPECT_EQ("", Crypt::encrypt("secret")) << content.size() << " bytes";
        EXPECT_EQ("", Crypt::decrypt("AAAA")) << content.size() << " bytes";
    }
    EXPECT_TRUE(anyLine(capture, "must hold exactly 32 bytes"));
}

TEST(PlatformCrypt, FailuresAreTracedEvenWithTheChannelOff) {
    struct Sink : velm::TraceSink {
        std::vector<std::string> lines;
        void write(const char* channel, const char* text) override {
            if (std::string(channel) == "Crypt")
                lines.push_back(text);
        }
    } sink;
    velm::Trace::setSink(&sink);
    velm::Trace::enable("Crypt", false);
    EXPECT_EQ("", Crypt::decrypt("AAAA"));
    velm::Trace::setSink(nullptr);
    EXPECT_EQ(1u, sink.lines.size());
}
