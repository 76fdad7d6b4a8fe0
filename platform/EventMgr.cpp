// Raising alarms through the installed sink, else to syslog, and the servers' alarm texts.
#include "EventMgr.h"

#include <syslog.h>

#include <atomic>

namespace {

class SyslogSink : public EventSink {
public:
    void raise(const std::string& id, const std::string& text) override {
        syslog(LOG_USER | LOG_WARNING, "%s: %s", id.c_str(), text.c_str());
    }
};

std::atomic<EventSink*> installedSink{nullptr};

EventSink& sink() {
    static SyslogSink syslogSink;
    EventSink* installed = installedSink.load(std::memory_order_acquire);
    return installed != nullptr ? *installed : syslogSink;
}

} // namespace

EventSink::~EventSink() = default;

void EventMgr::logIt(const std::string& id, const std::string& text) {
    sink().raise(id, text);
}

void EventMgr::setSink(EventSink* sink) {
    installedSink.store(sink, std::memory_order_release);
}

void EventMgrForSipServer::ProxyDBAccess(const std::string& message, int state) const {
    logIt(state == 1 ? "zuVELMProxyDBAccessOK" : "zuVELMProxyDBAccessFailed", message);
}

void EventMgrForEventServer::EvtSrvConfCapacity(const std::string& text) const {
    logIt("zuVELMConfCapacity", "80 percent Conf Ext Used: " + text);
}

void EventMgrForEventServer::EvtSrvConfCapExceeded(const std::string& text, int state) const {
    logIt(state == 1 ? "zuVELMConfCapOK" : "zuVELMConfCapExceeded", "Max Conf Ext Used: " + text);
}
