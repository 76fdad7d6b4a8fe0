// Routing by address map: the compiled rows kept in step, the URI matched, contacts filled in from its parts.
#include "LocationService.h"

#include "AddressMap.h"
#include "AddressMapRecord.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "Hashtable.h"
#include "Uri.h"
#include "VariableSubstitution.h"

#include <ctime>
#include <memory>
#include <unordered_map>

namespace velm {

namespace {

const char* const OPERATION = "lookupAddressMap";

DatabaseResult queryError(const char* message) {
    DatabaseResult result;
    result.setQueryError();
    result.setErrorMessage(message);
    return result;
}

// Absent parts of the URI are empty; an absent port stays undefined, so a
// "$port" in an address is left as it is.
Hashtable partsOf(const osk::Uri& uri) {
    auto text = [](const char* part) { return std::string(part != nullptr ? part : ""); };
    Hashtable parts;
    if (uri.getPort() > 0)
        parts.put("port", std::to_string(uri.getPort()));
    parts.put("protocol", text(uri.getProtocol()));
    parts.put("user", text(uri.getUser()));
    parts.put("password", text(uri.getPassword()));
    parts.put("host", text(uri.getHost()));
    parts.put("parameters", text(uri.getParameters()));
    parts.put("headers", text(uri.getHeaders()));
    return parts;
}

// The entries of the list as it was, to be taken over by the rows that
// still have their key. Rows with the same key each take an entry of their
// own, preferably the one compiled from their own pattern, so that twins do
// not swap expressions when one of them goes.
class PreviousEntries {
public:
    void reserve(size_t count) { m_entries.reserve(count); }
    // Takes ownership of `entry`; cannot fail after reserve() made room.
    void adopt(AddressMap* entry) { m_entries.emplace_back(entry); }
    // Once every entry is adopted; should it fail, the entries are freed.
    void index() {
        for (size_t at = 0; at < m_entries.size(); ++at)
            m_byKey[m_entries[at]->key()].push_back(at);
    }

    std::unique_ptr<AddressMap> take(const std::string& key, const std::string& pattern) {
        auto found = m_byKey.find(key);
        if (found == m_byKey.end())
            return nullptr;
        std::unique_ptr<AddressMap>* chosen = nullptr;
        for (size_t at : found->second) {
            std::unique_ptr<AddressMap>& candidate = m_entries[at];
            if (candidate && candidate->pattern() == pattern)
                return std::move(candidate);
            if (candidate && chosen == nullptr)
                chosen = &candidate;
        }
        return chosen != nullptr ? std::move(*chosen) : nullptr;
    }

    // Position `at` in the old order; null once a row took it.
    std::unique_ptr<AddressMap>& operator[](size_t at) { return m_entries[at]; }

private:
    std::vector<std::unique_ptr<AddressMap>> m_entries;
    std::unordered_map<std::string, std::vector<size_t>> m_byKey;
};

} // namespace

DatabaseResult LocationService::lookupAddressMap(const char* requestUri, std::string& ordering, bool& redirect,
                                                 std::vector<ContactRecord>& contacts) {
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay()) {
        m_trace.prn("%s", result.getErrorMessage().c_str());
        return result;
    }
    if (requestUri == nullptr)
        return queryError("null uri");
    osk::Uri uri(requestUri);
    if (uri.getUser() == nullptr || uri.getHost() == nullptr)
        return queryError("lookupAddressMap: null uri.user or .domain");

    result = isLocalUser(uri.getUser(), uri.getHost());
    if (result.notFound()) {
        m_trace.prn("lookupAddressMap passed visiting user=%s@%s", uri.getUser(), uri.getHost());
        result.setErrorMessage("lookupAddressMap passed visiting user");
        return result;
    }

    std::vector<AddressMapRecord> rows;
    result = m_exec->getAddressMaps(rows);
    if (!result.okay()) {
        alarmStep(OPERATION, 1, result);
        m_trace.prn("%s", result.getErrorMessage().c_str());
        return result;
    }
    synchronizeMaps(rows);

