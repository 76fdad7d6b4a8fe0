#ifndef VELM_DATABASECOMMANDEXECUTOR_H
#define VELM_DATABASECOMMANDEXECUTOR_H

#include "DatabaseResult.h"
#include "Mutex.h"
#include "Trace.h"

#include <map>
#include <string>
#include <vector>

namespace velm {

class DatabaseConnection;
class QueryResultPtr;
class HostInfo;
class ProxyConfig;
class TrustedHostRecord;
class DomainAccess;
class PrefixMapRecord;
class AddressMapRecord;
class remoteFilter;
class SipEventAggregator;

// The SQL vocabulary of the schema: one member per statement family, run on
// the executor's own connection. An executor belongs to one thread at a time.
// Commands never throw; the text of the last failure is kept in m_errorMsg.
class DatabaseCommandExecutor {
public:
    DatabaseCommandExecutor();
    ~DatabaseCommandExecutor();
    DatabaseCommandExecutor(const DatabaseCommandExecutor&) = delete;
    DatabaseCommandExecutor& operator=(const DatabaseCommandExecutor&) = delete;

    // Connect once: connecting again abandons the old connection object
    // without closing it.
    bool connect(const char* database, const char* user, const char* password);
    bool checkConnect();
    DatabaseResult execute(const std::string& sql);
    DatabaseResult execute(const std::string& sql, QueryResultPtr& result);
    // Runs an INSERT, UPDATE or DELETE; only for a connected executor, as it
    // skips checkConnect().
    bool executeUpdate(const std::string& sql, int& count);
    const std::string& getErrorMessage() { return m_errorMsg; }

    // Configuration and routing data. Vectors are appended to, except the
    // proxy configuration's, which is replaced.
    DatabaseResult getHostInfo(HostInfo& info);
    DatabaseResult getQoSField(int* qos);
    DatabaseResult getProxyConfig(const char* proxyName, std::vector<ProxyConfig>& items);
    // Skips checkConnect(); a statement that fails is only traced and leaves
    // the status okay with an empty value.
    DatabaseResult getSystemParameterValue(const std::string& application, const std::string& scope,
                                           const std::string& name, std::string& value);
    DatabaseResult getSystemUserAndPasswordValues(std::string& user, std::string& password, bool edge);
    DatabaseResult getTrustedHosts(std::vector<TrustedHostRecord>& hosts);
    DatabaseResult getDomainAccessList(std::vector<DomainAccess>& rules);
    DatabaseResult getEmergencyCallIds(std::vector<std::string>& ids);
    DatabaseResult getPrefixMaps(std::vector<PrefixMapRecord>& maps);
    DatabaseResult getAddressMaps(std::vector<AddressMapRecord>& maps);
    // The change counter of prefix_map; 0 when none is kept.
    DatabaseResult checkPrefixMap(int* updateCounter);
    // 1: filters and their trace destination read; 0: no filters or no
    // destination configured; -1: database failure; -2: filters but an empty
    // destination.
    int getRemoteFilters(std::vector<remoteFilter>* filters, std::string* destination);
    DatabaseResult delOldEventNotify();
    // PostgreSQL 15 rejects the statement: the id runs into the "and" that
    // follows it ("5and"), which it no longer reads as a number and a keyword.
    DatabaseResult getSipEventAggregator(const std::string& id, SipEventAggregator& aggregator);
    DatabaseResult getSipEventAggregators(std::vector<SipEventAggregator>& aggregators);

    // Conference bridge extension pool: conf_state.conf_status values, which
    // are also the keys of confExtCount's map.
    static const std::string STR_CONF_IN_USE;
    static const std::string STR_CONF_IDLE;
    static const std::string STR_CONF_INVALID;
    static const std::string STR_CONF_TOTAL;
    // Reserves an idle bridge extension, preferably one behind the user's own
    // trunk; one reservation at a time within the process.
    DatabaseResult useOneAvailConfExt(const char* pAuthUser, std::string& extension);
    DatabaseResult confExtCount(std::map<std::string, unsigned int>& count);

    // Visiting users (replica_extra) and this node's id.
    DatabaseResult getHomeNode_id(int& nodeId);
    DatabaseResult hasVisitingUserSubscriberId(int sid, bool& known);
    DatabaseResult addVisitingUser(int sid);
    DatabaseResult deleteVisitingUser(int sid);
    // Moves the visitor's expiry to `expires` seconds from now, never earlier.
    DatabaseResult updateTimer(const char* handle, const char* domain, int expires);

private:
    bool okay();
    bool error(const char* text);
    bool error(const QueryResultPtr& result);
    bool errorConnection();

    // Runs `sql` without checkConnect(); false, with the failure text in
    // m_errorMsg, when the statement did not run or the server rejected it.
    bool run(const std::string& sql, QueryResultPtr& result);
    // A result of `status` carrying m_errorMsg.
    DatabaseResult failure(DatabaseResult::status status) const;

    // Statement steps of the configuration and visiting-user commands.
    // connected(): checkConnect(), a connection error in `outcome` when it
    // fails. fetch(): runs `sql` on the connection; a failure sets `outcome`
    // (connection error when it did not run, query error when the server
    // rejected it), traced with the given texts when they are not null.
    bool connected(DatabaseResult& outcome);
    bool fetch(const std::string& sql, QueryResultPtr& result, DatabaseResult& outcome,
               const char* notExecutedTrace = nullptr, const char* rejectedTrace = nullptr);
    // A column value, null for SQL NULL (which libpq hands over as an empty
    // text) and out of range.
    static const char* column(const QueryResultPtr& result, int row, int col);
    static void readAggregator(const QueryResultPtr& result, int row, SipEventAggregator& aggregator);

    // Held across a whole conference extension reservation.
    static osk::Mutex _mutex_conf_state;

    DatabaseConnection* m_conn;
    std::string m_errorMsg;
    Trace m_trace;
};

} // namespace velm

#endif
