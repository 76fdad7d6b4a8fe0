// This node's configuration through the facade: QoS, node type, proxy items, system credentials and trace filters.
#include "LocationService.h"

#include "DatabaseCommandExecutor.h"
#include "HostInfo.h"
#include "ProxyConfig.h"
#include "RemoteFilter.h"

namespace velm {

DatabaseResult LocationService::getQoS(int* qos) {
    // Two blanks after the dash: monitoring knows the alarm text this way.
    return guarded(" getQoS", [&](DatabaseCommandExecutor& exec) {
        m_trace.prn("LocationService: getting QoS field from system_parameter");
        DatabaseResult result;
        if (qos == nullptr) {
            result.setBadParameter();
            result.setErrorMessage("getQoS: null output");
            return result;
        }
        result = exec.getQoSField(qos);
        if (result.okay())
            m_trace.prn("Found QoS in DB. qos=%d", *qos);
        else if (!result.fatalError())
            m_trace.prn("getQoS failed to find QoS in DB");
        return result;
    });
}

DatabaseResult LocationService::getNodeType(std::string& nodeType) {
    HostInfo info;
    DatabaseResult result =
        guarded("getNodeType", [&](DatabaseCommandExecutor& exec) { return exec.getHostInfo(info); });
    nodeType = info.nodeType();
    if (result.okay() && nodeType.empty())
        result.setNotFound();
    return result;
}

DatabaseResult LocationService::getProxyConfig(const char* proxyName, std::vector<ProxyConfig>& items) {
    return guarded("getProxyConfig",
                   [&](DatabaseCommandExecutor& exec) { return exec.getProxyConfig(proxyName, items); });
}

DatabaseResult LocationService::getSystemUserAndPasswordValues(std::string& user, std::string& password) {
    return guarded("getSystemUserAndPasswordValues", [&](DatabaseCommandExecutor& exec) {
        return exec.getSystemUserAndPasswordValues(user, password, true);
    });
}

DatabaseResult LocationService::getRemoteFilters(std::vector<remoteFilter>* filters, std::string* destination) {
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay())
        return result;
    m_trace.prn("getting remote filters");
    if (filters == nullptr || destination == nullptr) {
        result.setBadParameter();
        result.setErrorMessage("getRemoteFilters: null output");
        return result;
    }
    switch (m_exec->getRemoteFilters(filters, destination)) {
    case -1:
        result.setConnectionError();
        result.setErrorMessage(m_exec->getErrorMessage());
        raiseDatabaseAlarm("database failure - getRemoteFilters. " + result.getErrorMessage());
        m_trace.prn("connection error");
        break;
    case -2:
        // The filters are usable; only their destination is missing.
        m_trace.prn("invalid parameter passed to ");
        result.setErrorMessage("invalid parameter getRemoteFilters.");
        break;
    case 0:
        m_trace.prn("not found");
        result.setNotFound();
        break;
    default:
        m_trace.prn("remote filters gotten");
        break;
    }
    return result;
}

} // namespace velm
