// Registering, removing and re-reading the contacts of a contact set.
#include "DatabaseCommandExecutor.h"

#include "ColumnText.h"
#include "ContactRecord.h"
#include "ContactRow.h"
#include "EscapedString.h"
#include "QueryResultPtr.h"
#include "ValueString.h"

#include <cstdlib>
#include <ctime>
#include <string>

namespace velm {

int DatabaseCommandExecutor::addContact(const char* handle, const char* domain, ContactRecord& contact) {
    if (!checkConnect())
        return -1;
    ValueString list;
    list.addEscaped("handle", handle);
    list.addEscaped("sip_domain", domain);
    list.add(columns::contactValues, contact);
    return callFunction(std::string("SELECT add_contact") + list.values());
}

int DatabaseCommandExecutor::addContact(ContactRecord& contact) {
    if (!checkConnect())
        return -1;
    ValueString list;
    list.add(columns::contactInsert, contact);
    std::string sql = std::string("INSERT INTO contact") + list.names() + " VALUES" + list.values() + ";";
    m_trace.prn("%s", sql.c_str());
    QueryResultPtr result;
    return run(sql, result) ? 0 : -1;
}

int DatabaseCommandExecutor::removeContact(const char* handle, const char* domain, const char* address) {
    // Without a connection there is nothing to remove the contact from.
    if (!checkConnect())
        return 0;
    if (handle == nullptr || domain == nullptr || address == nullptr) {
        error("invalid parameters");
        return -1;
    }
    ValueString list;
    list.addEscaped("handle", handle);
    list.addEscaped("sip_domain", domain);
    list.addEscaped("address", address);
    std::string sql = std::string("SELECT remove_contact") + list.values();
    m_trace.prn("%s", sql.c_str());
    QueryResultPtr result;
    return run(sql, result) ? 0 : -1;
}

DatabaseResult DatabaseCommandExecutor::lookupContacts(int key, ContactRecord& matchingContact,
                                                       std::vector<ContactRecord>& retrievedContacts) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    bool setKnown = matchingContact.csid() != -1;
    if (key == 0 && !setKnown)
        return fail(DatabaseResult::BADPARAM, "key = 0 and no csid");

    QueryResultPtr result;
    DatabaseResult outcome;
    if (!setKnown) {
        std::string sql = "SELECT public_address.csid FROM public_address WHERE public_address.public_address_id=" +
                          std::to_string(key) + ";";
        m_trace.prn("%s", sql.c_str());
        outcome = execute(sql, result);
        if (!outcome.okay())
            return outcome;
        m_trace.prn("retrieved %d rows for contactset", result.rows());
        if (result.rows() == 0)
            return outcome;
        const char* value = result.getValue(0, 0);
        int csid = hasValue(value) ? std::atoi(value) : -1;
        if (csid == -1)
            return fail(DatabaseResult::BADPARAM, "NO csid in retrieved contact and no key passed in");
        matchingContact.setCsid(csid);
    }

    int csid = matchingContact.csid();
    m_trace.prn("csid=%d", csid);
    // The caller's transaction holds these rows until it ends, so that
    // concurrent registrations of one set take turns.
    std::string sql = std::string("SELECT contact.csid, contact.address, contact.qvalue, contact.expires, "
                                  "contact.capabilities, contact.contact_header, contact.call_id, contact.cseq, "
                                  "contact.c_type, contact.path_vector, contact.contact_id, contact.permanent "
                                  "FROM contact") +
                      " WHERE contact.csid=" + std::to_string(csid) + " FOR UPDATE;";
    m_trace.prn("%s", sql.c_str());
    outcome = execute(sql, result);
    if (!outcome.okay())
        return outcome;
    m_trace.prn("retrieved %d rows", result.rows());
    for (int row = 0; row < result.rows(); ++row) {
        ContactRecord contact;
        contact.setCsid(csid);
        readContactRow(result, row, contact);
        contact.setUser(matchingContact.user());
        contact.setDomain(matchingContact.domain());
        retrievedContacts.push_back(contact);
    }
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::lookupMatchingContact(int csid, int paid, ContactRecord& lookupContact,
                                                              ContactRecord& matchedContact) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    if (lookupContact.address().empty())
        return fail(DatabaseResult::QUERY_ERROR, "lookupContact address empty");
    if (csid <= 0 && paid <= 0)
        return fail(DatabaseResult::BADPARAM,
                    "lookupMatchingContact: csid=" + std::to_string(csid) + ", paid=" + std::to_string(paid));
    std::string set = csid != 0 ? std::to_string(csid)
                                : "(SELECT csid FROM public_address where public_address_id = " +
                                      std::to_string(paid) + ")";
    EscapedString address(lookupContact.address());
    std::string sql = std::string("SELECT contact.address, contact.expires, contact.capabilities, "
                                  "contact.contact_header, contact.call_id, contact.cseq, contact.c_type, "
                                  "contact.path_vector, contact.contact_id, contact.permanent, contact.qvalue, "
                                  "contact.csid FROM contact") +
                      " WHERE contact.csid=" + set + " AND contact.address='" + address.value() + "' LIMIT 1;";
    m_trace.prn("lookupMatchingContact: %s", sql.c_str());
    QueryResultPtr result;
    DatabaseResult outcome = execute(sql, result);
    if (!outcome.okay())
        return outcome;
    m_trace.prn("retrieved %d rows", result.rows());
    if (result.rows() > 0)
        readContactRow(result, 0, matchedContact);
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::getExpiredContacts(std::vector<ContactRecord>& contacts, bool limitOne) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    // Only limitOne asks for the primary address: the full list names a
    // contact once for every public address of its set.
    std::string sql = std::string("SELECT public_address.handle, public_address.sip_domain, contact.address, "
                                  "contact.qvalue, contact.expires, contact.capabilities,  contact.contact_header, "
                                  "contact.call_id, contact.cseq, contact.c_type,  contact.csid, contact.contact_id  "
                                  "FROM public_address, contact_set, contact WHERE  contact.expires < ") +
                      std::to_string(static_cast<long>(std::time(nullptr))) +
                      " AND contact.permanent = 'f' AND contact.csid = contact_set.csid " +
                      " AND contact_set.csid = public_address.csid " +
                      (limitOne ? " AND public_address.primary_handle = 't' LIMIT 1;" : ";");
    m_trace.prn("%s", sql.c_str());
    QueryResultPtr result;
    DatabaseResult outcome = execute(sql, result);
    if (!outcome.okay())
        return outcome;
    m_trace.prn("found %d expired contact record(s)", result.rows());
    for (int row = 0; row < result.rows(); ++row) {
        ContactRecord contact;
        readContactRow(result, row, contact);
        contacts.push_back(contact);
    }
    return outcome;
}

} // namespace velm
