// The text helpers that commands build statements with and read columns by.
#include "ColumnText.h"
#include "EscapedString.h"
#include "ValueString.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

using velm::EscapedString;

TEST(ValueString, BuildsColumnAndValueListsWithNulls) {
    ValueString list;
    list.add("a", "x");
    list.add("b", static_cast<const char*>(nullptr));
    list.add("c", "");
    EXPECT_STREQ("(a,b,c)", list.names());
    EXPECT_STREQ("('x',NULL,'')", list.values());
    // Each call closes the list again: the statement must ask once.
    EXPECT_STREQ("(a,b,c))", list.names());
    ValueString empty;
    EXPECT_STREQ("()", empty.names());
}

TEST(ColumnQuoting, EachKindWritesItsLiteral) {
    using velm::columns::Quoting;
    const struct {
        Quoting quoting;
        std::string value;
        const char* literal;
    } cases[] = {
        {Quoting::Bare, "-12", "-12"},
        {Quoting::Quoted, "7", "'7'"},
        {Quoting::Escaped, "o'x", "'o''x'"},
        {Quoting::Escaped, "", "''"},
        {Quoting::Escaped, std::string("cut\0'", 5), "'cut'"},
        {Quoting::EscapedOrNull, "o'x", "'o''x'"},
        {Quoting::EscapedOrNull, "", "NULL"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.literal, velm::columns::literal(c.quoting, c.value)) << c.value;
    EXPECT_FALSE(velm::columns::isEscaped(Quoting::Bare));
    EXPECT_FALSE(velm::columns::isEscaped(Quoting::Quoted));
    EXPECT_TRUE(velm::columns::isEscaped(Quoting::Escaped));
    EXPECT_TRUE(velm::columns::isEscaped(Quoting::EscapedOrNull));
}

TEST(EscapedString, DoublesQuotesAndBackslashesAsLibpqDoes) {
    EXPECT_STREQ("O''Brien", EscapedString("O'Brien").value());
    EXPECT_STREQ("a\\\\b", EscapedString(std::string("a\\b")).value());
    EXPECT_STREQ("''''", EscapedString("''").value());
    EXPECT_STREQ("plain", EscapedString("plain").value());
}

TEST(EscapedString, NullAndEmptyTextsGiveTheEmptyText) {
    EXPECT_STREQ("", EscapedString(static_cast<const char*>(nullptr)).value());
    EXPECT_STREQ("", EscapedString(std::string()).value());
}

TEST(BooleanColumns, TrueAndFalseAreNotComplements) {
    for (char c : {'t', 'T', '1'}) {
        EXPECT_TRUE(velm::isTrue(c)) << c;
        EXPECT_FALSE(velm::isFalse(c)) << c;
    }
    for (char c : {'f', 'F', '0'}) {
        EXPECT_TRUE(velm::isFalse(c)) << c;
        EXPECT_FALSE(velm::isTrue(c)) << c;
    }
    // An SQL NULL reads as an empty text: its first character is neither.
    for (char c : {'\0', 'y', 'n', ' '}) {
        EXPECT_FALSE(velm::isTrue(c)) << int(c);
        EXPECT_FALSE(velm::isFalse(c)) << int(c);
    }
}

TEST(MonthNames, OnlyExactThreeLetterAbbreviations) {
    EXPECT_EQ(0, velm::monthToInt("Jan"));
    EXPECT_EQ(5, velm::monthToInt("Jun"));
    EXPECT_EQ(11, velm::monthToInt("Dec"));
    EXPECT_EQ(-1, velm::monthToInt("December"));
    EXPECT_EQ(-1, velm::monthToInt("dec"));
    EXPECT_EQ(-1, velm::monthToInt(""));
}

class ConvertTime : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }
};

TEST_F(ConvertTime, ReadsTheCtimeLayoutAsLocalTime) {
    EXPECT_EQ(1794723645, velm::convertTime("Sun Nov 15 06:20:45 2026"));
    // ctime pads a one-digit day with a second blank.
    EXPECT_EQ(1772691645, velm::convertTime("Thu Mar  5 06:20:45 2026"));
}

TEST_F(ConvertTime, OtherLayoutsGiveZero) {
    EXPECT_EQ(0, velm::convertTime(nullptr));
    EXPECT_EQ(0, velm::convertTime("2026-11-15 06:20:45"));
    EXPECT_EQ(0, velm::convertTime("Sun nov 15 06:20:45 2026"));
    EXPECT_EQ(0, velm::convertTime("Sun Nov 15 06:20:45 2026 extra"));
    EXPECT_EQ(0, velm::convertTime(""));
    EXPECT_EQ(0, velm::convertTime("Fri Dec 31 23:59:59 2147483648")) << "a year beyond any calendar";
    EXPECT_EQ(0, velm::convertTime("Fri Dec 31 23:59:59 99999999999999999999"));
}
