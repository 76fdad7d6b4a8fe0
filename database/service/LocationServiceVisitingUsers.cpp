// Visitors: subscribers homed on another node who are served here for a while.
#include "LocationService.h"

#include "DatabaseCommandExecutor.h"
#include "LowerCase.h"
#include "QueryResultPtr.h"

#include <sys/time.h>

#include <string>

namespace velm {

DatabaseResult LocationService::isSubscriberHome(int sid, bool& home) {
    home = false;
    if (sid == 0) {
        DatabaseResult result;
        result.setBadParameter();
        result.setErrorMessage("isSubscriberHome: sid 0");
        return result;
    }
    return guarded("isSubscriberHome", [&](DatabaseCommandExecutor& exec) {
        std::string sql = std::string("SELECT replica_extra.id FROM replica_extra WHERE ") + " replica_extra.id='" +
                          std::to_string(sid) + "';";
        m_trace.prn("m_exec(%s)", sql.c_str());
        QueryResultPtr rows;
        DatabaseResult result = exec.execute(sql, rows);
        if (result.okay()) {
            if (rows.rows() > 0)
                m_trace.prn("subscriber %d is visiting", sid);
            else
                home = true;
        }
        return result;
    });
}

DatabaseResult LocationService::addVisitingUser(int sid) {
    return guarded("addVisitingUser", [&](DatabaseCommandExecutor& exec) { return exec.addVisitingUser(sid); });
}

DatabaseResult LocationService::deleteVisitingUser(int sid) {
    return guarded("deleteVisitingUser", [&](DatabaseCommandExecutor& exec) { return exec.deleteVisitingUser(sid); });
}

DatabaseResult LocationService::getHomeNode_id(int& nodeId) {
    return guarded("getHomeNode_id", [&](DatabaseCommandExecutor& exec) { return exec.getHomeNode_id(nodeId); });
}

DatabaseResult LocationService::updateTimer(const char* handle, const char* domain, int expires) {
    m_trace.prn("updateTimer: looking up subscriber %s@%s for expires=%d", handle != nullptr ? handle : "(null)",
                domain != nullptr ? domain : "(null)", expires);
    return guarded("updateTimer", [&](DatabaseCommandExecutor& exec) {
        if (handle == nullptr || domain == nullptr)
            return exec.updateTimer(handle, domain, expires);
        return exec.updateTimer(lowerCase(handle).c_str(), lowerCase(domain).c_str(), expires);
    });
}

DatabaseResult LocationService::removeExpiredVisitingUsers() {
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay())
        return result;
    int before = 0;
    result = countVisitors(1, before);
    if (!result.okay())
        return result;
    if (before == 0) {
        m_trace.prn("no rows to remove from visiting users");
        return result;
    }
    struct timeval now;
    gettimeofday(&now, nullptr);
    char seconds[32];
    snprintf(seconds, sizeof seconds, "%ld", static_cast<long>(now.tv_sec));
    m_trace.prn("row count before=%d & time in sec=%d", before, static_cast<int>(now.tv_sec));
    std::string sql = "DELETE FROM replica_extra WHERE expires < ";
    sql += seconds;
    m_trace.prn("time as string=%s", seconds);
    sql += ";";
    m_trace.prn("m_exec(%s)", sql.c_str());
    result = m_exec->execute(sql);
    if (!result.okay()) {
        alarmStep("removeExpiredVisitingUsers", 2, result);
        return result;
    }
    int after = 0;
    result = countVisitors(3, after);
    if (result.okay())
        // after - before: zero or negative when rows went, as operators know it.
        m_trace.prn("removed %d  expired visiting users", after - before);
    return result;
}

DatabaseResult LocationService::countVisitors(int step, int& count) {
    QueryResultPtr rows;
    DatabaseResult result = m_exec->execute("SELECT * FROM replica_extra", rows);
    if (result.okay())
        count = rows.rows();
    else
        alarmStep("removeExpiredVisitingUsers", step, result);
    return result;
}

} // namespace velm
