// The routing lookup: the contacts a request URI or a user and domain are routed to.
#include "LocationService.h"

#include "AppProperties.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "ElapsedTimeCounter.h"
#include "LowerCase.h"
#include "Uri.h"

#include <cstring>

namespace velm {

namespace {

const char* shown(const char* text) {
    return text != nullptr ? text : "(null)";
}

// Case-sensitive on purpose, unlike ModuleFirst: only "true" turns it on.
bool useContactsCache() {
    const char* value = AppProperties::get("SipServer", "UseContactsCache");
    return value != nullptr && std::strcmp(value, "true") == 0;
}

} // namespace

DatabaseResult LocationService::lookupContacts(const char* requestUri, std::string& ordering, bool& redirect,
                                               std::vector<ContactRecord>& contacts, const char* authUser) {
    DatabaseResult result;
    m_trace.prn("*** lookupContacts(): requestUri=%s authUser=%s ***", shown(requestUri), shown(authUser));
    osk::Uri uri(requestUri != nullptr ? requestUri : "");
    if (!uri.isValid()) {
        m_trace.prn("*** ERROR ***: Invalid URI for requestUri=%s", shown(requestUri));
        result.setQueryError();
        result.setErrorMessage("lookupContacts: invalid request uri");
        return result;
    }
    ElapsedTimeCounter timer;

    std::string conferenceUri = conferenceServerUri();
    if (conferenceUri.empty()) {
        result.setQueryError();
        result.setErrorMessage("*** ERROR ***: Empty conferenceServerUri() found!");
        m_trace.prn(result.getErrorMessage());
        return result;
    }
    // Only a request URI equal to the configured one reaches the bridge
    // reservation, which puts it into a statement as it is.
    if (conferenceUri == requestUri) {
        ContactRecord contact;
        result = resolveConfSvrUri(requestUri, redirect, contact);
        if (result.okay()) {
            m_trace.prn("--- SUCCESS ---: Found match! Local Conference Server URI matched requestUri=%s", requestUri);
            contacts.push_back(contact);
            ordering = "redirect";
        } else {
            m_trace.prn("*** ERROR ***: resolveConfSvrURi failed for requestUri=%s, confSvrUri=%s, error=%s",
                        requestUri, conferenceUri.c_str(), result.getErrorMessage().c_str());
        }
        return result;
    }

    std::string user = lowerCase(uri.getUser());
    std::string host = lowerCase(uri.getHost());
    result = lookupContacts(uri.getUser() != nullptr ? user.c_str() : nullptr, host.c_str(), requestUri, ordering,
                            redirect, contacts);
    if (result.okay())
        m_trace.prn("--- SUCCESS ---: lookupContacts(%s, %s, ...)", user.c_str(), host.c_str());
    else if (result.notFound())
        m_trace.prn("--- VISITING USER or NOT FOUND ---: lookupContacts(%s, %s, ...)", user.c_str(), host.c_str());
    else
        m_trace.prn("*** ERROR ***: lookupContacts(%s, %s, ...)", user.c_str(), host.c_str());
    m_perfTrace.prn("lookupContacts (%s) time: %ld", requestUri, timer.elapsed());
    return result;
}

DatabaseResult LocationService::lookupContacts(const char* user, const char* domain, const char* requestUri,
                                               std::string& ordering, bool& redirect,
                                               std::vector<ContactRecord>& contacts) {
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay())
        return result;
    if (user == nullptr || domain == nullptr) {
        result.setBadParameter();
        return result;
    }
    // The lookups below escape the names where they enter their statements.
    std::string lowerUser = lowerCase(user);
    std::string lowerDomain = lowerCase(domain);
    user = lowerUser.c_str();
    domain = lowerDomain.c_str();

    if (m_moduleFirst) {
        m_trace.prn("module lookup first enabled, looking up %s", shown(requestUri));
        result = lookupAlternate(requestUri, ordering, redirect, contacts);
        if (result.okay()) {
            m_trace.prn("module lookup successful with %d contacts", static_cast<int>(contacts.size()));
            return result;
        }
    } else {
        m_trace.prn("moduleFirst lookup is NOT configured");
    }

    int key = 0;
    result = getPublicAddressKey(user, domain, key);
    if (!result.okay()) {
        if (result.notFound() && m_alternateOnNotFound && !m_moduleFirst) {
            m_trace.prn("%s@%s not found, invoking alternate lookup module", user, domain);
            DatabaseResult alternate = lookupAlternate(requestUri, ordering, redirect, contacts);
            if (alternate.okay())
                return alternate;
        }
        return result;
    }

    result = isLocalUser(user, domain);
    if (!result.okay()) {
        if (result.notFound()) {
            m_trace.prn("lookupContacts passed visiting user=%s@%s", user, domain);
            result.setErrorMessage("lookupContacts passed visiting user");
        }
        return result;
    }

    size_t before = contacts.size();
    if (useContactsCache()) {
        result = getContactsFromCache(key, user, domain, contacts, ordering, redirect);
    } else {
        m_trace.prn("looking up contacts for %s@%s", user, domain);
        result = m_exec->lookupContacts(key, ordering, redirect, contacts, true);
    }

    if (result.okay() && contacts.size() == before && m_alternateOnNoContacts && !m_moduleFirst) {
        m_trace.prn("no contacts found for %s, invoking alternate lookup module", shown(requestUri));
        DatabaseResult alternate = lookupAlternate(requestUri, ordering, redirect, contacts);
        if (alternate.okay())
            return alternate;
    }
    alarmStep("lookupContacts", 2, result);
    m_trace.prn("found %d contacts", static_cast<int>(contacts.size() - before));
    return result;
}

} // namespace velm
