// Answering requests to a user with 302 and the user's contacts, 404 or 480.
#include "Redirector.h"

#include "AppProperties.h"
#include "LocationService.h"
#include "SipRequest.h"
#include "Uri.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace registrar {

namespace {

// Whether the library's lookup by URI does more for `uri` than read a
// subscriber's contacts: the conference server's bridges, the resolver
// module, the contacts cache.
bool routedByLibrary(velm::LocationService& service, const std::string& uri) {
    const char* cache = velm::AppProperties::get("SipServer", "UseContactsCache");
    return service.m_moduleFirst || service.m_alternateOnNotFound || service.m_alternateOnNoContacts ||
           (cache != nullptr && std::strcmp(cache, "true") == 0) ||
           uri == service.composeConferenceServerUri(service.getPrimaryDomain(), false);
}

} // namespace

Redirector::Redirector(velm::LocationService& service) : m_service(service), m_bindings(service) {}

SipResponse Redirector::handle(const SipRequest& request) {
    const std::string uri = request.requestUri();
    const long now = static_cast<long>(time(nullptr));
    std::string ordering;
    bool redirect = false;
    std::vector<velm::ContactRecord> contacts;
    velm::DatabaseResult result = lookup(uri, ordering, redirect, contacts);
    if (result.okay()) {
        contacts = reachable(contacts, now);
        return contacts.empty() ? SipResponse(480, "Temporarily Unavailable") : redirectTo(contacts);
    }
    if (!result.notFound())
        return databaseFailure("lookup of " + uri, result);

    // Not a subscriber: perhaps a number that a digit prefix routes, or an
    // address that an address map routes.
    contacts.clear();
    result = m_service.lookupDigitMap(uri.c_str(), ordering, redirect, contacts);
    if (!result.okay() && result.getErrorMessage() == "no contact found")
        return SipResponse(480, "Temporarily Unavailable");
    if (!result.okay() && !result.notFound())
        return databaseFailure("digit map lookup of " + uri, result);
    // Without a prefix tree the digit map answers ok but empty.
    if (!result.okay() || contacts.empty()) {
        contacts.clear();
        result = m_service.lookupAddressMap(uri.c_str(), ordering, redirect, contacts);
        if (result.notFound())
            return SipResponse(404, "Not Found");
        if (!result.okay())
            return databaseFailure("address map lookup of " + uri, result);
    }
    contacts = reachable(contacts, now);
    return contacts.empty() ? SipResponse(480, "Temporarily Unavailable") : redirectTo(contacts);
}

// The library's lookup by URI asks whether this node serves the user twice
// (once for the key, once itself); by key it asks neither.
velm::DatabaseResult Redirector::lookup(const std::string& uri, std::string& ordering, bool& redirect,
                                        std::vector<velm::ContactRecord>& contacts) {
    osk::Uri parsed(uri);
    if (!parsed.isValid() || parsed.getUser() == nullptr || parsed.getHost() == nullptr ||
        routedByLibrary(m_service, uri))
        return m_service.lookupContacts(uri.c_str(), ordering, redirect, contacts, nullptr);
    int key = 0;
    int csid = -1;
    velm::DatabaseResult result = m_bindings.key(parsed.getUser(), parsed.getHost(), key, csid);
    return result.okay() ? m_service.lookupContacts(key, ordering, redirect, contacts) : result;
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
