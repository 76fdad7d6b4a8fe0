// DatabaseCommandExecutor: one member per statement family of the schema, on its own connection.
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
class SubscriberRecord;
class ContactSetRecord;
class PublicAddressRecord;
class ContactRecord;

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

    // Subscribers, contact sets and public addresses. The int commands answer
    // 0 (or a count) for success, -1 for failure and -2 for bad arguments.
    // Every text a caller passes to a command is escaped in its statement.
    int addSubscriber(const SubscriberRecord& subscriber);
    // 1 found, 0 not found. With `retry`, waits up to ten seconds for a
    // subscriber another node is still provisioning. The password comes back
    // deciphered.
    int lookupSubscriber(const char* handle, const char* domain, SubscriberRecord& subscriber, bool retry);
    int changeSubscriberPassword(int sid, const char* password);
    DatabaseResult addContactSet(const ContactSetRecord& contactSet);
    // The stored-function commands send ROLLBACK after a failed call.
    int createPublicAddress(int sid, const char* handle, const char* domain);
    int aliasPublicAddress(const char* handle, const char* domain, const char* alias);
    int importPublicAddress(const char* sid, const char* handle, const char* domain, const char* contact);
    int addPublicAddress(const PublicAddressRecord& address);
    DatabaseResult lookupPublicAddress(const char* handle, const char* domain, PublicAddressRecord& address);
    DatabaseResult lookupPublicAddress(int paid, std::string& handle, std::string& domain, bool& isPrimary);
    DatabaseResult lookupPublicAddress(int paid, std::string& handle, std::string& domain);
    // "display name" <identity>
    DatabaseResult getIdentity(const char* handle, const char* domain, std::string& identity);
    // Okay also when nothing is found: primaryId is then left as it was.
    DatabaseResult getPrimaryId(int paid, int& primaryId);
    DatabaseResult lookupExtension(const std::string& extension, int& paid, std::string& handle,
                                   std::string& domain, int& numReg);
    DatabaseResult getNextPublicAddressId(int prevId, int& nextId);
    DatabaseResult getNextAliasId(int primaryId, int prevId, int& nextId);

    // Contacts. addContact answers 0 or -1; removeContact 0 also when there
    // is no connection.
    int addContact(const char* handle, const char* domain, ContactRecord& contact);
    int addContact(ContactRecord& contact);
    int removeContact(const char* handle, const char* domain, const char* address);
    // Routing order: ACP contacts first (unless [LocationService]
    // GenerateAcpContacts is "false"), then by qvalue and expiry; a "cycle"
    // set is rotated and reported "sequential" when resolveCycleContacts.
    DatabaseResult lookupContacts(int key, std::string& ordering, bool& replaceUri,
                                  std::vector<ContactRecord>& contacts, bool resolveCycleContacts);
    // Locks the set's rows FOR UPDATE within the caller's transaction.
    DatabaseResult lookupContacts(int key, ContactRecord& matchingContact,
                                  std::vector<ContactRecord>& retrievedContacts);
    DatabaseResult lookupContacts(std::string& ordering, int csid, bool& replaceUri,
                                  std::vector<ContactRecord>& contacts);
    DatabaseResult lookupAcpContacts(int key, std::string& ordering, bool& replaceUri,
                                     std::vector<ContactRecord>& contacts);
    DatabaseResult lookupMatchingContact(int csid, int paid, ContactRecord& lookupContact,
                                         ContactRecord& matchedContact);
    // Without limitOne a contact comes once per public address of its set.
    DatabaseResult getExpiredContacts(std::vector<ContactRecord>& contacts, bool limitOne);
    DatabaseResult getNextContactId(int paid, int prevId, int& nextId);
    DatabaseResult lookupContact(int cid, std::string& display_name, std::string& address, int& expires,
                                 std::string& qvalue);
    DatabaseResult getRegisteredContactCount(int& count);
    // The start index of the next call into contact set `csid`: 0, 1, ...
    // nContacts-1, 0, ... shared by all executors of the process.
    static int getNextCycleIndex(std::string& csid, int nContacts);

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
    // The id stands unquoted in the statement, so one that is not a decimal
    // number (blanks around it allowed) is a bad parameter.
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
    // m_errorMsg, when the statement did not run (`status` CONNECTION_ERROR)
    // or the server rejected it (QUERY_ERROR).
    bool run(const std::string& sql, QueryResultPtr& result);
    bool run(const std::string& sql, QueryResultPtr& result, DatabaseResult::status& status);
    // A result of `status` carrying m_errorMsg.
    DatabaseResult failure(DatabaseResult::status status) const;

    // Steps of the subscriber, public-address and contact commands.
    // fail(): m_errorMsg and a result of `status` with `text`. selectRows():
    // traces and runs `sql`; not found with no rows, else traces
    // "<command> returned %d rows". toInteger(): reads a row's number; empty
    // or unreadable is a query error naming `name`. callFunction(): runs a
    // stored-function call, 0 or -1, with ROLLBACK after a failed call.
    DatabaseResult fail(DatabaseResult::status status, const std::string& text);
    DatabaseResult selectRows(const std::string& sql, QueryResultPtr& result, const char* command);
    DatabaseResult selectRowsTracingFailure(const std::string& sql, QueryResultPtr& result, const char* command);
    DatabaseResult toInteger(const char* value, const char* name, int& number);
    int callFunction(const std::string& sql);
    static void appendRotated(const QueryResultPtr& result, int startIndex, std::vector<ContactRecord>& contacts);

    // Start indexes of the "cycle" contact sets by csid.
    static std::map<std::string, int> m_cycleMap;
    static osk::Mutex m_cycleMutex;

    // Statement steps of the configuration and visiting-user commands.
    // connected(): checkConnect(), a connection error in `outcome` when it
    // fails. fetch(): runs `sql` on the connection; a failure sets `outcome`
    // (connection error when it did not run, query error when the server
    // rejected it), traced with the given texts when they are not null.
    bool connected(DatabaseResult& outcome);
    bool fetch(const std::string& sql, QueryResultPtr& result, DatabaseResult& outcome,
               const char* notExecutedTrace = nullptr, const char* rejectedTrace = nullptr);
    // fetch() of a statement that must answer with rows: a failure's text is
    // traced, and no rows is not found, traced "zero rows found".
    bool fetchRows(const std::string& sql, QueryResultPtr& result, DatabaseResult& outcome);
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
