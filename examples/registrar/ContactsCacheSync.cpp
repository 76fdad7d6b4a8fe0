// Filling the contacts cache and following the velm_contacts notifications on a libpq session of its own.
#include "ContactsCacheSync.h"

#include "AppProperties.h"
#include "ContactRecord.h"
#include "ContactsCache.h"
#include "LocationService.h"
#include "LocationServicePool.h"
#include "ServiceRegistrar.h"
#include "URL.h"

#include <fcntl.h>
#include <libpq-fe.h>
#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace registrar {

namespace {

// The cache name the library asks under.
const char CACHE[] = "PROXY";
// Between attempts to reach the database again.
const int RETRY_MS = 1000;

bool isNumber(const char* text) {
    if (*text == '\0')
        return false;
    for (; *text != '\0'; ++text) {
        if (*text < '0' || *text > '9')
            return false;
    }
    return true;
}

} // namespace

bool contactsCacheConfigured() {
    const char* value = velm::AppProperties::get("Registrar", "ContactsCache");
    return value != nullptr && strcasecmp(value, "true") == 0;
}

ContactsCacheSync::ContactsCacheSync() : m_trace("Registrar") {}

ContactsCacheSync::~ContactsCacheSync() {
    stop();
}

bool ContactsCacheSync::start() {
    if (pipe2(m_wake, O_CLOEXEC) != 0) {
        m_trace.log("contacts cache: no wake pipe: %s", std::strerror(errno));
        return false;
    }
    std::promise<bool> firstFill;
    std::future<bool> filled = firstFill.get_future();
    m_thread = std::thread(&ContactsCacheSync::run, this, &firstFill);
    return filled.get();
}

void ContactsCacheSync::stop() {
    if (m_thread.joinable()) {
        char byte = 0;
        if (write(m_wake[1], &byte, 1) != 1)
            m_trace.log("contacts cache: cannot wake the listener: %s", std::strerror(errno));
        m_thread.join();
    }
    disconnect();
    for (int& fd : m_wake) {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }
}

void ContactsCacheSync::run(std::promise<bool>* firstFill) {
    velm::LocationService* service = velm::LocationServicePool::Instance()->getConnection();
    if (service == nullptr)
        m_trace.log("contacts cache: no location service to read contacts with");
    for (;;) {
        // A new session LISTENs before the reading, so that no change made
        // meanwhile goes unnoticed; the cache is used only once it is full.
        bool inStep = m_conn != nullptr ? follow(*service)
                                        : service != nullptr && connect() && rebuild(*service) && follow(*service);
        if (inStep)
            setCacheUsed(true);
        else
            disconnect();
        if (firstFill != nullptr) {
            firstFill->set_value(inStep);
            firstFill = nullptr;
        }
        // After a failure, not at once: the server that dropped the session
        // may be going down.
        if (!wait(inStep ? -1 : RETRY_MS))
            return;
    }
}

bool ContactsCacheSync::connect() {
    std::string location;
    velm::ServiceRegistrar::instance()->locate("velm.sip.db", location, "");
    const char* user = velm::AppProperties::get("Database", "ProxyDatabaseUser");
    std::string password;
    if (user == nullptr || !velm::AppProperties::getDatabaseKey(password)) {
        m_trace.log("contacts cache: no database user or password configured");
        return false;
    }
    // The location as the library reads it: a URL or a database name.
    std::string host;
    std::string port;
    std::string database = location;
    osk::URL url(location);
    if (url.isValid()) {
        host = url.getHost();
        database = url.getPath();
        if (url.getPort() > 0)
            port = std::to_string(url.getPort());
    }
    // Named after the process, so that an operator can tell the session
    // apart; keepalives, so that a silent network loses the session (and
    // turns the cache off) within about 25 s over TCP.
    const std::vector<std::pair<const char*, std::string>> settings = {
        {"host", host},
        {"port", port},
        {"dbname", database},
        {"user", user},
        {"password", password},
        {"application_name", "velm-registrar contacts " + std::to_string(getpid())},
        {"keepalives_idle", "10"},
        {"keepalives_interval", "5"},
        {"keepalives_count", "3"}};
    std::vector<const char*> keys;
    std::vector<const char*> values;
    for (const auto& [key, value] : settings) {
        keys.push_back(key);
        values.push_back(value.c_str());
    }
    keys.push_back(nullptr);
    values.push_back(nullptr);
    m_conn = PQconnectdbParams(keys.data(), values.data(), 0);
    if (PQstatus(m_conn) != CONNECTION_OK) {
        m_trace.log("contacts cache: cannot connect: %s", PQerrorMessage(m_conn));
        return false;
    }
    PGresult* listened = PQexec(m_conn, "LISTEN velm_contacts");
    bool okay = PQresultStatus(listened) == PGRES_COMMAND_OK;
    if (!okay)
        m_trace.log("contacts cache: LISTEN failed: %s", PQerrorMessage(m_conn));
    PQclear(listened);
    return okay;
}

