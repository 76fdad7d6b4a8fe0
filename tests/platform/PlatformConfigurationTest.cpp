#include "AppProperties.h"
#include "ServiceRegistrar.h"
#include "TempDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>

using velm::AppProperties;

namespace {

std::string value(const char* section, const char* key) {
    const char* text = AppProperties::get(section, key);
    return text != nullptr ? text : "<null>";
}

} // namespace

TEST(PlatformAppProperties, FileValuesAndOverrides) {
    velmtest::TempDirectory directory;
    std::string file = directory.write("velm.conf", "[SipServer]\nDatabaseType = pgsql\nPrefixMapInterval=5\n"
                                                    "[Services]\nvelm.sip.db = postgresql://db/velm\n");
    ASSERT_TRUE(AppProperties::load(file.c_str()));
    EXPECT_EQ("pgsql", value("SipServer", "DatabaseType"));
    EXPECT_EQ("5", value("SipServer", "PrefixMapInterval"));
    EXPECT_EQ("<null>", value("SipServer", "Absent"));
    EXPECT_EQ("<null>", value("Absent", "DatabaseType"));

    const char* before = AppProperties::get("SipServer", "PrefixMapInterval");
    AppProperties::set("SipServer", "PrefixMapInterval", "60");
    EXPECT_EQ("60", value("SipServer", "PrefixMapInterval"));
    EXPECT_STREQ("5", before) << "a text handed out earlier stays valid";

    AppProperties::set("SipServer", "DatabaseType", nullptr);
    EXPECT_EQ("<null>", value("SipServer", "DatabaseType"));

    ASSERT_TRUE(AppProperties::load(file.c_str()));
    EXPECT_EQ("5", value("SipServer", "PrefixMapInterval")) << "a load replaces every value";

    EXPECT_FALSE(AppProperties::load((directory.path() + "/absent.conf").c_str()));
    EXPECT_EQ("5", value("SipServer", "PrefixMapInterval")) << "a failed load keeps the values";
    EXPECT_FALSE(AppProperties::load(nullptr));

    AppProperties::clear();
    EXPECT_EQ("<null>", value("SipServer", "PrefixMapInterval"));
}

TEST(PlatformAppProperties, NullArgumentsAreHarmless) {
    AppProperties::set(nullptr, "Key", "value");
    AppProperties::set("Section", nullptr, "value");
    EXPECT_EQ(nullptr, AppProperties::get(nullptr, "Key"));
    EXPECT_EQ(nullptr, AppProperties::get("Section", nullptr));
}

TEST(PlatformAppProperties, DatabaseKeyFromPasswordFileOrEnvironment) {
    velmtest::TempDirectory directory;
    std::string key = "stale";

    unsetenv("VELM_DB_PASSWORD");
    EXPECT_TRUE(AppProperties::getDatabaseKey(key));
    EXPECT_EQ("", key);

    setenv("VELM_DB_PASSWORD", "from-environment", 1);
    EXPECT_TRUE(AppProperties::getDatabaseKey(key));
    EXPECT_EQ("from-environment", key);

    std::string file = directory.write("db.password", "from file\r\nsecond line\n");
    AppProperties::set("Database", "PasswordFile", file.c_str());
    EXPECT_TRUE(AppProperties::getDatabaseKey(key));
    EXPECT_EQ("from file", key) << "the file wins over the environment";

    std::string missing = directory.path() + "/absent";
    AppProperties::set("Database", "PasswordFile", missing.c_str());
    EXPECT_FALSE(AppProperties::getDatabaseKey(key));
    EXPECT_EQ("", key);
    unsetenv("VELM_DB_PASSWORD");
}

TEST(PlatformServiceRegistrar, LocatesConfiguredServices) {
    std::string location = "stale";
    EXPECT_FALSE(velm::ServiceRegistrar::instance()->locate("velm.sip.db", location, ""));
    EXPECT_EQ("", location);
    EXPECT_FALSE(velm::ServiceRegistrar::instance()->locate("velm.sip.db", location, "velm"));
    EXPECT_EQ("velm", location);

    AppProperties::set("Services", "velm.sip.db", "postgresql://db.example.com:5433/velm");
    EXPECT_TRUE(velm::ServiceRegistrar::instance()->locate("velm.sip.db", location, "velm"));
    EXPECT_EQ("postgresql://db.example.com:5433/velm", location);
}

TEST(PlatformServiceRegistrar, HostInstalledRegistrarIsUsed) {
    struct Directory : velm::ServiceRegistrar {
        bool locate(const std::string& name, std::string& out, const std::string&) override {
            out = "directory:" + name;
            return true;
        }
    } directory;
    AppProperties::set("Services", "velm.sip.db", "from-configuration");
    velm::ServiceRegistrar::setInstance(&directory);
    std::string location;
    EXPECT_TRUE(velm::ServiceRegistrar::instance()->locate("velm.sip.db", location, ""));
    EXPECT_EQ("directory:velm.sip.db", location);

    velm::ServiceRegistrar::setInstance(nullptr);
    EXPECT_TRUE(velm::ServiceRegistrar::instance()->locate("velm.sip.db", location, ""));
    EXPECT_EQ("from-configuration", location);
}
