#include "DatabaseResult.h"

#include <gtest/gtest.h>

using velm::DatabaseResult;

TEST(DatabaseResult, StartsOkayWithoutMessage) {
    DatabaseResult result;
    EXPECT_TRUE(result.okay());
    EXPECT_FALSE(result.fatalError());
    EXPECT_EQ("", result.getErrorMessage());
}

TEST(DatabaseResult, OnlyConnectionAndQueryErrorsAreFatal) {
    DatabaseResult result;
    result.setConnectionError();
    EXPECT_TRUE(result.connectionError());
    EXPECT_TRUE(result.fatalError());
    result.setQueryError();
    EXPECT_TRUE(result.queryError());
    EXPECT_TRUE(result.fatalError());
    result.setNotFound();
    EXPECT_TRUE(result.notFound());
    EXPECT_FALSE(result.fatalError());
    result.setBadParameter();
    EXPECT_TRUE(result.badParameter());
    EXPECT_FALSE(result.fatalError());
    EXPECT_EQ(5, static_cast<int>(result.m_status));
}

TEST(DatabaseResult, StatusSettersKeepTheMessageAndNullKeepsItToo) {
    DatabaseResult result;
    result.setErrorMessage("first");
    result.setQueryError();
    result.setErrorMessage(static_cast<const char*>(nullptr));
    EXPECT_EQ("first", result.getErrorMessage());
    result.setOkay();
    EXPECT_EQ("first", result.getErrorMessage());
    result.setErrorMessage(std::string());
    EXPECT_EQ("", result.getErrorMessage());
}
