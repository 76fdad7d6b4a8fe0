#include "AlarmCapture.h"
#include "AppProperties.h"
#include "LocationService.h"
#include "SigPipeHandler.h"
#include "TestConfiguration.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using velm::AppProperties;
using velm::LocationService;

namespace {

std::unique_ptr<LocationService> configured(const char* section, const char* key, const char* value) {
    velmtest::resetProperties();
    if (value != nullptr)
        AppProperties::set(section, key, value);
    return std::unique_ptr<LocationService>(LocationService::getConnection());
}

struct FlagCase {
    const char* section;
    const char* key;
    const char* value;
    bool autoCommit;
    bool moduleFirst;
    bool noContacts;
    bool notFound;
};

} // namespace

class LocationServiceConfiguration : public testing::TestWithParam<FlagCase> {};

TEST_P(LocationServiceConfiguration, SetsTheFlagsTheValueAsksFor) {
    const FlagCase& c = GetParam();
    auto service = configured(c.section, c.key, c.value);
    ASSERT_NE(nullptr, service);
    EXPECT_EQ(c.autoCommit, service->m_useAutoCommit);
    EXPECT_EQ(c.moduleFirst, service->m_moduleFirst);
    EXPECT_EQ(c.noContacts, service->m_alternateOnNoContacts);
    EXPECT_EQ(c.notFound, service->m_alternateOnNotFound);
}

INSTANTIATE_TEST_SUITE_P(
    Values, LocationServiceConfiguration,
    testing::Values(FlagCase{"SipServer", "DatabaseType", "ODBC", true, false, false, false},
                    FlagCase{"SipServer", "DatabaseType", "odbc", true, false, false, false},
                    FlagCase{"SipServer", "DatabaseType", "postgres", false, false, false, false},
                    FlagCase{"SipServer", "DatabaseType", nullptr, false, false, false, false},
                    FlagCase{"LocationService", "ModuleFirst", "TRUE", false, true, false, false},
                    FlagCase{"LocationService", "ModuleFirst", "yes", false, false, false, false},
                    FlagCase{"LocationService", "ModuleCondition", "notfound;nocontacts", false, false, true, true},
                    FlagCase{"LocationService", "ModuleCondition", "NotFound", false, false, false, false},
                    FlagCase{"LocationService", "ModuleCondition", "nocontacts,other", false, false, true, false},
                    FlagCase{"LocationService", "ModuleCondition", " notfound : ", false, false, false, true}),
    [](const testing::TestParamInfo<FlagCase>& info) {
        std::string name = std::string(info.param.key) + "_" + std::to_string(info.index);
        return name;
    });

TEST(LocationService, WithoutDatabaseUserOperationsReportTheMissingConnection) {
    velmtest::resetProperties();
    velmtest::AlarmCapture alarms;
    velmtest::TraceCapture capture({"LocationService"});
    std::unique_ptr<LocationService> service(LocationService::getConnection());
    ASSERT_NE(nullptr, service);
    EXPECT_EQ(nullptr, service->m_exec);

    velm::DatabaseResult result = service->executeCmd("SELECT 1");
    EXPECT_TRUE(result.connectionError());
    EXPECT_EQ("lookup attempted without a database connection", result.getErrorMessage());
    EXPECT_TRUE(capture.lines("LocationService").empty());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST(LocationService, ExecuteCmdRunsTheStatementAndAlarmsWhenTheServerRejectsIt) {
    velmtest::TestDatabase db;
    velmtest::AlarmCapture alarms;
    velmtest::TraceCapture capture({"LocationService"});
    LocationService service;
    ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "").okay());
    EXPECT_TRUE(capture.contains("LocationService", "establishing database connection to " + db.name() + " as velm"));
    EXPECT_TRUE(capture.contains("LocationService", "connect okay"));

    EXPECT_TRUE(service.executeCmd("CREATE TABLE scratch (n int)").okay());
    EXPECT_TRUE(capture.contains("LocationService", "ExecuteCmd: CREATE TABLE scratch (n int)\n"));
    EXPECT_EQ("0", db.admin().value("SELECT count(*) FROM scratch"));
    EXPECT_TRUE(alarms.alarms().empty());

    velm::DatabaseResult result = service.executeCmd("SELECT nothing FROM nowhere");
    ASSERT_TRUE(result.queryError());
    ASSERT_EQ(1u, alarms.alarms().size());
    EXPECT_EQ("zuVELMProxyDBAccessFailed", alarms.alarms()[0].first);
    EXPECT_EQ("database failure - executeCmd. " + result.getErrorMessage(), alarms.alarms()[0].second);
}

TEST(LocationService, ConnectAgainReplacesTheConnection) {
    velmtest::TestDatabase first;
    velmtest::TestDatabase second;
    LocationService service;
    ASSERT_TRUE(service.connect(first.name().c_str(), "velm", "").okay());
    ASSERT_TRUE(service.connect(second.name().c_str(), "velm", "").okay());
    ASSERT_TRUE(service.executeCmd("CREATE TABLE marker (n int)").okay());
    EXPECT_EQ("1", second.admin().value("SELECT count(*) FROM pg_tables WHERE tablename = 'marker'"));
    // The first session ends; the server notices a moment later.
    std::string sessions;
    for (int attempt = 0; attempt < 500 && sessions != "0"; ++attempt) {
        if (attempt > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        sessions = first.admin().value("SELECT count(*) FROM pg_stat_activity WHERE datname = '" + first.name() +
                                       "' AND pid <> pg_backend_pid()");
    }
    EXPECT_EQ("0", sessions);
}

TEST(LocationService, PrimaryDomainIsSharedByAllInstances) {
    LocationService one;
    LocationService two;
    one.setPrimaryDomain("example.com");
    EXPECT_EQ("example.com", two.getPrimaryDomain());
    EXPECT_TRUE(LocationService::m_bPrefixMapInitialized);
}

TEST(LocationServiceConcurrency, PrimaryDomainIsReadWholeWhileOtherThreadsChangeIt) {
    // Longer than any short-string buffer, so every change reallocates.
    const std::string domains[] = {"registrar-one.example.com", "a-much-longer-primary-domain.example.org"};
    LocationService().setPrimaryDomain(domains[0]);
    std::atomic<bool> stop{false};
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int writer = 0; writer < 2; ++writer)
        threads.emplace_back([&, writer] {
            LocationService service;
            for (int round = 0; round < 2000; ++round)
                service.setPrimaryDomain(domains[(round + writer) % 2]);
        });
    for (int reader = 0; reader < 4; ++reader)
        threads.emplace_back([&] {
            LocationService service;
            while (!stop) {
                std::string domain = service.getPrimaryDomain();
                if (domain != domains[0] && domain != domains[1])
                    ++torn;
            }
        });
    threads[0].join();
    threads[1].join();
    stop = true;
    for (size_t t = 2; t < threads.size(); ++t)
        threads[t].join();
    EXPECT_EQ(0, torn.load());
}

TEST(LocationService, SigPipeHandlerWritesItsLineAndReturns) {
    testing::internal::CaptureStdout();
    sigPipeHandler(SIGPIPE);
    EXPECT_EQ("SIGPIPE occured for soap request\n", testing::internal::GetCapturedStdout());
}
