// The default route, the outbound route and whether out-of-dialog REFER is routed.
#include "LocationService.h"

#include "AppProperties.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "HostInfo.h"
#include "StringTokenizer.h"
#include "Uri.h"

#include <strings.h>

#include <cstdlib>

namespace velm {

bool LocationService::isOODReferAllowed() {
    const char* value = AppProperties::get("Proxy", "EnableOODReferRouting");
    return value == nullptr || strcasecmp(value, "false") != 0;
}

DatabaseResult LocationService::getDefaultRoute(std::string& ordering, bool& redirect,
                                                std::vector<ContactRecord>& contacts) {
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay())
        return result;
    m_trace.prn("getting host info");
    HostInfo info;
    result = m_exec->getHostInfo(info);
    if (result.okay()) {
        m_trace.prn("fetching contacts for csid=%s", info.parentContact().c_str());
        result = m_exec->lookupContacts(ordering, std::atoi(info.parentContact().c_str()), redirect, contacts);
    } else {
        m_trace.prn("getHostInfo failed");
    }
    alarmOnFatal("getDefaultRoute", result);
    return result;
}

DatabaseResult LocationService::getOutboundRoute(const char* outboundUri, bool internal, std::string& proxy,
                                                 bool& allowed) {
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay())
        return result;
    if (outboundUri == nullptr) {
        result.setBadParameter();
        result.setErrorMessage("getOutboundRoute: null outbound uri");
        return result;
    }
    HostInfo info;
    result = m_exec->getHostInfo(info);
    if (!result.okay()) {
        alarmStep("getOutboundRoute", 1, result);
        m_trace.prn("getHostInfo failed");
        return result;
    }
    osk::Uri uri(outboundUri);
    if (!uri.isValid()) {
        result.setBadParameter();
        result.setErrorMessage(std::string("getOutboundRoute: invalid outbound uri: ") + uri.errorMessage());
        return result;
    }

    allowed = true;
    // The node keeps no per-domain outbound rules: its access list grants
    // every host and denies none, so only the external switch can refuse.
    if (internal) {
        m_trace.prn("checking internal request");
        if (!info.outboundAllowInternal()) {
            m_trace.prn("internal request not allowed, checking allowed list");
            m_trace.prn("internal request granted by access list");
        } else {
            m_trace.prn("internal request is allowed, checking deny list");
            m_trace.prn("request is allowed");
        }
    } else {
        m_trace.prn("checking external request");
        if (!info.outboundAllowExternal()) {
            m_trace.prn("external request not allowed");
            allowed = false;
            return result;
        }
        m_trace.prn("external request is allowed");
    }

    if (info.outboundProxy().empty()) {
        m_trace.prn("no outbound proxy set");
        proxy.clear();
        return result;
    }
    m_trace.prn("setting outbound proxy");
    proxy = info.outboundProxy();
    StringTokenizer bypass(info.outboundDirect(), " ,;:");
    m_trace.prn("checking host %s for proxy bypass", uri.getHost());
    while (bypass.hasMoreTokens()) {
        std::string host = bypass.nextToken();
        m_trace.prn("checking %s", host.c_str());
        if (host == uri.getHost()) {
            m_trace.prn("proxy bypass is being used");
            proxy.clear();
            break;
        }
    }
    return result;
}

} // namespace velm
