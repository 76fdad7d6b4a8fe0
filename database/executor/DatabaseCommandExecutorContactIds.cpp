// Stepping through registered contacts by identifier, reading one, counting
// them.
#include "DatabaseCommandExecutor.h"

#include "ColumnText.h"
#include "QueryResultPtr.h"

#include <cstdlib>
#include <string>

namespace velm {

DatabaseResult DatabaseCommandExecutor::getNextContactId(int paid, int prevId, int& nextId) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    m_trace.prn("looking up next contact_id from contact table paid=%d, prevId=%d", paid, prevId);
    // Only contacts with a Contact header count as registered.
    std::string sql = std::string("SELECT DISTINCT c.contact_id FROM contact c, public_address p ") +
                      "WHERE c.csid=p.csid AND p.public_address_id='" + std::to_string(paid) +
                      "' AND c.contact_header <> '' " + "AND c.contact_id > '" + std::to_string(prevId) +
                      "' ORDER BY c.contact_id ASC LIMIT 1;";
    QueryResultPtr result;
    DatabaseResult outcome = selectRowsTracingFailure(sql, result, "getNextContactId");
    if (!outcome.okay())
        return outcome;
    m_trace.prn("getNextContactId: pNextId=%s", result.getValue(0, 0));
    return toInteger(result.getValue(0, 0), "pNextId", nextId);
}

DatabaseResult DatabaseCommandExecutor::lookupContact(int cid, std::string& display_name, std::string& address,
                                                      int& expires, std::string& qvalue) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    m_trace.prn("looking up contact from contact table cid=%d", cid);
    std::string sql = std::string("SELECT i.display_name, c.address, c.expires, c.qvalue ") +
                      "FROM contact c JOIN contact_set cs ON c.csid=cs.csid " +
                      "LEFT JOIN identity i ON cs.sid=i.sid " + "WHERE c.contact_header <> '' AND c.contact_id='" +
                      std::to_string(cid) + "';";
    QueryResultPtr result;
    DatabaseResult outcome = selectRowsTracingFailure(sql, result, "lookupContact");
    if (!outcome.okay())
        return outcome;
    display_name = result.getValue(0, 0);
    address = result.getValue(0, 1);
    const char* expiry = result.getValue(0, 2);
    if (hasValue(expiry)) {
        expires = std::atoi(expiry);
    } else {
        m_trace.prn("lookupContact returned null or empty contact.expires, setting expires=0");
        expires = 0;
    }
    qvalue = result.getValue(0, 3);
    m_trace.prn("lookupContact: display_name=%s, address=%s, expires=%d, qvalue=%s", display_name.c_str(),
                address.c_str(), expires, qvalue.c_str());
    if (address.empty())
        return fail(DatabaseResult::QUERY_ERROR, "returned NULL contact.address");
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::getRegisteredContactCount(int& count) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    m_trace.prn("getRegisteredContactCount: looking up current number of registered contacts");
    std::string sql = std::string("SELECT COUNT(contact_id) FROM contact ") + "WHERE contact_header <> '';";
    QueryResultPtr result;
    DatabaseResult outcome = selectRowsTracingFailure(sql, result, "getRegisteredContactCount:");
    if (!outcome.okay())
        return outcome;
    m_trace.prn("getNextContactId: pCount=%s", result.getValue(0, 0));
    return toInteger(result.getValue(0, 0), "pCount", count);
}

} // namespace velm
