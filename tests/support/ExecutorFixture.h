// A command executor connected to a fresh database, and the subscribers the executor tests share.
#ifndef VELM_TEST_EXECUTORFIXTURE_H
#define VELM_TEST_EXECUTORFIXTURE_H

#include "DatabaseCommandExecutor.h"
#include "DatabaseResult.h"
#include "Provisioning.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace velmtest {

// The trace channel of the command executor.
extern const char* const EXECUTOR;

// The outcome's kind, so that tables can name it: "okay", "notFound",
// "queryError", "connectionError" or "badParameter".
std::string kind(const velm::DatabaseResult& result);

using Texts = std::vector<std::string>;

// A number as text, for joined().
inline std::string text(long value) {
    return std::to_string(value);
}

// The values, '|' between them: a record's fields as one text to compare.
std::string joined(std::initializer_list<std::string> values);

// Whether `text` holds `part`, with the text shown when it does not.
::testing::AssertionResult holds(const std::string& text, const std::string& part);

class ExecutorTest : public ::testing::Test {
protected:
    void SetUp() override;

    // Subscriber 7, set 100 (sequential, replace_uri false): alice@example.com
    // (10, primary), aliases 1234 (11) and al (12). Subscriber 8, set 200
    // ("cycle"): bob@example.com (20, primary). Subscriber 9, set 300:
    // carol@example.org (30, primary).
    void provisionPeople();

    TestDatabase db;
    Provisioning rows{db.admin()};
    velm::DatabaseCommandExecutor exec;
};

} // namespace velmtest

#endif
