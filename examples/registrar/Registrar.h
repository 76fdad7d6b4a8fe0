// Registrar: REGISTER requests applied to the contact table.
#ifndef VELM_REGISTRAR_REGISTRAR_H
#define VELM_REGISTRAR_REGISTRAR_H

#include "Bindings.h"
#include "RegisterRequest.h"
#include "SipResponse.h"
#include "Trace.h"

#include <vector>

namespace velm {
class LocationService;
}

namespace registrar {

class DigestAuthenticator;
class SipRequest;

// Applies REGISTER requests to the contact table through one thread's
// LocationService: new bindings, refreshes and removals (one contact, or all
// with "*"), and answers with the bindings that then exist. With an
// authenticator, only requests it admits are applied.
class Registrar {
public:
    Registrar(velm::LocationService& service, const ExpiryPolicy& policy, DigestAuthenticator* authenticator);

    SipResponse handle(const SipRequest& request);

private:
    // A binding asked for and the stored contact it names (null for a new one).
    struct Change {
        ContactBinding binding;
        const velm::ContactRecord* stored;
    };

    velm::DatabaseResult apply(int key, const SipRequest& request, const Change& change, long now);
    velm::DatabaseResult add(int key, const SipRequest& request, const ContactBinding& binding, long now);
    velm::DatabaseResult refresh(int key, const SipRequest& request, const Change& change, long now);
    velm::DatabaseResult remove(int key, const std::string& address, const std::string& header);
    velm::DatabaseResult removeAll(int key);
    SipResponse answer(int key, long now);

    velm::LocationService& m_service;
    Bindings m_bindings;
    ExpiryPolicy m_policy;
    DigestAuthenticator* m_authenticator;
    velm::Trace m_trace;
};

} // namespace registrar

#endif
