// Event notifications and SIP event aggregators through the facade.
#include "LocationService.h"

#include "DatabaseCommandExecutor.h"
#include "SipEventAggregator.h"

namespace velm {

DatabaseResult LocationService::deleteOldEventNotifyRows() {
    m_trace.prn("Deleting rows in event_notify that are > 60 seconds old");
    DatabaseResult result = guarded("deleteOldEventNotifyRows", [&](DatabaseCommandExecutor& exec) {
        DatabaseResult deleted = exec.delOldEventNotify();
        if (!deleted.okay() && !deleted.fatalError())
            m_trace.prn("Deleting old event_notify rows failed");
        return deleted;
    });
    traceIfUnconnected();
    return result;
}

DatabaseResult LocationService::getSipEventAggregator(const std::string& id, SipEventAggregator& aggregator) {
    if (id.empty())
        return DatabaseResult();
    m_trace.prn("getSipEventAggregator for %s", id.c_str());
    DatabaseResult result = guarded("getSipEventAggregator", [&](DatabaseCommandExecutor& exec) {
        DatabaseResult read = exec.getSipEventAggregator(id, aggregator);
        if (!read.okay() && !read.fatalError())
            m_trace.prn("database failure - getSipEventAggregator");
        return read;
    });
    traceIfUnconnected();
    return result;
}

DatabaseResult LocationService::getSipEventAggregators(std::vector<SipEventAggregator>& aggregators) {
    m_trace.prn("getSipEventAggregators");
    DatabaseResult result = guarded("getSipEventAggregators", [&](DatabaseCommandExecutor& exec) {
        DatabaseResult read = exec.getSipEventAggregators(aggregators);
        if (!read.okay() && !read.fatalError())
            m_trace.prn("database failure - getSipEventAggregators");
        return read;
    });
    traceIfUnconnected();
    return result;
}

void LocationService::traceIfUnconnected() {
    if (m_exec == nullptr)
        m_trace.prn("connection error");
}

} // namespace velm
