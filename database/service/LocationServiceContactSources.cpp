// Where contacts come from: the database by contact set, the contacts cache, and the contact resolver.
#include "LocationService.h"

#include "ContactRecord.h"
#include "ContactResolverAdapter.h"
#include "ContactsCache.h"
#include "DatabaseCommandExecutor.h"

#include <cstdio>

namespace velm {

DatabaseResult LocationService::lookupContacts(int key, std::string& ordering, bool& redirect,
                                               std::vector<ContactRecord>& contacts) {
    return guarded("lookupContacts_1", [&](DatabaseCommandExecutor& exec) {
        return exec.lookupContacts(key, ordering, redirect, contacts, true);
    });
}

DatabaseResult LocationService::lookupContactsNoCache(int key, std::string& ordering, bool& redirect,
                                                      std::vector<ContactRecord>& contacts, int& primaryId) {
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay())
        return result;
    result = m_exec->lookupContacts(key, ordering, redirect, contacts, false);
    alarmStep("lookupContactsNoCache", 1, result);
    result = m_exec->getPrimaryId(key, primaryId);
    alarmStep("lookupContactsNoCache", 2, result);
    if (primaryId < 0) {
        char number[31];
        std::snprintf(number, sizeof number, "%d", key);
        m_trace.logToSyslog(
            8, 6, (std::string("No primary key was found in lookupContactsNoCache for key ") + number).c_str());
    }
    return result;
}

DatabaseResult LocationService::getContactsFromCache(int key, const char*, const char*,
                                                     std::vector<ContactRecord>& contacts, std::string& ordering,
                                                     bool& redirect) {
    DatabaseResult result;
    if (ContactsCache::instance()->lookup("PROXY", key, contacts, ordering, redirect) != ContactsCache::FOUND) {
        result.setQueryError();
        return result;
    }
    // The start of a cycle moves with every call; only the database keeps it.
    if (ordering == "cycle") {
        m_trace.prn("getContactsFromCache: resolving cycle contacts from db");
        contacts.clear();
        checkConnect(result);
        if (result.okay())
            result = m_exec->lookupContacts(key, ordering, redirect, contacts, true);
    }
    return result;
}

DatabaseResult LocationService::lookupAlternate(const char* requestUri, std::string&, bool&,
                                                std::vector<ContactRecord>& contacts) {
    DatabaseResult result;
    m_trace.prn("looking up alternate contacts for %s", requestUri != nullptr ? requestUri : "(null)");
    std::vector<std::string> addresses;
    std::string error;
    int status = ContactResolverAdapter::instance()->resolve(requestUri, addresses, error);
    switch (status) {
    case VELM_RESOLVER_SUCCESS:
        if (addresses.empty()) {
            m_trace.prn("module returned sucess with zero contacts");
            break;
        }
        m_trace.prn("module returned %d contacts", static_cast<int>(addresses.size()));
        for (const std::string& address : addresses) {
            m_trace.prn("adding contact %s", address.c_str());
            ContactRecord contact;
            contact.setAddress(address);
            contacts.push_back(contact);
        }
        break;
    case VELM_RESOLVER_NOT_FOUND:
    case VELM_RESOLVER_NO_ACTION:
        m_trace.prn("module returned notfound or noaction");
        result.setNotFound();
        break;
    case VELM_RESOLVER_ERROR:
        m_trace.prn("module returned error: %s", error.c_str());
        result.setConnectionError();
        result.setErrorMessage(error);
        alarmOnFatal("lookupAlternate", result);
        break;
    default:
        // A status this library does not know leaves the request as it is.
        break;
    }
    return result;
}

} // namespace velm
