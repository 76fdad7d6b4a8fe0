// The subscriber lookup of authentication, which also learns visitors from the
// administration service of their home node.
#include "LocationService.h"

#include "DatabaseCommandExecutor.h"
#include "EscapedString.h"
#include "LowerCase.h"
#include "QueryResultPtr.h"
#include "SubscriberRecord.h"
#include "VisitingProfileRequest.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>

namespace velm {

namespace {

const char* const OPERATION = "lookupSubscriberPassword";

// An http: or https: URL with a host part.
bool isWebAddress(const std::string& address) {
    for (const char* scheme : {"http://", "https://"}) {
        size_t length = std::strlen(scheme);
        if (strncasecmp(address.c_str(), scheme, length) == 0 && address.size() > length && address[length] != '/')
            return true;
    }
    return false;
}

} // namespace

DatabaseResult LocationService::lookupSubscriberPassword(const char* handle, const char* domain,
                                                         SubscriberRecord& subscriber) {
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay())
        return result;
    if (handle == nullptr || domain == nullptr) {
        result.setBadParameter();
        result.setErrorMessage("invalid parameter");
        return result;
    }
    std::string lowerHandle = lowerCase(handle);
    std::string lowerDomain = lowerCase(domain);
    m_trace.prn("looking up subscriber password %s@%s", lowerHandle.c_str(), lowerDomain.c_str());
    int found = m_exec->lookupSubscriber(lowerHandle.c_str(), lowerDomain.c_str(), subscriber, false);
    if (found < 0)
        return subscriberLookupResult(found, "database failure - lookupSubscriberPassword_1");
    if (found > 0)
        return checkSubscriberNode(OPERATION, 8, 9, lowerHandle, lowerDomain, subscriber);

    // The executor escapes what it puts into statements; the administration
    // service is asked with the escaped texts.
    int sid = 0;
    result = fetchVisitor(EscapedString(lowerHandle).value(), EscapedString(lowerDomain).value(), sid);
    if (!result.okay())
        return result;
    // Replication brings the visitor's rows a moment after the service
    // answered.
    found = m_exec->lookupSubscriber(lowerHandle.c_str(), lowerDomain.c_str(), subscriber, true);
    if (found == 0) {
        m_trace.prn("not found");
        result.setConnectionError();
        result.setErrorMessage(m_exec->getErrorMessage());
        return result;
    }
    if (found < 0)
        return subscriberLookupResult(found,
                                      "database failure - lookupSubscriberPassword_4. " + m_exec->getErrorMessage());
    return checkVisitorNode(sid);
}

DatabaseResult LocationService::fetchVisitor(const std::string& handle, const std::string& domain, int& sid) {
    std::string address;
    DatabaseResult result = m_exec->getSystemParameterValue("velm", "system", "top_url", address);
    // An empty or non-HTTP address would send the request nowhere (gSOAP
    // then writes it to standard output and waits on standard input).
    if (result.okay() && !isWebAddress(address)) {
        result.setNotFound();
        result.setErrorMessage("top_url is not an http or https address: '" + address + "'");
    }
    if (!result.okay()) {
        alarmStep(OPERATION, 2, result);
        m_trace.prn("lookupSubscriberPassword: WARNING administration service address (top_url) not found");
        return result;
    }
    m_trace.prn("lookupSubscriberPassword: administration service address=%s", address.c_str());
    // The service is reached over plain HTTP.
    if (strncasecmp(address.c_str(), "https:", 6) == 0)
        address.erase(4, 1);
    address += visitingProfilePath();
    m_trace.prn("lookupSubscriberPassword: visiting-profile service at %s", address.c_str());

    std::string user;
    std::string password;
    result = m_exec->getSystemUserAndPasswordValues(user, password, true);
    if (!result.okay()) {
        alarmStep(OPERATION, 3, result);
        m_trace.prn("LocationService:: WARNING user name and/or password not found");
        return result;
    }
    m_trace.prn("LocationService:: found user name=%s and password=%s", user.c_str(), password.c_str());

    int code = requestVisitingProfile(address, user, password, handle, domain, sid);
    if (code != 0) {
        result.setQueryError();
        m_trace.prn("VuSoap method return: %d", code);
        result.setErrorMessage("VU soap error=" + std::to_string(code));
        return result;
    }
    if (sid == 0) {
        m_trace.prn("not found");
        result.setNotFound();
        return result;
    }
    m_trace.prn("VU sid found=%d", sid);
    return addVisitingUser(sid);
}

DatabaseResult LocationService::checkVisitorNode(int sid) {
    int homeNode = 0;
    DatabaseResult result = m_exec->getHomeNode_id(homeNode);
    if (!result.okay()) {
        m_trace.log("home node id not found when checking for VU sid=%d", sid);
        raiseDatabaseAlarm("database failure - lookupSubscriberPassword_5. " + result.getErrorMessage());
        return result;
    }
    std::string sql = "SELECT velm_users.node_id FROM velm_users WHERE velm_users.sid='" + std::to_string(sid) + "';";
    m_trace.prn("VU node request: m_exec(%s)", sql.c_str());
    QueryResultPtr rows;
    result = m_exec->execute(sql, rows);
    if (!result.okay()) {
        m_trace.log("home node id of VU sid (%d) fatal error", sid);
        raiseDatabaseAlarm("database failure - lookupSubscriberPassword_6. " + result.getErrorMessage());
        return result;
    }
    if (rows.rows() == 0) {
        raiseDatabaseAlarm("database failure - lookupSubscriberPassword_7. sid node not found");
        m_trace.log("home node id of VU sid (%d) not found", sid);
        result.setNotFound();
        result.setErrorMessage("home node id of VU sid not found");
        return result;
    }
    const char* node = rows.getValue(0, 0);
    if (node == nullptr || *node == '\0') {
        m_trace.prn("home node id of VU sid (%d) treated as a NULL", sid);
        result.setErrorMessage("");
        return result;
    }
    if (std::atoi(node) == homeNode) {
        // Its home moved here while we asked: it is no visitor any more.
        DatabaseResult deleted = deleteVisitingUser(sid);
        m_trace.prn("race occurred between gSoap and SDS deleting replica_extra for  sid - %d", sid);
        if (deleted.okay())
            m_trace.prn("VU delete OK for sid - %d", sid);
        else
            m_trace.log("VU delete !OK for sid - %d, error=%s", sid, deleted.getErrorMessage().c_str());
    }
    m_trace.prn("lookupSubscriberPassword located sid=%d, sid", sid);
    return result;
}

} // namespace velm
