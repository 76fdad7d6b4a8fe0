// Reading public addresses: by name, by identifier, by extension, and walking
// them in identifier order.
#include "DatabaseCommandExecutor.h"

#include "ColumnText.h"
#include "EscapedString.h"
#include "PublicAddressRecord.h"
#include "QueryResultPtr.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace velm {

DatabaseResult DatabaseCommandExecutor::lookupPublicAddress(const char* handle, const char* domain,
                                                            PublicAddressRecord& address) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    if (handle == nullptr || domain == nullptr)
        return fail(DatabaseResult::QUERY_ERROR, "invalid parameters");
    std::string sql = std::string("SELECT handle, sip_domain, csid, scope, public_address_id FROM public_address "
                                  "WHERE  handle='") +
                      EscapedString(handle).value() + "' AND sip_domain='" + EscapedString(domain).value() + "'";
    QueryResultPtr result;
    DatabaseResult outcome = execute(sql, result);
    if (!outcome.okay())
        return outcome;
    if (result.rows() == 0) {
        outcome.setNotFound();
        return outcome;
    }
    address.setHandle(result.getValue(0, 0));
    address.setDomain(result.getValue(0, 1));
    if (hasValue(result.getValue(0, 2)))
        address.setCsid(std::atoi(result.getValue(0, 2)));
    address.setScope(result.getValue(0, 3));
    if (hasValue(result.getValue(0, 4)))
        address.setPublicAddressId(std::atoi(result.getValue(0, 4)));
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::lookupPublicAddress(int paid, std::string& handle, std::string& domain,
                                                            bool& isPrimary) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    m_trace.prn("looking up public_address from public_address table paid=%d", paid);
    std::string sql = std::string("SELECT p.handle, p.sip_domain,p.primary_handle FROM public_address p ") +
                      "WHERE p.public_address_id = '" + std::to_string(paid) + "';";
    QueryResultPtr result;
    DatabaseResult outcome = selectRows(sql, result, "lookupPublicAddress");
    if (!outcome.okay())
        return outcome;
    const char* foundHandle = result.getValue(0, 0);
    const char* foundDomain = result.getValue(0, 1);
    m_trace.prn("lookupPublicAddress: handle=%s domain=%s", foundHandle, foundDomain);
    if (!hasValue(foundHandle) || !hasValue(foundDomain))
        return fail(DatabaseResult::QUERY_ERROR, "returned NULL handle or domain");
    handle = foundHandle;
    domain = foundDomain;
    isPrimary = std::strcmp(result.getValue(0, 2), "t") == 0;
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::lookupPublicAddress(int paid, std::string& handle, std::string& domain) {
    bool isPrimary;
    return lookupPublicAddress(paid, handle, domain, isPrimary);
}