    int csid = matchingCsid(requestUri);
    if (csid <= 0) {
        result.setNotFound();
        return result;
    }
    m_trace.prn("looking up contacts for csid %d", csid);
    result = m_exec->lookupContacts(ordering, csid, redirect, contacts);
    if (!result.okay()) {
        alarmStep(OPERATION, 2, result);
        m_trace.prn("lookup failed: %s", result.getErrorMessage().c_str());
        return result;
    }

    m_trace.prn("found %d contacts, performing substitution...", static_cast<int>(contacts.size()));
    Hashtable parts = partsOf(uri);
    for (ContactRecord& contact : contacts) {
        m_trace.prn("address is %s", contact.address().c_str());
        std::string address;
        VariableSubstitution::subst(contact.address(), address, parts, "$");
        contact.setAddress(address);
        m_trace.prn("replaced contact address with %s", address.c_str());
    }
    return result;
}

void LocationService::synchronizeMaps(const std::vector<AddressMapRecord>& rows) {
    m_trace.prn("result contains %d maps", static_cast<int>(rows.size()));
    std::vector<std::string> keys;
    for (AddressMap* entry : m_addrMap) {
        m_trace.prn("marking entry for %s", entry->key().c_str());
        keys.push_back(entry->key());
    }
    // The entries change hands only after every allocation that could fail
    // on the way, so each is owned exactly once, by the list or by these.
    PreviousEntries previous;
    std::vector<std::unique_ptr<AddressMap>> current;
    previous.reserve(m_addrMap.size());
    current.reserve(rows.size());
    m_addrMap.reserve(rows.size());
    for (AddressMap* entry : m_addrMap)
        previous.adopt(entry);
    m_addrMap.clear();
    previous.index();

    for (const AddressMapRecord& row : rows) {
        std::string key = row.handle() + "-" + std::to_string(row.csid());
        m_trace.prn("tnow is %ld", static_cast<long>(time(nullptr)));
        m_trace.prn("key=%s, pat=%s, time=%ld, priority=%d, ordering=%s", key.c_str(), row.pattern().c_str(),
                    row.modTime(), row.priority(), row.ordering().c_str());
        std::unique_ptr<AddressMap> entry = previous.take(key, row.pattern());
        if (entry) {
            m_trace.prn("updating existing map entry for %s", key.c_str());
        } else {
            m_trace.prn("adding new map for %s", key.c_str());
            entry = std::make_unique<AddressMap>();
            entry->setKey(key);
        }
        entry->compile(row.pattern().c_str(), row.modTime());
        entry->setCsid(row.csid());
        current.push_back(std::move(entry));
    }
    for (std::unique_ptr<AddressMap>& entry : current)
        m_addrMap.push_back(entry.release());

    for (size_t at = 0; at < keys.size(); ++at) {
        if (previous[at]) {
            m_trace.prn("removing map entry for %s", keys[at].c_str());
            previous[at].reset();
        } else {
            m_trace.prn("map for %s still exists", keys[at].c_str());
        }
    }
}

int LocationService::matchingCsid(const char* requestUri) {
    for (AddressMap* entry : m_addrMap) {
        m_trace.prn("checking %s for match on %s", entry->key().c_str(), requestUri);
        if (entry->matches(requestUri)) {
            m_trace.prn("MATCH found for %s", entry->key().c_str());
            return entry->csid();
        }
    }
    return 0;
}

void LocationService::getMapKeys(std::vector<std::string>& keys) {
    keys.clear();
    for (AddressMap* entry : m_addrMap)
        keys.push_back(entry->key());
}

AddressMap* LocationService::lookupMapEntry(std::string& key) {
    for (AddressMap* entry : m_addrMap)
        if (entry->key() == key)
            return entry;
    return nullptr;
}

void LocationService::removeMapEntry(std::string& key) {
    for (auto at = m_addrMap.begin(); at != m_addrMap.end(); ++at)
        if ((*at)->key() == key) {
            delete *at;
            m_addrMap.erase(at);
            return;
        }
}

void LocationService::clearMapEntries() {
    for (AddressMap* entry : m_addrMap)
        delete entry;
    m_addrMap.clear();
}

} // namespace velm
