// Bindings: the library calls the registrar and the redirect server share.
#ifndef VELM_REGISTRAR_BINDINGS_H
#define VELM_REGISTRAR_BINDINGS_H

#include "ContactRecord.h"
#include "DatabaseResult.h"

#include <string>
#include <vector>

namespace velm {
class LocationService;
}

namespace registrar {

class SipResponse;

// The library calls the registrar and the redirect server share.
class Bindings {
public:
    explicit Bindings(velm::LocationService& service) : m_service(service) {}

    // The public address key of user@host, a subscriber of this node.
    velm::DatabaseResult key(const std::string& user, const std::string& host, int& key);
    // The contacts of `key` that a REGISTER bound and that have not expired
    // at `now`, in routing order (highest qvalue, then latest expiry, first).
    velm::DatabaseResult current(int key, long now, std::vector<velm::ContactRecord>& contacts);

private:
    velm::LocationService& m_service;
};

// True when `contact` can no longer be reached at `now`.
bool expired(const velm::ContactRecord& contact, long now);
// `contacts` without the expired ones, in the same order.
std::vector<velm::ContactRecord> reachable(const std::vector<velm::ContactRecord>& contacts, long now);
// A qvalue in thousandths, as SIP writes it ("1", "0.8", "0.05", "0").
std::string qText(int thousandths);
// The stored qvalue text in thousandths (0 when unreadable).
int thousandths(const std::string& qvalue);
// 503 with Retry-After and a fixed text; what failed goes to the trace.
SipResponse databaseFailure(const std::string& what, const velm::DatabaseResult& result);

} // namespace registrar

#endif