DatabaseResult DatabaseCommandExecutor::getIdentity(const char* handle, const char* domain, std::string& identity) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    if (handle == nullptr || domain == nullptr)
        return fail(DatabaseResult::QUERY_ERROR, "invalid handle/domain parameters");
    std::string sql = std::string("SELECT identity.pidentity, identity.display_name  FROM public_address, identity, "
                                  "contact_set, subscriber WHERE public_address.handle='") +
                      EscapedString(handle).value() + "' AND public_address.sip_domain='" +
                      EscapedString(domain).value() +
                      "' AND public_address.csid=contact_set.csid  AND contact_set.sid=subscriber.sid  AND "
                      "identity.sid=subscriber.sid ";
    QueryResultPtr result;
    DatabaseResult outcome = execute(sql, result);
    if (!outcome.okay())
        return outcome;
    identity.clear();
    if (result.rows() == 0) {
        outcome.setNotFound();
        return outcome;
    }
    const char* displayName = result.getValue(0, 1);
    if (hasValue(displayName))
        identity = std::string("\"") + displayName + "\" ";
    const char* pidentity = result.getValue(0, 0);
    if (hasValue(pidentity))
        identity += std::string("<") + pidentity + ">";
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::getPrimaryId(int paid, int& primaryId) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    m_trace.prn("lookupContacts() key=%d", paid);
    std::string sql = "SELECT prim_pub_addr.public_address_id FROM public_address prim_pub_addr, public_address "
                      "second_pub_addr WHERE prim_pub_addr.csid = second_pub_addr.csid AND "
                      "second_pub_addr.public_address_id = " +
                      std::to_string(paid) + " AND prim_pub_addr.primary_handle = 't' ";
    QueryResultPtr result;
    DatabaseResult outcome = execute(sql, result);
    if (!outcome.okay())
        return outcome;
    m_trace.prn("retrieved %d rows", result.rows());
    // Neither a missing row nor an empty key is a failure here: callers test
    // primaryId.
    if (result.rows() > 0) {
        const char* value = result.getValue(0, 0);
        if (hasValue(value)) {
            primaryId = std::atoi(value);
        } else {
            primaryId = -1;
            outcome.setErrorMessage("an empty primary key");
        }
    }
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::lookupExtension(const std::string& extension, int& paid, std::string& handle,
                                                        std::string& domain, int& numReg) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    m_trace.prn("looking up extension from public_address table");
    std::string sql = std::string("SELECT p.public_address_id, p.handle, p.sip_domain ") +
                      "FROM public_address p WHERE p.primary_handle = 't' AND " +
                      "p.csid IN (SELECT p.csid FROM public_address p WHERE p.handle = '" + EscapedString(extension).value() + "');";
    QueryResultPtr result;
    DatabaseResult outcome = selectRows(sql, result, "lookupExtension");
    if (!outcome.okay())
        return outcome;
    const char* foundPaid = result.getValue(0, 0);
    const char* foundHandle = result.getValue(0, 1);
    const char* foundDomain = result.getValue(0, 2);
    m_trace.prn("lookupExtension: pPaid=%s handle=%s domain=%s", foundPaid, foundHandle, foundDomain);
    if (!hasValue(foundPaid) || !hasValue(foundHandle) || !hasValue(foundDomain))
        return fail(DatabaseResult::QUERY_ERROR, "returned NULL paid, handle, or domain");
    paid = std::atoi(foundPaid);
    handle = foundHandle;
    domain = foundDomain;

    m_trace.prn("looking up number of registrations from contact table");
    sql = std::string("SELECT COUNT(c.address) FROM public_address p, contact_set cs, contact c ") +
          "WHERE p.public_address_id = '" + std::to_string(paid) +
          "' AND p.csid = cs.csid AND cs.csid = c.csid AND c.permanent = 'f'; ";
    m_trace.prn("%s", sql.c_str());
    outcome = execute(sql, result);
    if (!outcome.okay())
        return outcome;
    const char* count = result.getValue(0, 0);
    m_trace.prn("lookupExtension: pNumReg=%s", count != nullptr ? count : "");
    return toInteger(count, "pNumReg", numReg);
}

DatabaseResult DatabaseCommandExecutor::getNextPublicAddressId(int prevId, int& nextId) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    m_trace.prn("looking up next public_address_id from public_address table prevId=%d", prevId);
    std::string sql = std::string("SELECT DISTINCT p.public_address_id FROM public_address p ") +
                      "WHERE p.primary_handle='t' AND p.public_address_id > '" + std::to_string(prevId) +
                      "' ORDER BY p.public_address_id ASC LIMIT 1;";
    QueryResultPtr result;
    DatabaseResult outcome = selectRows(sql, result, "getNextPublicAddressId");
    if (!outcome.okay())
        return outcome;
    m_trace.prn("getNextPublicAddressId: pNextId=%s", result.getValue(0, 0));
    return toInteger(result.getValue(0, 0), "pNextId", nextId);
}

DatabaseResult DatabaseCommandExecutor::getNextAliasId(int primaryId, int prevId, int& nextId) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    m_trace.prn("getNextAliasId: looking up next public_address_id from public_address table primaryId=%d prevId=%d",
                primaryId, prevId);
    std::string sql = std::string("SELECT public_address_id FROM public_address ") +
                      "WHERE primary_handle != 't' AND public_address_id > " + std::to_string(prevId) +
                      " AND csid IN (SELECT csid FROM public_address " + "WHERE public_address_id = " +
                      std::to_string(primaryId) + ") ORDER BY public_address_id LIMIT 1;";
    QueryResultPtr result;
    DatabaseResult outcome = selectRows(sql, result, "getNextAliasId");
    if (!outcome.okay())
        return outcome;
    m_trace.prn("getNextAliasId: pNextId=%s", result.getValue(0, 0));
    return toInteger(result.getValue(0, 0), "pNextId", nextId);
}

} // namespace velm
