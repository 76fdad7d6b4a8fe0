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

    // The public address key of user@host, a subscriber of this node, and
    // its contact set (-1 when unknown). Each request asks once and passes
    // both on: the library's operations look neither up again when given.
    velm::DatabaseResult key(const std::string& user, const std::string& host, int& key, int& csid);
    // The contacts of `key` that a REGISTER bound and that have not expired
    // at `now`, in routing order (highest qvalue, then latest expiry, first).
    velm::DatabaseResult current(int key, long now, std::vector<velm::ContactRecord>& contacts);

private:
    velm::LocationService& m_service;
};

// What a step-by-step registration operation reported, in its output vectors.
struct BindingChanges {
    std::vector<velm::ContactRecord> added;
    std::vector<velm::ContactRecord> deleted;
    std::vector<velm::ContactRecord> changed;
};

// Brings `bindings`, as current() read them, up to date with `changes`: the
// bindings the operation left, filtered and ordered as current() would read
// them, without reading them again.
void applyChanges(const BindingChanges& changes, long now, std::vector<velm::ContactRecord>& bindings);

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
