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
    // The address of record: its public address key and contact set.
    struct Address {
        int key;
        int csid;
    };
    // A binding asked for and the stored contact it names (null for a new one).
    struct Change {
        ContactBinding binding;
        const velm::ContactRecord* stored;
    };

    // The operations run their step-by-step forms and bring `bindings` up to
    // date with what they report.
    velm::DatabaseResult apply(const Address& address, const SipRequest& request, const Change& change, long now,
                               std::vector<velm::ContactRecord>& bindings);
    velm::DatabaseResult add(const Address& address, const SipRequest& request, const ContactBinding& binding,
                             long now, std::vector<velm::ContactRecord>& bindings);
    velm::DatabaseResult refresh(const Address& address, const SipRequest& request, const Change& change, long now,
                                 std::vector<velm::ContactRecord>& bindings);
    velm::DatabaseResult remove(const Address& address, const std::string& contactAddress, const std::string& header,
                                long now, std::vector<velm::ContactRecord>& bindings);
    velm::DatabaseResult removeAll(const Address& address, long now, std::vector<velm::ContactRecord>& bindings);
    // 200 listing `bindings`; read afresh when the operations report nothing.
    SipResponse answer(const Address& address, long now, std::vector<velm::ContactRecord>& bindings);

    velm::LocationService& m_service;
    Bindings m_bindings;
    ExpiryPolicy m_policy;
    DigestAuthenticator* m_authenticator;
    velm::Trace m_trace;
};

} // namespace registrar

#endif
