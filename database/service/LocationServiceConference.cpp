// The conference server: its handle and URI, routing a request to a free bridge, and the bridge usage check.
#include "LocationService.h"

#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LowerCase.h"
#include "SafeLock.h"

#include <cmath>
#include <map>

namespace velm {

namespace {

const char* const DEFAULT_HANDLE = "confsvr";

// What the event server's operators follow of the bridge pool.
const Trace& eventServerTrace() {
    static const Trace trace("EventServer");
    return trace;
}

} // namespace

std::string LocationService::queryConferenceServerHandle() {
    std::string value;
    if (m_exec != nullptr) {
        DatabaseResult result =
            m_exec->getSystemParameterValue("conference", "SixParty", "ConferenceFactoryUser", value);
        alarmOnFatal("queryConferenceServerHandle", result);
    }
    std::string handle = lowerCase(value.c_str());
    if (!handle.empty()) {
        m_trace.prn("LocationService::queryConferenceServerHandle(): --- FOUND ---: ConferenceServer Handle Found: %s",
                    handle.c_str());
    } else {
        m_trace.prn("LocationService::queryConferenceServerHandle(): === WANRING ===: ConferenceServer Handle Not "
                    "Found! Use Default: confsvr");
        handle = DEFAULT_HANDLE;
    }
    return lowerCase(handle.c_str());
}

std::string LocationService::composeConferenceServerUri(const std::string& primaryDomain, bool isTlsTransport) {
    return osk::withCancelSafeLock(m_mutexConferenceServerUri,
                                   [&] { return composeConferenceServerUriLocked(primaryDomain, isTlsTransport); });
}

std::string LocationService::composeConferenceServerUriLocked(const std::string& primaryDomain, bool isTlsTransport) {
    m_trace.prn("LocationService::composeConferenceServerUri(2): >>> ENTER: isTlsTransport=%d", isTlsTransport);
    std::string domain = lowerCase(primaryDomain.c_str());
    std::string uri;
    // Without a connection the default handle is used but not kept, and the
    // URI is composed again once the instance is connected.
    bool complete = m_exec != nullptr;
    if (domain.empty()) {
        m_trace.prn("LocationService::composeConferenceServerUri(2): *** ERROR ***: PrimaryDomain name Not Found!");
    } else {
        std::string handle = m_conferenceServerHandle;
        if (handle.empty()) {
            handle = queryConferenceServerHandle();
            if (complete)
                m_conferenceServerHandle = handle;
        }
        uri = std::string(isTlsTransport ? "sips:" : "sip:") + handle + "@" + domain;
    }
    m_conferenceServerUri = uri;
    m_needToReloadConferenceServerUri = !complete;
    m_trace.prn("LocationService::composeConferenceServerUri(2): <<< LEAVE: m_conferenceServerUri=%s", uri.c_str());
    return uri;
}

std::string LocationService::conferenceServerUri() {
    return osk::withCancelSafeLock(m_mutexConferenceServerUri, [&] {
        if (m_needToReloadConferenceServerUri)
            composeConferenceServerUriLocked(getPrimaryDomain(), false);
        return m_conferenceServerUri;
    });
}

DatabaseResult LocationService::resolveConfSvrUri(const char* authUser, bool& flag, ContactRecord& contact) {
    flag = true;
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay()) {
        m_trace.prn(result.getErrorMessage());
        return result;
    }
    std::string extension;
    result = m_exec->useOneAvailConfExt(authUser, extension);
    checkUsage();
    if (!result.okay()) {
        alarmOnFatal("resolveConfSvrUri", result);
        std::string text = result.getErrorMessage() + " authUser: " + (authUser != nullptr ? authUser : "");
        m_trace.prn(text);
        eventServerTrace().prn(text);
        return result;
    }
    std::string domain = getPrimaryDomain();
    if (extension.empty() || domain.empty()) {
        result.setNotFound();
        m_trace.prn("useOneAvailConfExt succeded but extension:%s, domain:%s", extension.c_str(), domain.c_str());
        eventServerTrace().prn("useOneAvailConfExt succeded but extension:%s, domain:%s", extension.c_str(),
                               domain.c_str());
        return result;
    }
    m_trace.prn("resolveConfSvrUri(2): --- SUCCESS ---: extension=%s, domain=%s", extension.c_str(), domain.c_str());
    contact.setUser(extension);
    contact.setDomain(domain);
    contact.setAddress("sip:" + extension + "@" + domain);
    eventServerTrace().prn("C-T-C conference %s created", extension.c_str());
    return result;
}

DatabaseResult LocationService::checkUsage() {
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay())
        return result;
    std::map<std::string, unsigned int> count{
        {STR_CONF_TOTAL, 0}, {STR_CONF_IN_USE, 0}, {STR_CONF_IDLE, 0}, {STR_CONF_INVALID, 0}};
    result = m_exec->confExtCount(count);
    if (!result.okay()) {
        alarmOnFatal("checkUsage", result);
        m_trace.prn(result.getErrorMessage());
        eventServerTrace().prn(result.getErrorMessage());
        return result;
    }
    int total = static_cast<int>(count[STR_CONF_TOTAL]);
    int inUse = static_cast<int>(count[STR_CONF_IN_USE]);
    int invalid = static_cast<int>(count[STR_CONF_INVALID]);
    // Invalid bridges count as used: they cannot be handed out either.
    float active = static_cast<float>(inUse + invalid);
    m_trace.prn("C-T-C checkUsage() conf_ext_provision total=%d; run_time idle=%d,in_use=%d,invalid=%d,active=%.2f",
                total, static_cast<int>(count[STR_CONF_IDLE]), inUse, invalid, active);
    // Equality, not "at least": each event marks the crossing of its level.
    if (static_cast<float>(total) == active)
        m_alarmMgr.EvtSrvConfCapExceeded("100 percent usage", 0);
    else if (static_cast<float>(std::ceil(total * 0.8)) == active)
        m_alarmMgr.EvtSrvConfCapacity("80 percent usage");
    return result;
}

} // namespace velm
