// This home's node id and the visitors kept in replica_extra: looking them up, adding, removing and renewing them.
#include "DatabaseCommandExecutor.h"

#include "EscapedString.h"
#include "QueryResultPtr.h"
#include "ValueString.h"

#include <cstdlib>
#include <ctime>

namespace velm {

namespace {

// How long a visitor is kept before it must register again.
const long VISITOR_LIFETIME = 28800;

} // namespace

DatabaseResult DatabaseCommandExecutor::getHomeNode_id(int& nodeId) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    m_trace.prn("getHomeNode_id: looking up node_id for this home");
    QueryResultPtr result;
    if (!fetchRows("SELECT value "
                   "FROM local_parameters "
                   "WHERE local_parameters.application='boot' AND local_parameters.scope='system' AND "
                   "local_parameters.name='replica_id' ",
                   result, outcome))
        return outcome;
    int rows = result.rows();
    m_trace.prn("getHomeNode_id: returned %d rows", rows);
    m_trace.prn("getNextContactId: homeNode_id=%s", result.getValue(0, 0));
    const char* value = column(result, 0, 0);
    if (value == nullptr) {
        error("returned NULL homeNode_id");
        return failure(DatabaseResult::QUERY_ERROR);
    }
    nodeId = std::atoi(value);
    if (nodeId == 0) {
        error("returned zero home node_id");
        return failure(DatabaseResult::QUERY_ERROR);
    }
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::hasVisitingUserSubscriberId(int sid, bool& known) {
    known = false;
    if (sid == 0) {
        error("VUsid = 0");
        return failure(DatabaseResult::BADPARAM);
    }
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    m_trace.prn("hasVisitingUserSubscriber: looking up whether visiting user %d is known", sid);
    QueryResultPtr result;
    if (!fetch("SELECT id "
               "FROM replica_extra "
               "WHERE id='" +
                   std::to_string(sid) + "';",
               result, outcome)) {
        m_trace.prn("%s", m_errorMsg.c_str());
        return outcome;
    }
    int rows = result.rows();
    m_trace.prn("hasVisitingUSerSubscriberId: returned %d rows", rows);
    if (rows == 0) {
        m_trace.prn("hasVisitingUserSubscriberId: sid %d not in replica_extra table", sid);
        error("not present in replica_extra table");
        return failure(DatabaseResult::NOTFOUND);
    }
    m_trace.prn("hasVisitingUserSubscriberId: visitingUserSubscriberId=%s", result.getValue(0, 0));
    const char* value = column(result, 0, 0);
    if (value == nullptr) {
        error("returned NULL homeNode_id");
        return failure(DatabaseResult::QUERY_ERROR);
    }
    int recorded = std::atoi(value);
    m_trace.prn("hasVisitingUserSubscriberId: visitingUserSubscriberId=%d", recorded);
    if (recorded == 0) {
        error("returned zero visitingUserSubscriberId_");
        return failure(DatabaseResult::QUERY_ERROR);
    }
    known = true;
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::addVisitingUser(int sid) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    bool known;
    // Already recorded (okay) or a failure: nothing to write.
    outcome = hasVisitingUserSubscriberId(sid, known);
    if (!outcome.notFound())
        return outcome;
    ValueString row;
    row.add(columns::visitingUserInsert, columns::VisitingUser{sid, std::time(nullptr) + VISITOR_LIFETIME});
    std::string sql = std::string("INSERT INTO replica_extra") + row.names() + " VALUES" + row.values() + ";";
    m_trace.prn("DB cmd: %s", sql.c_str());
    QueryResultPtr result;
    if (!fetch(sql, result, outcome))
        return outcome;
    m_trace.prn("addVisitingUser: added=%d", result.updateCount());
    return DatabaseResult();
}

DatabaseResult DatabaseCommandExecutor::deleteVisitingUser(int sid) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    bool known;
    outcome = hasVisitingUserSubscriberId(sid, known);
    if (!outcome.okay())
        return outcome;
    if (!known) {
        m_trace.prn("deleteVisitingUser: sid %d not deleted - not in the table", sid);
        return outcome;
    }
    std::string sql = "DELETE FROM replica_extra WHERE id='" + std::to_string(sid) + "';";
    m_trace.prn("DB cmd: %s", sql.c_str());
    QueryResultPtr result;
    if (!fetch(sql, result, outcome))
        return outcome;
    m_trace.prn("deleteVisitingUser: deleted=%d", result.updateCount());
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::updateTimer(const char* handle, const char* domain, int expires) {
    DatabaseResult outcome;
    if (expires <= 0) {
        m_trace.prn("updateTimer: no update for %s@%s", handle != nullptr ? handle : "",
                    domain != nullptr ? domain : "");
        return outcome;
    }
    if (!checkConnect()) {
        error("updateTimer ConnectionError");
        return failure(DatabaseResult::CONNECTION_ERROR);
    }
    if (handle == nullptr || domain == nullptr) {
        error("missing parameters");
        return failure(DatabaseResult::BADPARAM);
    }
    std::string sql = std::string("SELECT contact_set.sid, replica_extra.expires ") +
                      "FROM public_address, contact_set, replica_extra WHERE " +
                      "contact_set.csid = public_address.csid " + "AND contact_set.sid = replica_extra.id " +
                      " AND public_address.handle = '" + EscapedString(handle).value() +
                      "' AND public_address.sip_domain = '" + EscapedString(domain).value() + "';";
    m_trace.prn("DB cmd: %s", sql.c_str());
    QueryResultPtr result;
    if (!fetch(sql, result, outcome))
        return outcome;
    int rows = result.rows();
    m_trace.prn("updateTimer: returned %d rows", rows);
    if (rows == 0) {
        m_trace.prn("updateTimer: no subscrinber id for handle=%s & domain=%s", handle, domain);
        error("sid not found in replica_extra table ");
        return failure(DatabaseResult::NOTFOUND);
    }
    std::string sid = result.getValue(0, 0);
    long currentExpires = std::atol(result.getValue(0, 1));
    m_trace.prn("UPDATETIMER currentExpires=%ld", currentExpires);

    bool known;
    outcome = hasVisitingUserSubscriberId(std::atoi(sid.c_str()), known);
    if (!outcome.okay())
        return outcome;
    // An expiry is only ever moved later.
    long newExpires = std::time(nullptr) + expires;
    if (newExpires <= currentExpires) {
        m_trace.prn("updateTimer: no update for %s@%s", handle, domain);
        return outcome;
    }
    sql = "UPDATE replica_extra SET expires='" + std::to_string(newExpires) + "' WHERE id='" + sid + "';";
    m_trace.prn("DB cmd: %s", sql.c_str());
    if (!fetch(sql, result, outcome))
        return outcome;
    m_trace.prn("updateTimer: sid %s expiry=%ld", sid.c_str(), newExpires);
    return outcome;
}

} // namespace velm
