// ServerTransactionsTest: the transaction table's timers and bound, which a SIPp scenario cannot wait for.
#include "ServerTransactions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using registrar::ServerTransactions;

// One call at `at` ms: begin() says "new", "proceeding" or "completed";
// acknowledge() says "acked" or "none"; the complete forms say nothing.
enum class Call { Begin, Complete, CompleteOverTcp, CompleteInvite, Acknowledge };
struct Step {
    int at;
    Call call;
    const char* key;
    const char* expected;
};
struct Case {
    const char* name;
    size_t capacity;
    std::vector<Step> steps;
};

const std::vector<Case> CASES = {
    {"a non-INVITE answer is repeated for Timer J, 32 s",
     10,
     {{0, Call::Begin, "r", "new"},
      {100, Call::Begin, "r", "proceeding"},
      {200, Call::Complete, "r", ""},
      {32100, Call::Begin, "r", "completed"},
      {32300, Call::Begin, "r", "new"}}},
    {"over TCP a non-INVITE transaction ends with its answer",
     10,
     {{0, Call::Begin, "r", "new"}, {1, Call::CompleteOverTcp, "r", ""}, {2, Call::Begin, "r", "new"}}},
    {"an INVITE waits 32 s for its ACK, then absorbs retransmissions for Timer I, 5 s",
     10,
     {{0, Call::Acknowledge, "i", "none"},
      {0, Call::Begin, "i", "new"},
      {0, Call::Acknowledge, "i", "none"},
      {1, Call::CompleteInvite, "i", ""},
      {30000, Call::Acknowledge, "i", "acked"},
      {34000, Call::Begin, "i", "completed"},
      {35100, Call::Acknowledge, "i", "none"}}},
    {"when full the oldest goes first",
     2,
     {{0, Call::Begin, "a", "new"},
      {1, Call::Begin, "b", "new"},
      {2, Call::Begin, "c", "new"},
      {3, Call::Begin, "b", "proceeding"},
      {4, Call::Begin, "a", "new"},
      {5, Call::Begin, "c", "proceeding"}}},
};

TEST(ServerTransactionsTest, TimersAndBound) {
    const char* const STATES[] = {"new", "proceeding", "completed"};
    for (const Case& test : CASES) {
        SCOPED_TRACE(test.name);
        ServerTransactions table(test.capacity);
        const ServerTransactions::Clock::time_point start;
        for (const Step& step : test.steps) {
            SCOPED_TRACE("at " + std::to_string(step.at) + " ms, key " + step.key);
            const ServerTransactions::Clock::time_point now = start + std::chrono::milliseconds(step.at);
            const std::string answer = std::string("answer of ") + step.key;
            std::string found;
            switch (step.call) {
            case Call::Begin: {
                const int state = static_cast<int>(table.begin(step.key, now, found));
                EXPECT_STREQ(STATES[state], step.expected);
                EXPECT_EQ(found, std::string(step.expected) == "completed" ? answer : "");
                break;
            }
            case Call::Acknowledge:
                EXPECT_STREQ(table.acknowledge(step.key, false, now) ? "acked" : "none", step.expected);
                break;
            default:
                table.complete(step.key, answer, step.call == Call::CompleteInvite, step.call == Call::CompleteOverTcp,
                               now);
            }
        }
    }
}

} // namespace
