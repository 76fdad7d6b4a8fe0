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

    int key = 0;
    velm::DatabaseResult result = m_bindings.key(request.toUser(), request.toHost(), key);
    if (result.notFound())
        return SipResponse(404, "Not Found");
    if (!result.okay())
        return databaseFailure("address of record", result);

    long now = static_cast<long>(time(nullptr));
    std::vector<velm::ContactRecord> stored;
    result = m_bindings.current(key, now, stored);
    if (!result.okay())
        return databaseFailure("bindings", result);

    if (registration.wildcard) {
        m_trace.prn("removing every binding of key %d", key);
        result = stored.empty() ? velm::DatabaseResult() : removeAll(key);
        return result.okay() ? answer(key, now) : databaseFailure("unregistration", result);
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
        m_trace.prn("key %d would have %zu bindings, more than %zu", key, bound, m_policy.maxContacts);
        return SipResponse(403, "Too Many Contacts");
    }
    for (const Change& change : changes) {
        result = apply(key, request, change, now);
        if (!result.okay())
            return databaseFailure("registration of " + change.binding.uri, result);
    }
    return answer(key, now);
}

velm::DatabaseResult Registrar::apply(int key, const SipRequest& request, const Change& change, long now) {
    if (change.binding.expires == 0) {
        m_trace.prn("removing %s of key %d", change.binding.uri.c_str(), key);
        return change.stored != nullptr ? remove(key, change.stored->address(), change.binding.header)
                                        : velm::DatabaseResult();
    }
    if (change.stored == nullptr) {
        m_trace.prn("adding %s to key %d", change.binding.uri.c_str(), key);
        return add(key, request, change.binding, now);
    }
    m_trace.prn("refreshing %s of key %d", change.binding.uri.c_str(), key);
    return refresh(key, request, change, now);
}

velm::DatabaseResult Registrar::add(int key, const SipRequest& request, const ContactBinding& binding, long now) {
    velm::ContactRecord contact;
    contact.setAddress(binding.uri);
    contact.setContactHeader(binding.header);
    contact.setQvalue(binding.qvalue);
    contact.setExpires(now + binding.expires);
    contact.setCallId(request.callId());
    contact.setCseq(request.cseq());
    std::vector<velm::ContactRecord> contacts{contact};
    std::vector<velm::ContactRecord> added, deleted, changed;
    return m_service.registerContacts(key, contacts, added, deleted, changed);
}

// A refresh keeps the binding's level unless the q parameter changes it; a
// binding that becomes the active one is registered anew, which demotes the
// set's previous active contact.
velm::DatabaseResult Registrar::refresh(int key, const SipRequest& request, const Change& change, long now) {
    const velm::ContactRecord& stored = *change.stored;
    const std::string& q = change.binding.qvalue;
    if (!q.empty() && isActive(q) && !isActive(stored.qvalue())) {
        velm::DatabaseResult removed = remove(key, stored.address(), change.binding.header);
        return removed.okay() ? add(key, request, change.binding, now) : removed;
    }
    velm::ContactRecord contact = stored;
    contact.setContactHeader(change.binding.header);
    contact.setQvalue(q.empty() ? stored.qvalue() : std::string(isActive(q) ? ACTIVE : INACTIVE));
    contact.setExpires(now + change.binding.expires);
    contact.setCallId(request.callId());
    contact.setCseq(request.cseq());
    std::vector<velm::ContactRecord> contacts{contact};
    std::vector<velm::ContactRecord> added, deleted, changed;
    return m_service.updateContacts(key, contacts, added, deleted, changed);
}

velm::DatabaseResult Registrar::remove(int key, const std::string& address, const std::string& header) {
    velm::ContactRecord contact;
    contact.setAddress(address);
    contact.setContactHeader(header);
    std::vector<velm::ContactRecord> contacts{contact};
    std::vector<velm::ContactRecord> added, deleted, changed;
    return m_service.unregisterContacts(key, contacts, added, deleted, changed);
}

velm::DatabaseResult Registrar::removeAll(int key) {
    velm::DatabaseResult result = remove(key, "*", "*");
    // Another request may have removed the last binding meanwhile.
    if (result.badParameter() && result.getErrorMessage() == "unregisteringContacts: no contacts")
        result.setOkay();
    return result;
}

SipResponse Registrar::answer(int key, long now) {
    std::vector<velm::ContactRecord> contacts;
    velm::DatabaseResult result = m_bindings.current(key, now, contacts);
    if (!result.okay())
        return databaseFailure("bindings", result);
    SipResponse response(200, "OK");
    for (const velm::ContactRecord& contact : contacts) {
        long left = contact.permanent() == "t" ? m_policy.maximum : contact.expires() - now;
        response.addHeader("Contact", "<" + contact.address() + ">;expires=" + std::to_string(left) +
                                          ";q=" + qText(thousandths(contact.qvalue())));
    }
    return response;
}

} // namespace registrar
