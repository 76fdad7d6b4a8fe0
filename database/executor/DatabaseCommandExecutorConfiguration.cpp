// This node's configuration rows: host information, QoS, proxy items, parameters, hosts, domain rules, filters.
#include "DatabaseCommandExecutor.h"

#include "ColumnText.h"
#include "DatabaseConnection.h"
#include "DomainAccess.h"
#include "EscapedString.h"
#include "HostInfo.h"
#include "ProxyConfig.h"
#include "QueryResultPtr.h"
#include "RemoteFilter.h"
#include "TrustedHostRecord.h"

#include <cstdlib>
#include <map>

namespace velm {

namespace {

const char* const EXECUTE_FAILED = "execute query failed";
const char* const QUERY_ERROR = "query error";

// The three leading pieces of the credential statements; the parameter name
// completes each.
const char* const CREDENTIAL_SELECT =
    "SELECT system_parameters.value "
    "FROM system_parameters "
    "WHERE system_parameters.application = 'velm' AND ";

const char* const ZERO_ROWS_TRACE = "DatabaseCommandExecutor::getSystemParameterValue(): Query returned 0 rows!, cmd=%s";
const char* const CREDENTIAL_FAILED_TRACE =
    "DatabaseCommandExecutor::getSystemUserAndPasswordValues: ERROR: db execute failed!, cmd=%s";

std::string text(const char* value) {
    return value != nullptr ? value : "";
}

} // namespace

DatabaseResult DatabaseCommandExecutor::getHostInfo(HostInfo& info) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    m_trace.prn("looking up host info from system_parameters table");
    QueryResultPtr result;
    if (!fetchRows("SELECT name,value FROM system_parameters WHERE application='velm' AND scope='system'", result,
                   outcome))
        return outcome;
    int rows = result.rows();
    m_trace.prn("getHostInfo returned %d rows", rows);
    std::map<std::string, std::string> parameters;
    for (int row = 0; row < rows; ++row) {
        const char* name = column(result, row, 0);
        const char* value = column(result, row, 1);
        if (name == nullptr || value == nullptr)
            continue;
        m_trace.prn("retrieved name=%s, value=%s", name, value);
        parameters[name] = value;
    }
    // A parameter that is not configured leaves its field as it was.
    auto apply = [&parameters](const char* name, auto&& set) {
        auto found = parameters.find(name);
        if (found != parameters.end())
            set(found->second);
    };
    apply("node_type", [&info](const std::string& v) { info.setNodeType(v); });
    apply("parent", [&info](const std::string& v) { info.setParent(v); });
    apply("parent_contact", [&info](const std::string& v) { info.setParentContact(v); });
    apply("top_url", [&info](const std::string& v) { info.setTopUrl(v); });
    apply("server_name", [&info](const std::string& v) { info.setServerName(v); });
    apply("outbound_allowed_internal", [&info](const std::string& v) { info.setOutboundAllowInternal(isTrue(v[0])); });
    apply("outbound_allowed_external", [&info](const std::string& v) { info.setOutboundAllowExternal(isTrue(v[0])); });
    apply("outbound_proxy", [&info](const std::string& v) { info.setOutboundProxy(v); });
    apply("outbound_direct", [&info](const std::string& v) { info.setOutboundDirect(v); });
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::getQoSField(int* qos) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    m_trace.prn("looking up QoS from system_parameter table");
    QueryResultPtr result;
    if (!fetchRows("SELECT value FROM system_parameters WHERE application='velm' AND scope='system' AND name='qos'",
                   result, outcome))
        return outcome;
    int rows = result.rows();
    m_trace.prn("DB returned with %d rows", rows);
    *qos = std::atoi(text(result.getValue(0, 0)).c_str());
    m_trace.prn("getQoSField returned QoS=%d", *qos);
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::getProxyConfig(const char* proxyName, std::vector<ProxyConfig>& items) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    if (proxyName == nullptr) {
        error("null proxy name");
        return failure(DatabaseResult::QUERY_ERROR);
    }
    // The proxy's name is the application its items are kept under.
    std::string sql = std::string("SELECT scope, name, value  FROM system_parameters   WHERE application = '") +
                      EscapedString(proxyName).value() + "'";
    m_trace.prn("looking up proxy configuration for %s", proxyName);
    QueryResultPtr result;
    if (!fetch(sql, result, outcome))
        return outcome;
    items.clear();
    int rows = result.rows();
    if (rows == 0) {
        m_trace.prn("no configuration found for %s", proxyName);
        return outcome;
    }
    m_trace.prn("found %d proxy configuration items", rows);
    for (int row = 0; row < rows; ++row) {
        ProxyConfig item;
        if (const char* scope = column(result, row, 0))
            item.setScope(scope);
        if (const char* name = column(result, row, 1))
            item.setName(name);
        if (const char* value = column(result, row, 2))
            item.setValue(value);
        items.push_back(item);
    }
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::getSystemParameterValue(const std::string& application,
                                                                const std::string& scope, const std::string& name,
                                                                std::string& value) {
    DatabaseResult outcome;
    value.clear();
    if (application.empty() || scope.empty() || name.empty()) {
        const char* message =
            "DatabaseCommandExecutor::getSystemParameterValue(): *** ERROR ***: parameters can't be empty string!";
        m_trace.prn("%s", message);
        error(message);
        return failure(DatabaseResult::QUERY_ERROR);
    }
    std::string sql = std::string("SELECT system_parameters.value "
                                  "FROM system_parameters "
                                  "WHERE (((system_parameters.application = '") +
                      EscapedString(application).value() + "') AND (system_parameters.scope = '" +
                      EscapedString(scope).value() + "')) AND (system_parameters.name = '" + EscapedString(name).value() +
                      "'));";
    // No connection check, and a statement that did not run is only traced:
    // callers test the value for emptiness. A rejected statement reads as no
    // rows.
    QueryResultPtr result;
    if (m_conn == nullptr || !m_conn->execute(sql, result)) {
        m_trace.prn("DatabaseCommandExecutor::getSystemParameterValue(): *** ERROR ***: db execute failed!, cmd=%s",
                    sql.c_str());
        return outcome;
    }
    if (result.rows() == 0) {
        m_trace.prn(ZERO_ROWS_TRACE, sql.c_str());
        outcome.setNotFound();
        return outcome;
    }
    value = text(result.getValue(0, 0));
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::getSystemUserAndPasswordValues(std::string& user, std::string& password,
                                                                       bool edge) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    std::string sql = std::string(CREDENTIAL_SELECT) +
                      (edge ? "system_parameters.name = 'EdgeUsername';" : "system_parameters.name = 'HomeUsername';");
    QueryResultPtr result;
    if (!m_conn->execute(sql, result)) {
        errorConnection();
        m_trace.prn(CREDENTIAL_FAILED_TRACE, sql.c_str());
        return failure(DatabaseResult::QUERY_ERROR);
    }
    if (result.rows() == 0) {
        m_trace.prn(ZERO_ROWS_TRACE, sql.c_str());
        outcome.setNotFound();
        return outcome;
    }
    user = text(result.getValue(0, 0));

    // The password statement is sent behind the user statement in one text;
    // the server answers with the result of the last one.
    sql += std::string(CREDENTIAL_SELECT) +
           (edge ? "system_parameters.name = 'EdgePassword';" : "system_parameters.name = 'HomePassword';");
    if (!m_conn->execute(sql, result)) {
        errorConnection();
        m_trace.prn(CREDENTIAL_FAILED_TRACE, sql.c_str());
        return failure(DatabaseResult::QUERY_ERROR);
    }
    if (result.rows() == 0) {
        m_trace.prn(ZERO_ROWS_TRACE, sql.c_str());
        error("EdgePassword not found");
        return failure(DatabaseResult::NOTFOUND);
    }
    password = text(result.getValue(0, 0));
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::getTrustedHosts(std::vector<TrustedHostRecord>& hosts) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    m_trace.prn("looking up trusted host list");
    QueryResultPtr result;
    if (!fetch("SELECT name,perform_orig_proc FROM trusted_host", result, outcome))
        return outcome;
    for (int row = 0, rows = result.rows(); row < rows; ++row) {
        const char* name = column(result, row, 0);
        if (name == nullptr)
            continue;
        TrustedHostRecord host;
        host.setName(name);
        if (const char* origProc = column(result, row, 1))
            host.setPerformOrigProc(isTrue(origProc[0]));
        hosts.push_back(host);
    }
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::getDomainAccessList(std::vector<DomainAccess>& rules) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    m_trace.prn("getting domain access list");
    QueryResultPtr result;
    if (!fetch("SELECT direction,sip_domain,domain_action FROM domain_access ORDER BY qvalue", result, outcome,
               EXECUTE_FAILED, QUERY_ERROR))
        return outcome;
    int rows = result.rows();
    if (rows == 0)
        m_trace.prn("query returned 0 rows");
    // Rules apply in this order.
    for (int row = 0; row < rows; ++row) {
        DomainAccess rule;
        if (const char* direction = column(result, row, 0))
            rule.setDirection(direction);
        if (const char* domain = column(result, row, 1))
            rule.setDomain(domain);
        if (const char* action = column(result, row, 2))
            rule.setAction(action);
        rules.push_back(rule);
    }
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::getEmergencyCallIds(std::vector<std::string>& ids) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    m_trace.prn("getting emergency call ids");
    QueryResultPtr result;
    if (!fetch("SELECT address FROM emergency_call_ids", result, outcome, EXECUTE_FAILED, QUERY_ERROR))
        return outcome;
    int rows = result.rows();
    if (rows == 0)
        m_trace.prn("query returned 0 rows");
    for (int row = 0; row < rows; ++row) {
        if (const char* address = column(result, row, 0))
            ids.push_back(address);
    }
    return outcome;
}

int DatabaseCommandExecutor::getRemoteFilters(std::vector<remoteFilter>* filters, std::string* destination) {
    if (!checkConnect())
        return -1;
    std::string sql = "SELECT persistent_filter.* FROM persistent_filter, nodes_to_filter, local_parameters "
                      "WHERE persistent_filter.fid=nodes_to_filter.fid AND "
                      "nodes_to_filter.node_id=local_parameters.value AND "
                      "local_parameters.application='boot' AND local_parameters.scope='system' AND "
                      "local_parameters.name='replica_id';";
    m_trace.prn("%s", sql.c_str());
    QueryResultPtr result;
    if (!run(sql, result))
        return -1;
    int rows = result.rows();
    if (rows == 0)
        return 0;
    // The filter's columns are read by position: fid first.
    for (int row = 0; row < rows; ++row) {
        remoteFilter filter;
        if (const char* fid = column(result, row, 0))
            filter.setFid(std::atoi(fid));
        if (const char* trid = column(result, row, 1))
            filter.setTrid(std::atoi(trid));
        if (const char* label = column(result, row, 2))
            filter.setLabel(label);
        if (const char* methods = column(result, row, 3))
            filter.setMethods(methods);
        if (const char* from = column(result, row, 4))
            filter.setFrom(from);
        if (const char* to = column(result, row, 5))
            filter.setTo(to);
        if (const char* contact = column(result, row, 6))
            filter.setContact(contact);
        if (const char* request = column(result, row, 7))
            filter.setRequest(request);
        if (const char* response = column(result, row, 8))
            filter.setResponse(response);
        if (const char* useragent = column(result, row, 9))
            filter.setUseragent(useragent);
        if (const char* type = column(result, row, 10))
            filter.setType(type);
        filters->push_back(filter);
    }

    sql = "SELECT value FROM system_parameters WHERE system_parameters.application = 'velm' AND "
          "system_parameters.scope = 'system' AND system_parameters.name = 'TraceLogger' ";
    m_trace.prn("%s", sql.c_str());
    if (!run(sql, result))
        return -1;
    if (result.rows() == 0)
        return 0;
    if (const char* logger = column(result, 0, 0)) {
        *destination = logger;
        return 1;
    }
    m_trace.prn("tarn.system_parameters velm/system/TraceLogger destination null or empty.");
    return -2;
}

} // namespace velm
