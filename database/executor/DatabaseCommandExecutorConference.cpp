// Reserving a free conference extension and counting the extensions by state.
#include "DatabaseCommandExecutor.h"

#include "EscapedString.h"
#include "QueryResultPtr.h"
#include "SafeLock.h"

#include <cstdlib>

namespace velm {

const std::string DatabaseCommandExecutor::STR_CONF_IN_USE = "IN USE";
const std::string DatabaseCommandExecutor::STR_CONF_IDLE = "IDLE";
const std::string DatabaseCommandExecutor::STR_CONF_INVALID = "INVALID";
const std::string DatabaseCommandExecutor::STR_CONF_TOTAL = "TOTAL";

osk::Mutex DatabaseCommandExecutor::_mutex_conf_state;

DatabaseResult DatabaseCommandExecutor::useOneAvailConfExt(const char* pAuthUser, std::string& extension) {
    if (pAuthUser == nullptr) {
        error("null auth user");
        return failure(DatabaseResult::QUERY_ERROR);
    }
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    // Opens the transaction and looks for a free bridge behind the user's own
    // trunk (acp).
    std::string ownTrunk = std::string("BEGIN; SELECT free_conference.extension,conf_status") +
                           "   FROM  subscriber,extension,free_conference" +
                           "    WHERE subscriber.auth_user_id = '" + EscapedString(pAuthUser).value() + "'     AND extension.sid = subscriber.sid" +
                           "    AND free_conference.acp_id = extension.acp_id LIMIT 1;";

    // Within the process the lock keeps a second reservation from reading the
    // same free extension before this one is written; between processes only
    // the transaction guards.
    return osk::withCancelSafeLock(_mutex_conf_state, [&]() {
        DatabaseResult outcome;
        std::string status;
        QueryResultPtr result;
        auto reserve = [&](const std::string& sql, const char* trace) {
            execute(sql, result);
            if (result.rows() == 0)
                return false;
            extension = result.getValue(0, 0);
            status = result.getValue(0, 1);
            m_trace.prn(trace, extension.c_str());
            return true;
        };
        if (!reserve(ownTrunk, "useOneAvailConfExt(): Successfully reserved an IDLE extension= %s") &&
            !reserve("SELECT extension,conf_status FROM free_conference LIMIT 1;",
                     "useOneAvailConfExt(): Successfully reserved from query2 an IDLE extension= %s")) {
            outcome.setNotFound();
            outcome.setErrorMessage("*** ERROR ***: Failed to find and reserve an IDLE Conference Bridge Extension!");
            extension.clear();
            m_trace.prn("useOneAvailConfExt(): *** Failed to reserve an IDLE extension! ***");
        }

        std::string closing;
        if (!outcome.okay())
            closing = "END;";
        else if (status.empty())
            closing = "INSERT INTO conf_state VALUES(" + extension + ", 'IN USE'); END;";
        else
            closing = "UPDATE conf_state set conf_status = 'IN USE' WHERE conf_state.extension = " + extension +
                      "; END;";
        DatabaseResult closed = execute(closing, result);
        // Not finding an extension is the answer unless the transaction
        // could not even be closed.
        if (outcome.okay() || !closed.okay())
            outcome = closed;
        return outcome;
    });
}

DatabaseResult DatabaseCommandExecutor::confExtCount(std::map<std::string, unsigned int>& count) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    const std::pair<const char*, const std::string*> queries[] = {
        {"select count(*) from extension where ext_type='c' ;", &STR_CONF_TOTAL},
        {"select count(*) from conf_state where conf_status='IN USE' ;", &STR_CONF_IN_USE},
        {"select count(*) from conf_state where conf_status='INVALID' ;", &STR_CONF_INVALID},
    };
    DatabaseResult outcome;
    for (const auto& query : queries) {
        QueryResultPtr result;
        outcome = execute(query.first, result);
        if (outcome.okay() && !result.failed() && result.rows() > 0)
            count[*query.second] = static_cast<unsigned int>(std::atoi(result.getValue(0, 0)));
    }
    return outcome;
}

} // namespace velm