bool ContactsCacheSync::rebuild(velm::LocationService& service) {
    std::set<int> keys;
    if (!keysOf("SELECT public_address_id FROM public_address", nullptr, keys))
        return false;
    for (auto stored = m_stored.begin(); stored != m_stored.end();) {
        if (keys.count(*stored) != 0) {
            ++stored;
            continue;
        }
        LocalContactsCache::shared().invalidate(CACHE, *stored);
        stored = m_stored.erase(stored);
    }
    if (!reload(service, keys))
        return false;
    m_trace.log("contacts cache filled: %d public addresses", static_cast<int>(keys.size()));
    return true;
}

bool ContactsCacheSync::follow(velm::LocationService& service) {
    // Notifications that arrive while the sets are read wait in libpq, not
    // on the socket: ask again until none is left.
    for (;;) {
        if (PQconsumeInput(m_conn) == 0 || PQstatus(m_conn) != CONNECTION_OK) {
            m_trace.log("contacts cache: listener connection lost: %s", PQerrorMessage(m_conn));
            return false;
        }
        std::string sets;
        bool everything = false;
        while (PGnotify* notice = PQnotifies(m_conn)) {
            // "*" (a truncation), or anything unexpected, means all of them.
            if (isNumber(notice->extra))
                sets += (sets.empty() ? "" : ",") + std::string(notice->extra);
            else
                everything = true;
            PQfreemem(notice);
        }
        if (everything) {
            if (!rebuild(service))
                return false;
            continue;
        }
        if (sets.empty())
            return true;
        std::set<int> keys;
        const std::string array = "{" + sets + "}";
        if (!keysOf("SELECT public_address_id FROM public_address WHERE csid = ANY($1::integer[])", array.c_str(),
                    keys) ||
            !reload(service, keys))
            return false;
    }
}

bool ContactsCacheSync::reload(velm::LocationService& service, const std::set<int>& keys) {
    for (int key : keys) {
        std::vector<velm::ContactRecord> contacts;
        std::string ordering;
        bool redirect = true;
        int primary = 0;
        // Unresolved, so that the library still reads "cycle" sets itself.
        velm::DatabaseResult result = service.lookupContactsNoCache(key, ordering, redirect, contacts, primary);
        // Not found: an inactive subscriber, whose contacts are read anyway.
        if (!result.okay() && !result.notFound()) {
            m_trace.log("contacts cache: cannot read public address %d: %s", key, result.getErrorMessage().c_str());
            return false;
        }
        LocalContactsCache::shared().store(CACHE, key, contacts, ordering, redirect);
        m_stored.insert(key);
    }
    return true;
}

bool ContactsCacheSync::keysOf(const char* sql, const char* parameter, std::set<int>& keys) {
    PGresult* result =
        PQexecParams(m_conn, sql, parameter != nullptr ? 1 : 0, nullptr, &parameter, nullptr, nullptr, 0);
    bool okay = PQresultStatus(result) == PGRES_TUPLES_OK;
    if (okay) {
        for (int row = 0; row < PQntuples(result); ++row)
            keys.insert(std::atoi(PQgetvalue(result, row, 0)));
    } else {
        m_trace.log("contacts cache: cannot read public addresses: %s", PQerrorMessage(m_conn));
    }
    PQclear(result);
    return okay;
}

void ContactsCacheSync::disconnect() {
    setCacheUsed(false);
    if (m_conn != nullptr)
        PQfinish(m_conn);
    m_conn = nullptr;
}

void ContactsCacheSync::setCacheUsed(bool used) {
    const char* value = velm::AppProperties::get("SipServer", "UseContactsCache");
    if ((value != nullptr && std::strcmp(value, "true") == 0) == used)
        return;
    velm::AppProperties::set("SipServer", "UseContactsCache", used ? "true" : "false");
    m_trace.log("contacts cache %s", used ? "in use" : "off: contacts are read from the database");
}

bool ContactsCacheSync::wait(int timeoutMs) {
    pollfd watched[2] = {{m_conn != nullptr ? PQsocket(m_conn) : -1, POLLIN, 0}, {m_wake[0], POLLIN, 0}};
    if (poll(watched, 2, timeoutMs) < 0 && errno != EINTR) {
        m_trace.log("contacts cache: poll failed: %s", std::strerror(errno));
        return false;
    }
    return watched[1].revents == 0;
}

} // namespace registrar
