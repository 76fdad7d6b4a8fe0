// Reading a subscriber's current bindings and the helpers the registrar and the redirect server share.
#include "Bindings.h"

#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "SipResponse.h"
#include "Trace.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace registrar {

velm::DatabaseResult Bindings::key(const std::string& user, const std::string& host, int& key) {
    return m_service.getPublicAddressKey(user.c_str(), host.c_str(), key);
}

velm::DatabaseResult Bindings::current(int key, long now, std::vector<velm::ContactRecord>& contacts) {
    velm::DatabaseResult result;
    m_service.checkConnect(result);
    if (!result.okay())
        return result;
    std::string ordering;
    bool replaceUri = true;
    std::vector<velm::ContactRecord> stored;
    // The executor's lookup, so that listing a "cycle" set does not turn it.
    result = m_service.m_exec->lookupContacts(key, ordering, replaceUri, stored, false);
    // Not found with rows: the subscriber is inactive, its bindings remain.
    if (result.notFound())
        result.setOkay();
    for (const velm::ContactRecord& contact : reachable(stored, now))
        if (!contact.contactHeader().empty())
            contacts.push_back(contact);
    return result;
}

bool expired(const velm::ContactRecord& contact, long now) {
    return contact.expires() < now && contact.permanent() != "t";
}

std::vector<velm::ContactRecord> reachable(const std::vector<velm::ContactRecord>& contacts, long now) {
    std::vector<velm::ContactRecord> result;
    for (const velm::ContactRecord& contact : contacts)
        if (!expired(contact, now))
            result.push_back(contact);
    return result;
}

std::string qText(int thousandths) {
    if (thousandths >= 1000)
        return "1";
    if (thousandths <= 0)
        return "0";
    char text[8];
    std::snprintf(text, sizeof text, "0.%03d", thousandths);
    std::string result(text);
    while (result.back() == '0')
        result.pop_back();
    return result;
}

int thousandths(const std::string& qvalue) {
    return static_cast<int>(std::lround(std::strtod(qvalue.c_str(), nullptr) * 1000));
}

SipResponse databaseFailure(const std::string& what, const velm::DatabaseResult& result) {
    // The library's message can name the server's socket, a statement or a
    // table: it goes to the trace only, the client learns when to try again.
    velm::Trace("Registrar").log("database failure: %s: %s", what.c_str(), result.getErrorMessage().c_str());
    SipResponse response(503, "Service Unavailable");
    response.addHeader("Retry-After", "5");
    response.addWarning("database unavailable");
    return response;
}

} // namespace registrar
