// A LocationService connected to a fresh database, and its request lookup.
#include "ServiceFixture.h"

namespace velmtest {

void ServiceTest::SetUp() {
    velm::DatabaseResult connected = service.connect(db.name().c_str(), "velm", "");
    ASSERT_TRUE(connected.okay()) << connected.getErrorMessage();
}

void ServiceTest::parameter(const std::string& name, const std::string& value) {
    db.admin().exec("INSERT INTO system_parameters VALUES ('velm', 'system', '" + name + "', '" + value + "')");
}

velm::DatabaseResult ServiceTest::lookup(const std::string& requestUri) {
    ordering.clear();
    redirect = false;
    contacts.clear();
    return service.lookupContacts(requestUri.c_str(), ordering, redirect, contacts, "alice");
}

} // namespace velmtest
