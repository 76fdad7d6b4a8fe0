// Who serves a subscriber: the lookup with its node check, and the local-user
// test of the routing.
#include "LocationService.h"

#include "DatabaseCommandExecutor.h"
#include "EscapedString.h"
#include "LowerCase.h"
#include "QueryResultPtr.h"
#include "SubscriberRecord.h"
#include "Uri.h"

#include <cstdlib>

namespace velm {

DatabaseResult LocationService::isLocalUser(const std::string& lookupAddress) {
    osk::Uri uri(lookupAddress);
    if (!uri.isValid()) {
        m_trace.prn("*** ERROR ***: Invalid URI for lookupAddress=%s", lookupAddress.c_str());
        DatabaseResult result;
        result.setQueryError();
        result.setErrorMessage("isVisitingUser: invalid lookupAddress");
        return result;
    }
    return isLocalUser(uri.getUser(), uri.getHost());
}

DatabaseResult LocationService::isLocalUser(const char* user, const char* domain) {
    DatabaseResult result;
    if (user == nullptr || domain == nullptr) {
        result.setBadParameter();
        result.setErrorMessage("isLocalUser: missing user or domain");
        return result;
    }
    checkConnect(result);
    if (!result.okay())
        return result;
    std::string lowerUser = lowerCase(user);
    std::string lowerDomain = lowerCase(domain);
    bool found = false;
    std::string node;
    result = subscriberNode(lowerUser, lowerDomain, found, node);
    if (!result.okay()) {
        alarmStep("isLocalUser", 1, result);
        return result;
    }
    if (node.empty())
        return result;
    int homeNode = 0;
    DatabaseResult home = m_exec->getHomeNode_id(homeNode);
    if (!home.okay()) {
        alarmStep("isLocalUser", 2, home);
        home.setQueryError();
        if (home.getErrorMessage().empty())
            home.setErrorMessage("isLocalUser: this node's replica_id not found");
        return home;
    }
    if (std::atoi(node.c_str()) != homeNode) {
        m_trace.prn("isLocalUser: %s@%s is served by node %s", lowerUser.c_str(), lowerDomain.c_str(), node.c_str());
        result.setNotFound();
        result.setErrorMessage("isLocalUser: user of node " + node);
    }
    return result;
}

DatabaseResult LocationService::lookupSubscriber(const char* handle, const char* domain,
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
    m_trace.prn("looking up subscriber %s@%s", lowerHandle.c_str(), lowerDomain.c_str());
    int found = m_exec->lookupSubscriber(lowerHandle.c_str(), lowerDomain.c_str(), subscriber, false);
    if (found < 0)
        return subscriberLookupResult(found, "database failure - lookupSubscriber_1");
    if (found == 0) {
        m_trace.prn("not found");
        result.setNotFound();
        return result;
    }
    return checkSubscriberNode("lookupSubscriber", 2, 3, lowerHandle, lowerDomain, subscriber);
}

DatabaseResult LocationService::subscriberLookupResult(int found, const std::string& alarmText) {
    DatabaseResult result;
    if (found == -1) {
        raiseDatabaseAlarm(alarmText);
        m_trace.prn("connection error");
        result.setConnectionError();
        result.setErrorMessage(m_exec->getErrorMessage());
    } else if (found == -2) {
        m_trace.prn("invalid parameter passed to lookupSubscriber");
        result.setBadParameter();
        result.setErrorMessage("invalid parameter");
    }
    return result;
}

DatabaseResult LocationService::subscriberNode(const std::string& handle, const std::string& domain, bool& found,
                                               std::string& node) {
    QueryResultPtr rows;
    DatabaseResult result = m_exec->execute(std::string("SELECT velm_users.node_id FROM velm_users,public_address,contact_set "
                                                        "WHERE public_address.handle='") +
                                                EscapedString(handle).value() + "' AND public_address.sip_domain='" +
                                                EscapedString(domain).value() +
                                                "' AND contact_set.csid=public_address.csid AND "
                                                "velm_users.sid=contact_set.sid;",
                                            rows);
    found = result.okay() && rows.rows() > 0;
    const char* value = found ? rows.getValue(0, 0) : nullptr;
    node = value != nullptr ? value : "";
    return result;
}

DatabaseResult LocationService::checkSubscriberNode(const char* operation, int queryStep, int homeStep,
                                                    const std::string& handle, const std::string& domain,
                                                    SubscriberRecord& subscriber) {
    m_trace.prn("%s: node check with handle and domain", operation);
    bool found = false;
    std::string node;
    DatabaseResult result = subscriberNode(handle, domain, found, node);
    if (!result.okay()) {
        alarmStep(operation, queryStep, result);
        m_trace.log("%s:home node id test  error", operation);
        return result;
    }
    if (!found) {
        subscriber.setIsLocal(true);
        m_trace.prn("%s: node not found", operation);
        return result;
    }
    if (node.empty()) {
        m_trace.prn("%s: subscriber node treated as a NULL", operation);
        return result;
    }
    int homeNode = 0;
    DatabaseResult home = m_exec->getHomeNode_id(homeNode);
    if (!home.okay() || homeNode == 0) {
        bool fatal = home.fatalError();
        if (homeNode == 0) {
            m_trace.prn("%s:home node not found", operation);
            home.setQueryError();
        }
        if (fatal) {
            m_trace.log("%s:home node not found", operation);
            alarmStep(operation, homeStep, home);
        }
        return home;
    }
    if (std::atoi(node.c_str()) == homeNode)
        subscriber.setIsLocal(true);
    else
        m_trace.prn("lookupSubscriber:home node and subscriber node don't match");
    return result;
}

} // namespace velm
