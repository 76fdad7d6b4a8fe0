// Redirector: the redirect server, which tells where a user is found.
#ifndef VELM_REGISTRAR_REDIRECTOR_H
#define VELM_REGISTRAR_REDIRECTOR_H

#include "Bindings.h"
#include "SipResponse.h"

#include <vector>

namespace velm {
class LocationService;
}

namespace registrar {

class SipRequest;

// Answers a request to a user with where to find the user: 302 with the
// Contacts in routing order, 404 for an unknown user, 480 for a user without
// a reachable contact. A request for no subscriber is routed by the digit
// prefixes, then by the address maps.
class Redirector {
public:
    explicit Redirector(velm::LocationService& service);

    SipResponse handle(const SipRequest& request);

private:
    // The contacts of the subscriber at `uri`: its key and node checked once
    // each, then its contacts read by key.
    velm::DatabaseResult lookup(const std::string& uri, std::string& ordering, bool& redirect,
                                std::vector<velm::ContactRecord>& contacts);

    velm::LocationService& m_service;
    Bindings m_bindings;
};

// 302 listing `contacts` in the order given, with q-values falling from 1 by
// a tenth per place (never below 0.1).
SipResponse redirectTo(const std::vector<velm::ContactRecord>& contacts);

} // namespace registrar

#endif
