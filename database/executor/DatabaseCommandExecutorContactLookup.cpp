// The contacts a request is routed to: those of a public address (behind the
// ACP contacts of its subscriber's extensions) or of a contact set, in the
// order they are to be tried.
#include "DatabaseCommandExecutor.h"

#include "AppProperties.h"
#include "ColumnText.h"
#include "ContactRecord.h"
#include "ContactRow.h"
#include "QueryResultPtr.h"

#include <strings.h>

#include <cstdlib>
#include <string>

namespace velm {

namespace {

const char* yesNo(bool value) {
    return value ? "true" : "false";
}

// ACP contacts never expire.
const long acpExpires = 2147483647;

} // namespace

void DatabaseCommandExecutor::appendRotated(const QueryResultPtr& result, int startIndex,
                                            std::vector<ContactRecord>& contacts) {
    int rows = result.rows();
    for (int i = 0; i < rows; ++i) {
        ContactRecord contact;
        readContactRow(result, (startIndex + i) % rows, contact);
        contacts.push_back(contact);
    }
}

DatabaseResult DatabaseCommandExecutor::lookupContacts(int key, std::string& ordering, bool& replaceUri,
                                                       std::vector<ContactRecord>& contacts,
                                                       bool resolveCycleContacts) {
    m_trace.prn("lookupContacts() key=%d", key);
    replaceUri = true;
    DatabaseResult outcome;

    const char* generateAcp = AppProperties::get("LocationService", "GenerateAcpContacts");
    if (generateAcp != nullptr && strcasecmp(generateAcp, "false") == 0) {
        m_trace.prn("Configuration velm.conf GenerateAcpContacts is false.  Not generating ACP contacts.");
    } else {
        m_trace.prn("Calling lookupAcpContacts for key=%d", key);
        outcome = lookupAcpContacts(key, ordering, replaceUri, contacts);
        if (!outcome.okay()) {
            m_trace.prn("Failed to lookup ACP contacts: %s", m_errorMsg.c_str());
            return outcome;
        }
        m_trace.prn("Returned %d ACP contacts. ordering=%s replaceUri=%s", static_cast<int>(contacts.size()),
                    ordering.c_str(), yesNo(replaceUri));
    }

    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    // Contacts that stand for the subscriber's extensions came as ACP
    // contacts above.
    std::string sql =
        "SELECT contact_set.csid, contact_set.ordering, contact_set.replace_uri, subscriber.active, "
        "contact.address, contact.qvalue, contact.expires, contact.capabilities, contact.contact_header, "
        "contact.call_id, contact.cseq, contact.c_type, contact.path_vector, contact.contact_id, "
        "public_address.handle, public_address.sip_domain, contact.capabilities, contact.permanent "
        "FROM public_address, contact_set, contact, subscriber "
        "WHERE public_address.public_address_id = " +
        std::to_string(key) +
        " AND contact_set.csid = public_address.csid AND contact.csid = contact_set.csid "
        "AND contact_set.sid = subscriber.sid "
        "AND contact.contact_id NOT IN (SELECT cid FROM extension e where e.sid = contact_set.sid) "
        "ORDER BY contact.qvalue DESC, contact.expires DESC; ";
    m_trace.prn("%s", sql.c_str());
    QueryResultPtr result;
    outcome = execute(sql, result);
    if (!outcome.okay())
        return outcome;
    m_trace.prn("retrieved %d rows", result.rows());
    if (result.rows() == 0)
        return outcome;

    const char* csid = result.getValue(0, 0);
    std::string csidText = hasValue(csid) ? csid : "";
    const char* setOrdering = result.getValue(0, 1);
    ordering = hasValue(setOrdering) ? setOrdering : "";
    m_trace.prn("csid=%s ordering is '%s'", csidText.c_str(), ordering.c_str());

    int startIndex = 0;
    if (ordering == "cycle" && resolveCycleContacts) {
        // Rotated here, so the router just tries the list in order.
        ordering = "sequential";
        startIndex = getNextCycleIndex(csidText, result.rows());
        m_trace.prn("Using cycle ordering, startIndex=%d", startIndex);
    }
    const char* replace = result.getValue(0, 2);
    if (hasValue(replace)) {
        replaceUri = isTrue(replace[0]);
        m_trace.prn("replace is %s", yesNo(replaceUri));
    }
    const char* active = result.getValue(0, 3);
    if (hasValue(active)) {
        m_trace.prn("active status = %s", active);
        // The contacts are still handed out; callers test the outcome.
        if (isFalse(active[0]))
            outcome.setNotFound();
    }
    appendRotated(result, startIndex, contacts);
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::lookupContacts(std::string& ordering, int csid, bool& replaceUri,
                                                       std::vector<ContactRecord>& contacts) {
    replaceUri = true;
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    DatabaseResult outcome;
    if (csid <= 0)
        return outcome;
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    std::string csidText = std::to_string(csid);
    std::string sql = "SELECT contact_set.ordering, contact_set.replace_uri, contact.address, contact.qvalue,  "
                      "contact.expires, contact.capabilities, contact.contact_header,contact.call_id,contact.cseq,"
                      "contact.c_type,contact.path_vector,contact.permanent  FROM contact_set, contact WHERE "
                      "(contact_set.csid = '" +
                      csidText + "'" + " AND contact.csid = contact_set.csid)";
    m_trace.prn("%s", sql.c_str());
    QueryResultPtr result;
    outcome = execute(sql, result);
    if (!outcome.okay())
        return outcome;
    m_trace.prn("retrieved %d rows", result.rows());
    if (result.rows() == 0)
        return outcome;

    const char* setOrdering = result.getValue(0, 0);
    ordering = hasValue(setOrdering) ? setOrdering : "";
    m_trace.prn("ordering is '%s'", ordering.c_str());
    const char* replace = result.getValue(0, 1);
    if (hasValue(replace)) {
        replaceUri = isTrue(replace[0]);
        m_trace.prn("replaceUri is %s", yesNo(replaceUri));
    }
    int startIndex = 0;
    if (ordering == "cycle") {
        ordering = "sequential";
        startIndex = getNextCycleIndex(csidText, result.rows());
        m_trace.prn("Using cycle ordering, startIndex=%d", startIndex);
    }
    appendRotated(result, startIndex, contacts);
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::lookupAcpContacts(int key, std::string& ordering, bool& replaceUri,
                                                          std::vector<ContactRecord>& contacts) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    std::string sql = "SELECT cs.csid, cs.ordering, cs.replace_uri, e.extension, a.sip_trunk_ipaddress, a.sip_port, "
                      "a.link_type, p.handle, p.sip_domain FROM extension e, acp a, public_address p, contact_set cs "
                      "WHERE p.public_address_id = " +
                      std::to_string(key) +
                      " AND p.csid = cs.csid AND cs.sid = e.sid AND e.acp_id = a.acp_id ORDER BY e.oid ASC";
    m_trace.prn("lookupAcpContacts: %s", sql.c_str());
    QueryResultPtr result;
    DatabaseResult outcome = execute(sql, result);
    if (!outcome.okay())
        return outcome;
    m_trace.prn("lookupAcpContacts: retrieved %d rows", result.rows());
    if (result.rows() == 0)
        return outcome;

    const char* csid = result.getValue(0, 0);
    std::string csidText = hasValue(csid) ? csid : "";
    const char* setOrdering = result.getValue(0, 1);
    ordering = hasValue(setOrdering) ? setOrdering : "";
    m_trace.prn("lookupAcpContacts: csid=%s ordering is '%s'", csidText.c_str(), ordering.c_str());
    const char* replace = result.getValue(0, 2);
    if (hasValue(replace)) {
        replaceUri = isTrue(replace[0]);
        m_trace.prn("lookupAcpContacts: replace is %s", yesNo(replaceUri));
    }

    for (int row = 0; row < result.rows(); ++row) {
        const char* extension = result.getValue(row, 3);
        const char* trunk = result.getValue(row, 4);
        const char* port = result.getValue(row, 5);
        const char* linkType = result.getValue(row, 6);
        auto text = [](const char* value) { return hasValue(value) ? value : "(null)"; };
        std::string target = std::string(text(extension)) + "@" + text(trunk) + ":" + text(port) +
                             ";transport=" + text(linkType);
        if (!hasValue(extension) || !hasValue(trunk) || !hasValue(port) || !hasValue(linkType)) {
            m_trace.prn("lookupAcpContacts: Skipping contact with null data: %s", target.c_str());
            continue;
        }
        ContactRecord contact;
        contact.setAddress((strcasecmp(linkType, "tls") == 0 ? "sips:" : "sip:") + target);
        if (hasValue(result.getValue(row, 7)))
            contact.setUser(result.getValue(row, 7));
        if (hasValue(result.getValue(row, 8)))
            contact.setDomain(result.getValue(row, 8));
        if (!csidText.empty())
            contact.setCsid(std::atoi(csidText.c_str()));
        contact.setContactid(0);
        contact.setQvalue("1.0");
        contact.setExpires(acpExpires);
        contact.setCseq(0);
        contact.setType("acp");
        contact.setPermanent('t');
        contacts.push_back(contact);
    }
    return outcome;
}

} // namespace velm
