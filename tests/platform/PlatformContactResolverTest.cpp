// The adapter loads its module once per process; every test case here runs in
// a process of its own.
#include "AppProperties.h"
#include "ContactResolverAdapter.h"
#include "TempDirectory.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using velm::ContactResolverAdapter;

namespace {

using Contacts = std::vector<std::string>;

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

TEST(PlatformContactResolver, ModuleAnswersArePassedOn) {
    configure(VELM_TEST_RESOLVER_MODULE);
    ContactResolverAdapter* adapter = ContactResolverAdapter::instance();
    Contacts contacts{"sip:already@there"};
    std::string error;
    EXPECT_EQ(0, adapter->resolve("sip:two@example.com", contacts, error));
    EXPECT_EQ((Contacts{"sip:already@there", "sip:first@192.0.2.1:5060", "sip:second@192.0.2.2;transport=tcp"}),
              contacts);

    contacts.clear();
    EXPECT_EQ(0, adapter->resolve("sip:none@example.com", contacts, error));
    EXPECT_TRUE(contacts.empty());
    EXPECT_EQ(1, adapter->resolve("sip:unknown@example.com", contacts, error));
    EXPECT_EQ(2, adapter->resolve("sip:other@example.com", contacts, error));
    EXPECT_EQ(7, adapter->resolve("sip:odd@example.com", contacts, error));
    EXPECT_EQ("", error);
    EXPECT_TRUE(contacts.empty());

    EXPECT_EQ(3, adapter->resolve("sip:fail@example.com", contacts, error));
    EXPECT_EQ("routing service unreachable for sip:fail@example.com", error);
    EXPECT_EQ(3, adapter->resolve(nullptr, contacts, error));
    EXPECT_EQ("no request URI given", error);
}

TEST(PlatformContactResolver, ModuleIsLoadedOnceAtFirstUse) {
    configure(VELM_TEST_RESOLVER_MODULE);
    Contacts contacts;
    std::string error;
    ASSERT_EQ(0, ContactResolverAdapter::instance()->resolve("sip:two@example.com", contacts, error));
    configure("/nonexistent/other-module.so");
    EXPECT_EQ(0, ContactResolverAdapter::instance()->resolve("sip:two@example.com", contacts, error));
    EXPECT_EQ(4u, contacts.size());
}

TEST(PlatformContactResolver, MissingModuleIsAnErrorNamingTheFile) {
    velmtest::TempDirectory directory;
    std::string missing = directory.path() + "/absent-resolver.so";
    configure(missing);
    velmtest::TraceCapture capture({});
    Contacts contacts;
    std::string error;
    EXPECT_EQ(3, ContactResolverAdapter::instance()->resolve("sip:two@example.com", contacts, error));
    EXPECT_EQ(0u, error.find("cannot load resolver module " + missing + ": ")) << error;
    EXPECT_NE(std::string::npos, error.find("No such file or directory")) << error;
    EXPECT_TRUE(contacts.empty());
    EXPECT_EQ((std::vector<std::string>{error}), capture.lines("ContactResolverAdapter"))
        << "the failure is logged once, even with the channel off";

    std::string again;
    EXPECT_EQ(3, ContactResolverAdapter::instance()->resolve("sip:two@example.com", contacts, again));
    EXPECT_EQ(error, again);
    EXPECT_EQ(1u, capture.lines("ContactResolverAdapter").size());
}

TEST(PlatformContactResolver, FileThatIsNoSharedObjectIsAnError) {
    velmtest::TempDirectory directory;
    std::string broken = directory.write("broken-resolver.so", "#!/bin/sh\n" + std::string(200, '#') + "\n");
    configure(broken);
    Contacts contacts;
    std::string error;
    EXPECT_EQ(3, ContactResolverAdapter::instance()->resolve("sip:two@example.com", contacts, error));
    std::string prefix = "cannot load resolver module " + broken + ": ";
    EXPECT_EQ(0u, error.find(prefix)) << error;
    EXPECT_GT(error.size(), prefix.size()) << "the loader's reason follows";
}

TEST(PlatformContactResolver, LibraryWithoutTheEntryPointIsAnError) {
    configure(VELM_TEST_NOT_A_RESOLVER);
    Contacts contacts;
    std::string error;
    EXPECT_EQ(3, ContactResolverAdapter::instance()->resolve("sip:two@example.com", contacts, error));
    EXPECT_EQ(std::string("resolver module ") + VELM_TEST_NOT_A_RESOLVER + " has no function velm_resolve_contacts",
              error);
}
