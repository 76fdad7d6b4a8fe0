// Applying REGISTER requests: adding, refreshing and removing bindings, and answering with those that remain.
#include "Registrar.h"

#include "DigestAuthenticator.h"
#include "LocationService.h"
#include "SipAddr.h"
#include "SipRequest.h"

#include <ctime>

namespace registrar {

namespace {

const char ACTIVE[] = "0.800000";
const char INACTIVE[] = "0.000000";

bool isActive(const std::string& qvalue) {
    return thousandths(qvalue) > 0;
}

const velm::ContactRecord* findStored(const ContactBinding& binding, const std::vector<velm::ContactRecord>& stored) {
    for (const velm::ContactRecord& contact : stored) {
        std::string detail;
        if (velm::SipAddr::addressMatches(binding.uri, contact.address(), detail))
            return &contact;
    }
    return nullptr;
}

// `result`, and when it is a success, `bindings` brought up to date with the
// `changes` the operation reported.
velm::DatabaseResult settled(const velm::DatabaseResult& result, const BindingChanges& changes, long now,
                             std::vector<velm::ContactRecord>& bindings) {
    if (result.okay())
        applyChanges(changes, now, bindings);
    return result;
}

} // namespace

Registrar::Registrar(velm::LocationService& service, const ExpiryPolicy& policy, DigestAuthenticator* authenticator)
    : m_service(service), m_bindings(service), m_policy(policy), m_authenticator(authenticator), m_trace("Registrar") {}

SipResponse Registrar::handle(const SipRequest& request) {
    RegisterRequest registration;
    SipResponse rejection;
    if (!readRegister(request, m_policy, registration, rejection))
        return rejection;
    if (!request.toIsSip() || request.toUser().empty() || request.toHost().empty())
        return SipResponse::badRequest("To is not an address of record");
    if (request.cseq() < 0)
        return SipResponse::badRequest("invalid CSeq number");
    if (m_authenticator != nullptr && !m_authenticator->admit(request, m_service, rejection))
        return rejection;

    Address address{0, -1};
    velm::DatabaseResult result = m_bindings.key(request.toUser(), request.toHost(), address.key, address.csid);
    if (result.notFound())
        return SipResponse(404, "Not Found");
    if (!result.okay())
        return databaseFailure("address of record", result);

    // Read once: the CSeq and call-id rules, MaxContacts and the choice
    // between adding and refreshing need the stored bindings, and the answer
    // is these bindings with the operations' changes applied.
    long now = static_cast<long>(time(nullptr));
    std::vector<velm::ContactRecord> stored;
    result = m_bindings.current(address.key, now, stored);
    if (!result.okay())
        return databaseFailure("bindings", result);
    std::vector<velm::ContactRecord> bindings = stored;

    if (registration.wildcard) {
        m_trace.prn("removing every binding of key %d", address.key);
        result = stored.empty() ? velm::DatabaseResult() : removeAll(address, now, bindings);
        return result.okay() ? answer(address, now, bindings) : databaseFailure("unregistration", result);
    }

    // Every binding is checked before the first is changed, so that a stale
    // request, or one that would bind too many contacts, changes nothing.
    std::vector<Change> changes;
    size_t bound = stored.size();
    for (const ContactBinding& binding : registration.contacts) {
        const velm::ContactRecord* match = findStored(binding, stored);
        if (match != nullptr && match->callId() == request.callId() && match->cseq() >= request.cseq())
            return SipResponse::badRequest("CSeq " + std::to_string(request.cseq()) + " is not newer than the binding's");
        changes.push_back(Change{binding, match});
        if (match == nullptr && binding.expires != 0)
            ++bound;
        else if (match != nullptr && binding.expires == 0)
            --bound;
    }
    if (bound > m_policy.maxContacts) {
        m_trace.prn("key %d would have %zu bindings, more than %zu", address.key, bound, m_policy.maxContacts);
        return SipResponse(403, "Too Many Contacts");
    }
    for (const Change& change : changes) {
        result = apply(address, request, change, now, bindings);
        if (!result.okay())
            return databaseFailure("registration of " + change.binding.uri, result);
    }
    return answer(address, now, bindings);
}

velm::DatabaseResult Registrar::apply(const Address& address, const SipRequest& request, const Change& change,
                                      long now, std::vector<velm::ContactRecord>& bindings) {
    if (change.binding.expires == 0) {
        m_trace.prn("removing %s of key %d", change.binding.uri.c_str(), address.key);
        return change.stored != nullptr
                   ? remove(address, change.stored->address(), change.binding.header, now, bindings)
                   : velm::DatabaseResult();
    }
    if (change.stored == nullptr) {
        m_trace.prn("adding %s to key %d", change.binding.uri.c_str(), address.key);
        return add(address, request, change.binding, now, bindings);
    }
    m_trace.prn("refreshing %s of key %d", change.binding.uri.c_str(), address.key);
    return refresh(address, request, change, now, bindings);
}

velm::DatabaseResult Registrar::add(const Address& address, const SipRequest& request, const ContactBinding& binding,
                                    long now, std::vector<velm::ContactRecord>& bindings) {
    velm::ContactRecord contact;
    contact.setAddress(binding.uri);
    contact.setContactHeader(binding.header);
    contact.setQvalue(binding.qvalue);
    contact.setExpires(now + binding.expires);
    contact.setCallId(request.callId());
    contact.setCseq(request.cseq());
    contact.setCsid(address.csid);
    std::vector<velm::ContactRecord> contacts{contact};
    BindingChanges changes;
    return settled(m_service.registerContacts(address.key, contacts, changes.added, changes.deleted, changes.changed),
                   changes, now, bindings);
}

// A refresh keeps the binding's level unless the q parameter changes it; a
// binding that becomes the active one is registered anew, which demotes the
// set's previous active contact.
velm::DatabaseResult Registrar::refresh(const Address& address, const SipRequest& request, const Change& change,
                                        long now, std::vector<velm::ContactRecord>& bindings) {
    const velm::ContactRecord& stored = *change.stored;
    const std::string& q = change.binding.qvalue;
    if (!q.empty() && isActive(q) && !isActive(stored.qvalue())) {
        velm::DatabaseResult removed = remove(address, stored.address(), change.binding.header, now, bindings);
        return removed.okay() ? add(address, request, change.binding, now, bindings) : removed;
    }
    velm::ContactRecord contact = stored;
    contact.setContactHeader(change.binding.header);
    contact.setQvalue(q.empty() ? stored.qvalue() : std::string(isActive(q) ? ACTIVE : INACTIVE));
    contact.setExpires(now + change.binding.expires);
    contact.setCallId(request.callId());
    contact.setCseq(request.cseq());
    std::vector<velm::ContactRecord> contacts{contact};
    BindingChanges changes;
    return settled(m_service.updateContacts(address.key, contacts, changes.added, changes.deleted, changes.changed),
                   changes, now, bindings);
}

velm::DatabaseResult Registrar::remove(const Address& address, const std::string& contactAddress,
                                       const std::string& header, long now,
                                       std::vector<velm::ContactRecord>& bindings) {
    velm::ContactRecord contact;
    contact.setAddress(contactAddress);
    contact.setContactHeader(header);
    contact.setCsid(address.csid);
    std::vector<velm::ContactRecord> contacts{contact};
    BindingChanges changes;
    return settled(
        m_service.unregisterContacts(address.key, contacts, changes.added, changes.deleted, changes.changed), changes,
        now, bindings);
}

velm::DatabaseResult Registrar::removeAll(const Address& address, long now,
                                          std::vector<velm::ContactRecord>& bindings) {
    velm::DatabaseResult result = remove(address, "*", "*", now, bindings);
    // Another request may have removed the last binding meanwhile.
    if (result.badParameter() && result.getErrorMessage() == "unregisteringContacts: no contacts") {
        bindings.clear();
        result.setOkay();
    }
    return result;
}

SipResponse Registrar::answer(const Address& address, long now, std::vector<velm::ContactRecord>& bindings) {
    // The auto-commit forms the operations hand over to report no changes.
    if (m_service.m_useAutoCommit) {
        bindings.clear();
        velm::DatabaseResult result = m_bindings.current(address.key, now, bindings);
        if (!result.okay())
            return databaseFailure("bindings", result);
    }
    SipResponse response(200, "OK");
    for (const velm::ContactRecord& contact : bindings) {
        long left = contact.permanent() == "t" ? m_policy.maximum : contact.expires() - now;
        response.addHeader("Contact", "<" + contact.address() + ">;expires=" + std::to_string(left) +
                                          ";q=" + qText(thousandths(contact.qvalue())));
    }
    return response;
}

} // namespace registrar
