// The process-wide list of trusted hosts: reading it from the database and answering whether a host is trusted.
#include "LocationService.h"

#include "DatabaseCommandExecutor.h"
#include "SafeLock.h"
#include "TrustedHostRecord.h"

namespace velm {

namespace {

// The first host named `name`, or null.
const TrustedHostRecord* named(const std::vector<TrustedHostRecord>& hosts, const char* name) {
    for (const TrustedHostRecord& host : hosts)
        if (host.getName() == name)
            return &host;
    return nullptr;
}

} // namespace

void LocationService::setTrustedHosts(const std::vector<TrustedHostRecord>& hosts) {
    osk::withCancelSafeLock(m_mutex, [&] {
        m_trustedHosts = hosts;
        if (!m_trustedHostsInitDone) {
            m_strace.prn("setTrustedHosts: trusted host init done");
            m_trustedHostsInitDone = true;
            pthread_cond_broadcast(&m_cond);
        }
    });
}

void LocationService::getTrustedHosts(std::vector<TrustedHostRecord>& hosts) {
    // The wait is a cancellation point: the lock's clean-up handler releases
    // m_mutex, which the wait takes back before the thread unwinds.
    osk::withCancelSafeLock(m_mutex, [&] {
        while (!m_trustedHostsInitDone) {
            m_strace.prn("getTrustedHosts: trusted hosts not set, blocking..");
            pthread_cond_wait(&m_cond, m_mutex.native());
        }
        hosts = m_trustedHosts;
    });
}

DatabaseResult LocationService::queryTrustedHosts(std::vector<TrustedHostRecord>& hosts) {
    return guarded("queryTrustedHosts", [&](DatabaseCommandExecutor& exec) {
        m_strace.prn("QueryTrustedHost called\n");
        return exec.getTrustedHosts(hosts);
    });
}

bool LocationService::getTrustedHost(const char* host, const char* hostName, TrustedHostRecord& record) {
    if (host == nullptr || hostName == nullptr)
        return false;
    std::vector<TrustedHostRecord> hosts;
    getTrustedHosts(hosts);
    const TrustedHostRecord* found = *hostName != '\0' ? named(hosts, hostName) : nullptr;
    if (found == nullptr)
        found = named(hosts, host);
    if (found == nullptr)
        return false;
    record = *found;
    return true;
}

bool LocationService::isTrustedHost(const char* host, const char* hostName) {
    TrustedHostRecord scratch;
    return getTrustedHost(host, hostName, scratch);
}

} // namespace velm
