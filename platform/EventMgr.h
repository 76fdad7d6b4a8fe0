// EventSink and EventMgr: the alarms the servers raise, and where they go.
#ifndef VELM_EVENTMGR_H
#define VELM_EVENTMGR_H

#include <string>

// Receives the alarms (events) the servers raise: an identifier such as
// "zuVELMProxyDBAccessFailed" and its text. A host forwards them to its
// management system by installing its own sink with EventMgr::setSink.
class EventSink {
public:
    virtual ~EventSink();
    virtual void raise(const std::string& id, const std::string& text) = 0;
};

// The alarm interface of a server. Without an installed sink, alarms go to
// syslog (facility LOG_USER, priority LOG_WARNING) as "<id>: <text>".
class EventMgr {
public:
    static void logIt(const std::string& id, const std::string& text);

    // Installs `sink` for the whole process; null restores the syslog sink.
    // The sink must outlive its installation.
    static void setSink(EventSink* sink);
};

// The alarms of the SIP proxy and registrar.
class EventMgrForSipServer : public EventMgr {
public:
    // "zuVELMProxyDBAccessOK" when `state` is 1, else "zuVELMProxyDBAccessFailed",
    // with `message` as the text.
    void ProxyDBAccess(const std::string& message, int state) const;
};

// The alarms of the event server about the conference extension pool.
class EventMgrForEventServer : public EventMgr {
public:
    // "zuVELMConfCapacity" with "80 percent Conf Ext Used: " + text.
    void EvtSrvConfCapacity(const std::string& text) const;
    // "zuVELMConfCapOK" when `state` is 1, else "zuVELMConfCapExceeded", with
    // "Max Conf Ext Used: " + text.
    void EvtSrvConfCapExceeded(const std::string& text, int state) const;
};

#endif
