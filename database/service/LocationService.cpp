// LocationService's shared state, connection, configured primary domain and database alarm.
#include "LocationService.h"

#include "AppProperties.h"
#include "CritSect.h"
#include "DatabaseCommandExecutor.h"
#include "SafeLock.h"
#include "ServiceRegistrar.h"
#include "StringTokenizer.h"
#include "TrustedHostRecord.h"

#include <strings.h>

#include <mutex>
#include <new>

namespace velm {

std::vector<TrustedHostRecord> LocationService::m_trustedHosts;
bool LocationService::m_trustedHostsInitDone = false;
osk::Mutex LocationService::m_mutex;
pthread_cond_t LocationService::m_cond = PTHREAD_COND_INITIALIZER;
PrefixMap* LocationService::m_prefixMap = nullptr;
osk::Mutex LocationService::m_mutexPrefix;
bool LocationService::m_bPrefixMapInitialized = false;
std::string LocationService::m_conferenceServerHandle;
std::string LocationService::m_conferenceServerUri;
osk::Mutex LocationService::m_mutexConferenceServerUri;
bool LocationService::m_needToReloadConferenceServerUri = true;
std::string LocationService::m_primaryDomain;
osk::Mutex LocationService::m_mutexPrimaryDomain;
Trace& LocationService::m_strace = STrace::instance();
osk::CritSect LocationService::m_cs;
const std::string LocationService::STR_CONF_IN_USE = "IN USE";
const std::string LocationService::STR_CONF_IDLE = "IDLE";
const std::string LocationService::STR_CONF_INVALID = "INVALID";
const std::string LocationService::STR_CONF_TOTAL = "TOTAL";

namespace {

const char* const NO_CONNECTION = "lookup attempted without a database connection";

bool isTrueText(const char* value) {
    return value != nullptr && strcasecmp(value, "true") == 0;
}

} // namespace

LocationService::LocationService()
    : m_useAutoCommit(false),
      m_exec(nullptr),
      m_alternateOnNoContacts(false),
      m_alternateOnNotFound(false),
      m_moduleFirst(false),
      m_trace("LocationService"),
      m_perfTrace("performance") {
    // Services are made on many threads at once: the first one sets the flag.
    static std::once_flag initialized;
    std::call_once(initialized, [] {
        if (!m_bPrefixMapInitialized)
            m_bPrefixMapInitialized = true;
    });
}

LocationService::~LocationService() {
    delete m_exec;
    clearMapEntries();
}

LocationService* LocationService::getConnection() {
    LocationService* service = new (std::nothrow) LocationService();
    if (service == nullptr)
        return nullptr;

    std::string password;
    AppProperties::getDatabaseKey(password);
    std::string location;
    ServiceRegistrar::instance()->locate("velm.sip.db", location, "");
    const char* user = AppProperties::get("Database", "ProxyDatabaseUser");
    const char* type = AppProperties::get("SipServer", "DatabaseType");
    service->m_useAutoCommit = type != nullptr && strcasecmp(type, "odbc") == 0;
    // A failed connect has been traced and alarmed already; the instance is
    // handed out anyway and reports the failure on every operation.
    if (user != nullptr)
        service->connect(location.c_str(), user, password.c_str());

    if (isTrueText(AppProperties::get("LocationService", "ModuleFirst")))
        service->m_moduleFirst = true;
    if (const char* condition = AppProperties::get("LocationService", "ModuleCondition")) {
        StringTokenizer tokens(condition, " ,;:");
        while (tokens.hasMoreTokens()) {
            std::string token = tokens.nextToken();
            if (token == "nocontacts")
                service->m_alternateOnNoContacts = true;
            else if (token == "notfound")
                service->m_alternateOnNotFound = true;
        }
    }
    return service;
}

DatabaseResult LocationService::connect(const char* database, const char* user, const char* password) {
    delete m_exec;
    DatabaseResult result;
    m_trace.prn("establishing database connection to %s as %s", database, user);
    m_exec = new DatabaseCommandExecutor();
    if (m_exec->connect(database, user, password)) {
        m_trace.prn("connect okay");
        return result;
    }
    raiseDatabaseAlarm("database failure - connect");
    result.setConnectionError();
    result.setErrorMessage(m_exec->getErrorMessage());
    m_trace.prn("connect failed: %s", result.getErrorMessage().c_str());
    return result;
}

void LocationService::checkConnect(DatabaseResult& result) {
    if (m_exec != nullptr)
        return;
    result.setConnectionError();
    result.setErrorMessage(NO_CONNECTION);
}

DatabaseResult LocationService::executeCmd(const std::string& command) {
    return guarded("executeCmd", [&](DatabaseCommandExecutor& exec) {
        m_trace.prn("ExecuteCmd: %s\n", command.c_str());
        return exec.execute(command);
    });
}

void LocationService::setPrimaryDomain(const std::string& domain) {
    osk::withCancelSafeLock(m_mutexPrimaryDomain, [&] { m_primaryDomain = domain; });
    // The conference server URI is made of the primary domain.
    osk::withCancelSafeLock(m_mutexConferenceServerUri, [] { m_needToReloadConferenceServerUri = true; });
}

std::string LocationService::getPrimaryDomain() {
    return osk::withCancelSafeLock(m_mutexPrimaryDomain, [] { return m_primaryDomain; });
}

void LocationService::alarmOnFatal(const std::string& operation, const DatabaseResult& result) {
    if (result.fatalError())
        raiseDatabaseAlarm("database failure - " + operation + ". " + result.getErrorMessage());
}

void LocationService::raiseDatabaseAlarm(const std::string& text) {
    alarmMgr.ProxyDBAccess(text, 0);
}

} // namespace velm
