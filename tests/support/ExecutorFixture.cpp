// A command executor connected to a fresh database, and the subscribers the executor tests share.
#include "ExecutorFixture.h"

namespace velmtest {

const char* const EXECUTOR = "DatabaseCommandExecutor";

std::string kind(const velm::DatabaseResult& result) {
    if (result.okay())
        return "okay";
    if (result.notFound())
        return "notFound";
    if (result.queryError())
        return "queryError";
    return result.connectionError() ? "connectionError" : "badParameter";
}

std::string joined(std::initializer_list<std::string> values) {
    std::string text;
    for (const std::string& value : values)
        text += value + "|";
    return text.substr(0, text.size() - 1);
}

::testing::AssertionResult holds(const std::string& text, const std::string& part) {
    if (text.find(part) != std::string::npos)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "\"" << text << "\" lacks \"" << part << "\"";
}

void ExecutorTest::SetUp() {
    ASSERT_TRUE(exec.connect(db.name().c_str(), "velm", "pw")) << exec.getErrorMessage();
}

void ExecutorTest::provisionPeople() {
    for (int sid : {7, 8, 9})
        rows.subscriber(sid);
    rows.contactSet(100, 7, "sequential", false);
    rows.contactSet(200, 8, "cycle");
    rows.contactSet(300, 9);
    rows.publicAddress(10, "alice", "example.com", 100, true);
    rows.publicAddress(11, "1234", "example.com", 100, false);
    rows.publicAddress(12, "al", "example.com", 100, false);
    rows.publicAddress(20, "bob", "example.com", 200, true);
    rows.publicAddress(30, "carol", "example.org", 300, true);
}

} // namespace velmtest
