#include "Redirector.h"

#include "SipRequest.h"

#include <algorithm>
#include <ctime>

namespace registrar {

Redirector::Redirector(velm::LocationService& service) : m_bindings(service) {}

SipResponse Redirector::handle(const SipRequest& request) {
    int key = 0;
    velm::DatabaseResult result = m_bindings.key(request.requestUser(), request.requestHost(), key);
    if (result.notFound())
        return SipResponse(404, "Not Found");
    if (!result.okay())
        return databaseFailure("lookup of " + request.requestUri(), result);
    std::vector<velm::ContactRecord> contacts;
    result = m_bindings.current(key, static_cast<long>(time(nullptr)), contacts);
    if (!result.okay())
        return databaseFailure("lookup of " + request.requestUri(), result);
    if (contacts.empty())
        return SipResponse(480, "Temporarily Unavailable");
    return redirectTo(contacts);
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
