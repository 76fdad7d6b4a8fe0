// A LocationService connected to a fresh database, and its request lookup.
#ifndef VELM_TEST_SERVICEFIXTURE_H
#define VELM_TEST_SERVICEFIXTURE_H

#include "AlarmCapture.h"
#include "ContactRecord.h"
#include "LocationService.h"
#include "TestServer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velmtest {

class ServiceTest : public testing::Test {
protected:
    void SetUp() override;

    // A system parameter of the node (section velm, system).
    void parameter(const std::string& name, const std::string& value);

    // lookupContacts for `requestUri` as alice, into the members below.
    velm::DatabaseResult lookup(const std::string& requestUri);

    TestDatabase db;
    AlarmCapture alarms;
    velm::LocationService service;
    std::string ordering;
    bool redirect = false;
    std::vector<velm::ContactRecord> contacts;
};

} // namespace velmtest

#endif
