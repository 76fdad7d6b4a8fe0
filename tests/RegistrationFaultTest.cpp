#include "AlarmCapture.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "QueryResultPtr.h"
#include "Registrations.h"
#include "TestConfiguration.h"
#include "TestServer.h"
#include "Trace.h"

#include <gtest/gtest.h>

#include <cstdlib>

using velm::ContactRecord;
using velm::DatabaseResult;
using velmtest::contact;
using Stored = std::map<std::string, std::string>;

namespace {

const char* const A = "sip:alice@192.0.2.10:5060";
const char* const B = "sip:alice@192.0.2.11:5060";

// Ends the service's server session just before the first statement that
// contains `trigger` is sent, and keeps the database closed to new sessions
// so that the connection cannot be reset. Collects the LocationService log.
class KillBefore : public velm::TraceSink {
public:
    KillBefore(velmtest::TestDatabase& db, int pid, std::string trigger)
        : m_db(db), m_postgres("postgres"), m_pid(pid), m_trigger(std::move(trigger)) {
        velm::Trace::enable("DatabaseConnection", true);
        velm::Trace::setSink(this);
    }
    ~KillBefore() override {
        velm::Trace::setSink(nullptr);
        velm::Trace::enable("DatabaseConnection", false);
        m_postgres.exec("ALTER DATABASE " + m_db.name() + " ALLOW_CONNECTIONS true");
    }
    void write(const char* channel, const char* text) override {
        std::string line(text);
        if (std::string(channel) == "LocationService")
            m_log.push_back(line);
        if (m_killed || line.rfind("Executing query", 0) != 0 || line.find(m_trigger) == std::string::npos)
            return;
        m_killed = true;
        m_postgres.exec("ALTER DATABASE " + m_db.name() + " ALLOW_CONNECTIONS false");
        m_db.terminateBackend(m_pid);
    }
    bool killed() const { return m_killed; }
    const std::vector<std::string>& log() const { return m_log; }

private:
    velmtest::TestDatabase& m_db;
    velmtest::AdminConnection m_postgres;
    int m_pid;
    std::string m_trigger;
    bool m_killed = false;
    std::vector<std::string> m_log;
};

} // namespace

TEST(RegistrationFault, ALostConnectionAfterTheSetIsLockedTakesTheRollbackLadder) {
    velmtest::resetProperties();
    velmtest::TestDatabase db;
    int key = velmtest::provisionAddress(db, 1, "alice", "example.com");
    velm::LocationService service;
    ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "").okay());
    std::vector<ContactRecord> first{contact(A)}, added, deleted, changed;
    ASSERT_TRUE(service.registerContacts(key, first, added, deleted, changed).okay());
    added.clear();
    velm::QueryResultPtr pid;
    ASSERT_TRUE(service.m_exec->execute("SELECT pg_backend_pid()", pid).okay());

    velmtest::AlarmCapture alarms;
    DatabaseResult result;
    std::vector<std::string> log;
    {
        // B demotes A first, then the session ends as B's row is inserted.
        KillBefore kill(db, std::atoi(pid.getValue(0, 0)), "INSERT INTO contact");
        std::vector<ContactRecord> second{contact(B)};
        result = service.registerContacts(key, second, added, deleted, changed);
        ASSERT_TRUE(kill.killed());
        log = kill.log();
    }

    EXPECT_TRUE(result.queryError()) << result.getErrorMessage();
    EXPECT_TRUE(added.empty());
    EXPECT_TRUE(changed.empty());
    auto texts = alarms.texts("zuVELMProxyDBAccessFailed");
    ASSERT_EQ(2u, texts.size());
    EXPECT_EQ("database failure - registerContacts_12. " + result.getErrorMessage(), texts[0]);
    EXPECT_EQ(0u, texts[1].rfind("database failure - registerContacts_14. ", 0)) << texts[1];
    ASSERT_EQ(2u, log.size());
    EXPECT_EQ("registerContacts failed rollback: " + result.getErrorMessage(), log[0]);
    EXPECT_EQ(0u, log[1].rfind("registerContacts second rollback failed : ", 0)) << log[1];
    // The server rolled the demotion back with the session.
    EXPECT_EQ((Stored{{A, "0.800000"}}), velmtest::storedQvalues(db, key));
}
