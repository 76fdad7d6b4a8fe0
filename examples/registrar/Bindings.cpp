// Reading a subscriber's current bindings and the helpers the registrar and the redirect server share.
#include "Bindings.h"

#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "SipResponse.h"
#include "Trace.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace registrar {

namespace {

// A binding a REGISTER made (provisioned contacts have no Contact header)
// that is still reachable.
bool listed(const velm::ContactRecord& contact, long now) {
    return !expired(contact, now) && !contact.contactHeader().empty();
}

// The order of current()'s read: qvalue (a text column), then expiry, both
// descending.
bool routedBefore(const velm::ContactRecord& first, const velm::ContactRecord& second) {
    if (first.qvalue() != second.qvalue())
        return first.qvalue() > second.qvalue();
    return first.expires() > second.expires();
}

} // namespace

velm::DatabaseResult Bindings::key(const std::string& user, const std::string& host, int& key, int& csid) {
    // The key before the node check: a user without an address costs one
    // statement, and getPublicAddressKey would ask the node first.
    int set = -1;
    velm::DatabaseResult result = m_service.getPublicAddressKeyCSID(user.c_str(), host.c_str(), key, set);
    if (result.okay())
        result = m_service.isLocalUser(user.c_str(), host.c_str());
    csid = set > 0 ? set : -1;
    return result;
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
    for (const velm::ContactRecord& contact : stored)
        if (listed(contact, now))
            contacts.push_back(contact);
    return result;
}

void applyChanges(const BindingChanges& changes, long now, std::vector<velm::ContactRecord>& bindings) {
    auto stored = [&bindings](const velm::ContactRecord& contact) {
        return std::find_if(bindings.begin(), bindings.end(), [&contact](const velm::ContactRecord& binding) {
            return binding.contactId() == contact.contactId();
        });
    };
    for (const velm::ContactRecord& contact : changes.deleted) {
        auto found = stored(contact);
        if (found != bindings.end())
            bindings.erase(found);
    }
    for (const velm::ContactRecord& contact : changes.changed) {
        auto found = stored(contact);
        if (found != bindings.end())
            *found = contact;
        else
            bindings.push_back(contact);
    }
    bindings.insert(bindings.end(), changes.added.begin(), changes.added.end());
    bindings.erase(std::remove_if(bindings.begin(), bindings.end(),
                                  [now](const velm::ContactRecord& contact) { return !listed(contact, now); }),
                   bindings.end());
    std::stable_sort(bindings.begin(), bindings.end(), routedBefore);
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
