// The resolver module loader: a module's answers passed on, and modules that cannot be loaded.
// The adapter loads its module once per process; every test case here runs in a process of its own.
#include "AppProperties.h"
#include "ContactResolverAdapter.h"
#include "TempDirectory.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using velm::ContactResolverAdapter;
using Contacts = std::vector<std::string>;

namespace {

void configure(const std::string& module) {
    velm::AppProperties::set("LocationService", "ResolverModule", module.c_str());
}

} // namespace

TEST(PlatformContactResolver, NoModuleConfiguredTakesNoAction) {
    Contacts contacts;
    std::string error;
    EXPECT_EQ(2, ContactResolverAdapter::instance()->resolve("sip:two@example.com", contacts, error));
    EXPECT_TRUE(contacts.empty());
    EXPECT_EQ("", error);
}

TEST(PlatformContactResolver, ModuleLoadedAtFirstUseAnswers) {
    configure(VELM_TEST_RESOLVER_MODULE);
    ContactResolverAdapter* adapter = ContactResolverAdapter::instance();
    Contacts contacts{"sip:already@there"};
    std::string error;
    EXPECT_EQ(0, adapter->resolve("sip:two@example.com", contacts, error));
    EXPECT_EQ((Contacts{"sip:already@there", "sip:first@192.0.2.1:5060", "sip:second@192.0.2.2;transport=tcp"}),
              contacts);
    configure("/nonexistent/other-module.so");

    const std::pair<const char*, int> answers[] = {{"sip:none@example.com", 0}, {"sip:unknown@example.com", 1},
                                                   {"sip:other@example.com", 2}, {"sip:odd@example.com", 7}};
    for (const auto& answer : answers) {
        contacts.clear();
        EXPECT_EQ(answer.second, adapter->resolve(answer.first, contacts, error)) << answer.first;
        EXPECT_EQ("", error);
        EXPECT_TRUE(contacts.empty());
    }
    EXPECT_EQ(3, adapter->resolve("sip:fail@example.com", contacts, error));
    EXPECT_EQ("routing service unreachable for sip:fail@example.com", error);
    EXPECT_EQ(3, adapter->resolve(nullptr, contacts, error));
    EXPECT_EQ("no request URI given", error);
}

// Which module cannot be loaded: one that is absent, a file that is no shared
// object, a library without the entry point.
class PlatformContactResolverLoad : public testing::TestWithParam<int> {};

TEST_P(PlatformContactResolverLoad, FailureIsAnErrorNamingTheFileLoggedOnce) {
    velmtest::TempDirectory directory;
    const std::string paths[] = {directory.path() + "/absent-resolver.so",
                                 directory.write("broken-resolver.so", "#!/bin/sh\n" + std::string(200, '#') + "\n"),
                                 VELM_TEST_NOT_A_RESOLVER};
    const std::string& path = paths[GetParam()];
    configure(path);
    velmtest::TraceCapture capture({});
    Contacts contacts;
    std::string error;
    EXPECT_EQ(3, ContactResolverAdapter::instance()->resolve("sip:two@example.com", contacts, error));
    EXPECT_TRUE(contacts.empty());
    if (GetParam() == 2) {
        EXPECT_EQ("resolver module " + path + " has no function velm_resolve_contacts", error);
    } else {
        std::string prefix = "cannot load resolver module " + path + ": ";
        EXPECT_EQ(0u, error.find(prefix)) << error;
        EXPECT_GT(error.size(), prefix.size()) << "the loader's reason follows";
    }
    if (GetParam() == 0) {
        EXPECT_NE(std::string::npos, error.find("No such file or directory")) << error;
    }
    std::string again;
    EXPECT_EQ(3, ContactResolverAdapter::instance()->resolve("sip:two@example.com", contacts, again));
    EXPECT_EQ(error, again);
    EXPECT_EQ((Contacts{error}), capture.lines("ContactResolverAdapter")) << "logged once, even with the channel off";
}

INSTANTIATE_TEST_SUITE_P(Modules, PlatformContactResolverLoad, testing::Values(0, 1, 2));
