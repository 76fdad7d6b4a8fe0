// Routing by digit prefix: a local user's number through the prefix tree, its first contact rewritten.
#include "LocationService.h"

#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "SafeLock.h"
#include "Uri.h"

#include <cstdio>

namespace velm {

DatabaseResult LocationService::lookupDigitMap(const char* requestUri, std::string& ordering, bool& redirect,
                                               std::vector<ContactRecord>& contacts) {
    DatabaseResult result;
    redirect = false;
    ordering = "sequential";
    if (requestUri == nullptr) {
        result.setErrorMessage("null uri");
        result.setQueryError();
        return result;
    }
    osk::Uri uri(requestUri);
    const char* user = uri.getUser();
    const char* host = uri.getHost();
    if (user == nullptr || host == nullptr) {
        result.setErrorMessage("lookupDigitMap: null uri.user or .domain");
        result.setQueryError();
        return result;
    }
    result = isLocalUser(user, host);
    if (!result.okay()) {
        if (result.notFound()) {
            m_trace.prn("lookupDigitMap passed visiting user=%s@%s", user, host);
            result.setErrorMessage("lookupDigitMap passed visiting user");
        }
        return result;
    }

    return osk::withCancelSafeLock(m_mutexPrefix, [&] {
        // No tree is not the same as no match: the caller goes on routing.
        if (m_prefixMap == nullptr)
            return result;
        int csid = 0;
        findPrefix(user, csid, 0, m_prefixMap);
        if (csid <= 0) {
            result.setNotFound();
            return result;
        }
        m_trace.prn("looking up contacts for csid %d", csid);
        result = guarded("lookupDigitMap", [&](DatabaseCommandExecutor& exec) {
            return exec.lookupContacts(ordering, csid, redirect, contacts);
        });
        if (!result.okay()) {
            m_trace.prn("lookup failed: " + result.getErrorMessage());
            return result;
        }
        m_trace.prn("found %d contacts, performing substitution...", static_cast<int>(contacts.size()));
        if (contacts.empty()) {
            result.setErrorMessage("no contact found");
            result.setQueryError();
            return result;
        }
        return rewriteFirstContact(uri, contacts.front());
    });
}

DatabaseResult LocationService::rewriteFirstContact(const osk::Uri& requestUri, ContactRecord& contact) {
    DatabaseResult result;
    m_trace.prn("address is %s", contact.address().c_str());
    osk::Uri target(contact.address());
    if (!target.isValid()) {
        result.setErrorMessage("lookupDigitMap: contact address " + contact.address() + " is not a SIP URI: " +
                               target.errorMessage());
        result.setQueryError();
        m_trace.prn(result.getErrorMessage());
        return result;
    }
    // Without a port the separator stays and the port text is empty.
    std::string port;
    if (target.getPort() > 0) {
        char digits[16];
        std::snprintf(digits, sizeof digits, "%d", target.getPort());
        port = digits;
    }
    const char* parameters = target.getParameters();
    std::string address = std::string(requestUri.getProtocol()) + ":" + requestUri.getUser() + "@" + target.getHost() +
                          ":" + port + ";" + (parameters != nullptr ? parameters : "");
    contact.setAddress(address);
    m_trace.prn("replaced contact address with %s", address.c_str());
    return result;
}

} // namespace velm
