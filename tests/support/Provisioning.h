// Provisioning: the rows a test needs, written outside the library.
#ifndef VELM_TEST_PROVISIONING_H
#define VELM_TEST_PROVISIONING_H

#include <string>

namespace velmtest {

class AdminConnection;

// Subscriber, contact-set, address and contact rows for a test, written
// outside the library. Identifiers are the caller's, so tests can name them.
class Provisioning {
public:
    explicit Provisioning(AdminConnection& admin) : m_admin(admin) {}

    void subscriber(int sid, bool active = true);
    void contactSet(int csid, int sid, const std::string& ordering = "sequential", bool replaceUri = true);
    void publicAddress(int id, const std::string& handle, const std::string& domain, int csid, bool primary);
    // A registered (non-permanent, with a Contact header) contact; returns
    // its contact_id.
    int contact(int csid, const std::string& address, const std::string& qvalue, long expires);
    // A contact as the provisioning side stores it: permanent, no header.
    int permanentContact(int csid, const std::string& address);

private:
    AdminConnection& m_admin;
};

} // namespace velmtest

#endif
