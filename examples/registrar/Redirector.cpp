#include "Redirector.h"

#include "LocationService.h"
#include "SipRequest.h"

#include <algorithm>
#include <ctime>

namespace registrar {

Redirector::Redirector(velm::LocationService& service) : m_service(service), m_bindings(service) {}

SipResponse Redirector::handle(const SipRequest& request) {
    const std::string uri = request.requestUri();
    const long now = static_cast<long>(time(nullptr));
    int key = 0;
    std::vector<velm::ContactRecord> contacts;
    velm::DatabaseResult result = m_bindings.key(request.requestUser(), request.requestHost(), key);
    if (result.okay()) {
        result = m_bindings.current(key, now, contacts);
        if (!result.okay())
            return databaseFailure("lookup of " + uri, result);
        return contacts.empty() ? SipResponse(480, "Temporarily Unavailable") : redirectTo(contacts);
    }
    if (!result.notFound())
        return databaseFailure("lookup of " + uri, result);

    // Not a subscriber: perhaps a number or an address that a map routes.
    std::string ordering;
    bool redirect = false;
    result = m_service.lookupAddressMap(uri.c_str(), ordering, redirect, contacts);
    if (result.notFound())
        return SipResponse(404, "Not Found");
    if (!result.okay())
        return databaseFailure("address map lookup of " + uri, result);
    contacts = reachable(contacts, now);
    return contacts.empty() ? SipResponse(480, "Temporarily Unavailable") : redirectTo(contacts);
}

SipResponse redirectTo(const std::vector<velm::ContactRecord>& contacts) {
    SipResponse response(302, "Moved Temporarily");
    int q = 1000;
    for (const velm::ContactRecord& contact : contacts) {
        response.addHeader("Contact", "<" + contact.address() + ">;q=" + qText(q));
        q = std::max(100, q - 100);
    }
    return response;
}

} // namespace registrar
