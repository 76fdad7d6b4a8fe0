// LocationService: the registrar's and the proxy's facade to the database.
#ifndef VELM_LOCATIONSERVICE_H
#define VELM_LOCATIONSERVICE_H

#include "DatabaseResult.h"
#include "EventMgr.h"
#include "Mutex.h"
#include "Trace.h"

#include <pthread.h>

#include <string>
#include <vector>

namespace osk {
class CritSect;
class Uri;
}

namespace velm {

class AddressMap;
class AddressMapRecord;
class ContactRecord;
class DatabaseCommandExecutor;
class PrefixMap;
class PrefixMapRecord;
class ProxyConfig;
class SipEventAggregator;
class SubscriberRecord;
class TrustedHostRecord;

namespace registration {
struct Closing;
}
class remoteFilter;

// The facade of the registrar and the proxy: one instance per thread, each
// with its own database connection (see LocationServicePool). Operations
// never throw; they answer with a DatabaseResult, and a failure of the
// database itself also raises the "database failure - " alarm.
class LocationService {
public:
    LocationService();
    ~LocationService();
    LocationService(const LocationService&) = delete;
    LocationService& operator=(const LocationService&) = delete;

    // A new instance configured from the process configuration and, when
    // [Database] ProxyDatabaseUser is set, connected. Owned by the caller.
    static LocationService* getConnection();
    // Opens (or replaces) this instance's database connection.
    DatabaseResult connect(const char* database, const char* user, const char* password);
    // Runs one caller-supplied statement whose rows are not needed.
    DatabaseResult executeCmd(const std::string& command);
    // Marks `result` as a connection error when this instance has no
    // connection; leaves it alone otherwise.
    void checkConnect(DatabaseResult& result);

    void setPrimaryDomain(const std::string& domain);
    std::string getPrimaryDomain();

    // Registration. `key` is the public address id. The forms with the three
    // output vectors (which must be empty) run step by step under row locks
    // and report what changed; the short forms send one transaction script.
    // With m_useAutoCommit every form hands over to its AC form.
    DatabaseResult registerContacts(int key, std::vector<ContactRecord>& contacts);
    DatabaseResult registerContacts(int key, std::vector<ContactRecord>& contacts,
                                    std::vector<ContactRecord>& addedContacts,
                                    std::vector<ContactRecord>& deletedContacts,
                                    std::vector<ContactRecord>& changedContacts);
    DatabaseResult updateContacts(int key, std::vector<ContactRecord>& contacts);
    DatabaseResult updateContacts(int key, std::vector<ContactRecord>& contacts,
                                  std::vector<ContactRecord>& addedContacts,
                                  std::vector<ContactRecord>& deletedContacts,
                                  std::vector<ContactRecord>& changedContacts);
    // A contact whose address is "*" removes every non-permanent contact.
    DatabaseResult unregisterContacts(int key, std::vector<ContactRecord>& contacts);
    DatabaseResult unregisterContacts(int key, std::vector<ContactRecord>& contacts,
                                      std::vector<ContactRecord>& addedContacts,
                                      std::vector<ContactRecord>& deletedContacts,
                                      std::vector<ContactRecord>& changedContacts);
    // The first form removes every expired contact; the second removes one
    // per call and keeps one active contact in its set.
    DatabaseResult removeExpiredContacts();
    DatabaseResult removeExpiredContacts(std::vector<ContactRecord>& addedContacts,
                                         std::vector<ContactRecord>& deletedContacts,
                                         std::vector<ContactRecord>& changedContacts);
    // One UPDATE of a contact selected by set and address; opens no
    // transaction of its own.
    DatabaseResult updateContact(int key, ContactRecord& contact);
    // The same statements one by one, relying on the connection's auto-commit.
    DatabaseResult registerContactsAC(int key, std::vector<ContactRecord>& contacts);
    DatabaseResult updateContactsAC(int key, std::vector<ContactRecord>& contacts);
    DatabaseResult unregisterContactsAC(int key, std::vector<ContactRecord>& contacts);
    // Asks the sequence cid_seq with the ".nextval" syntax of older
    // databases, which PostgreSQL rejects: on PostgreSQL this always fails.
    DatabaseResult getContactId(std::string& contactId);
    std::string dumpToString(const ContactRecord& contact);

    // Expired contacts; with `flag` only one, through its primary address.
    DatabaseResult getExpiredContacts(std::vector<ContactRecord>& contacts, bool flag);

    // Subscriber and public-address lookups; visiting users.
    // User parts and domains are compared in lower case; callers pass them
    // as they come (neither lower-cased nor escaped).
    //
    // Okay for a user this node serves (no node row, a NULL node, or this
    // node), not found for a user of another node, a query error when this
    // node's id cannot be read.
    DatabaseResult isLocalUser(const char* user, const char* domain);
    // The same for the user and host of a SIP URI.
    DatabaseResult isLocalUser(const std::string& lookupAddress);
    // The public address id of a request URI or of user@host; a user of
    // another node is not found.
    DatabaseResult getPublicAddressKey(const char* requestUri, int& key);
    DatabaseResult getPublicAddressKey(const char* user, const char* host, int& key);
    // Key and contact set, whichever node serves the user.
    DatabaseResult getPublicAddressKeyCSID(const char* user, const char* host, int& key, int& csid);
    // The subscriber owning handle@domain, m_isLocal set when this node
    // serves it (a subscriber whose node is NULL keeps m_isLocal as given).
    DatabaseResult lookupSubscriber(const char* handle, const char* domain, SubscriberRecord& subscriber);
    // "display name" <identity> of the subscriber owning user@domain, or of
    // public address `key`.
    DatabaseResult getIdentity(const char* user, const char* domain, std::string& identity);
    DatabaseResult getIdentity(int key, std::string& identity);
    DatabaseResult getPublicAddress(int key, std::string& user, std::string& domain);
    // The subscriber with its password. A user unknown here is asked for at
    // the administration service (system_parameters top_url, EdgeUsername,
    // EdgePassword), recorded as a visitor, and read again for up to ten
    // seconds while replication brings its rows.
    DatabaseResult lookupSubscriberPassword(const char* handle, const char* domain, SubscriberRecord& subscriber);
    // Visitors (replica_extra). `home` is false for a recorded visitor.
    DatabaseResult isSubscriberHome(int sid, bool& home);
    DatabaseResult addVisitingUser(int sid);
    DatabaseResult deleteVisitingUser(int sid);
    DatabaseResult getHomeNode_id(int& nodeId);
    // Keeps the visitor behind handle@domain for `expires` more seconds,
    // never for less than it already is.
    DatabaseResult updateTimer(const char* handle, const char* domain, int expires);
    DatabaseResult removeExpiredVisitingUsers();

    // Contact lookup and request routing; the conference server.
    // Every lookup answers with `ordering` (the contact set's, "cycle",
    // "sequential", ...), `redirect` (the contact set's replace_uri, as the
    // contact commands deliver it) and `contacts` appended in routing order.
    // A request for the conference server gets one bridge contact and the
    // ordering "redirect".
    DatabaseResult lookupContacts(const char* requestUri, std::string& ordering, bool& redirect,
                                  std::vector<ContactRecord>& contacts, const char* authUser);
    // The chain for user@domain: the resolver module when it is asked first,
    // the public address, the local-user check, then the contacts cache or
    // the database; the module is asked at most once.
    DatabaseResult lookupContacts(const char* user, const char* domain, const char* requestUri, std::string& ordering,
                                  bool& redirect, std::vector<ContactRecord>& contacts);
    DatabaseResult lookupContacts(int key, std::string& ordering, bool& redirect, std::vector<ContactRecord>& contacts);
    // Contacts without resolving "cycle" sets, and the key's primary id
    // (left as it was when the key has none).
    DatabaseResult lookupContactsNoCache(int key, std::string& ordering, bool& redirect,
                                         std::vector<ContactRecord>& contacts, int& primaryId);
    // A miss is a query error; a "cycle" set is read again from the database.
    DatabaseResult getContactsFromCache(int key, const char* user, const char* domain,
                                        std::vector<ContactRecord>& contacts, std::string& ordering, bool& redirect);
    // The external resolver module's answer; its error is a connection error.
    DatabaseResult lookupAlternate(const char* requestUri, std::string& ordering, bool& redirect,
                                   std::vector<ContactRecord>& contacts);
    // False only when [Proxy] EnableOODReferRouting is "false" in any case.
    bool isOODReferAllowed();
    // Whether a request to `outboundUri` may leave this node, and the
    // outbound proxy it goes through (empty: direct).
    DatabaseResult getOutboundRoute(const char* outboundUri, bool internal, std::string& proxy, bool& allowed);
    // The contacts of the set the node's parent contact names.
    DatabaseResult getDefaultRoute(std::string& ordering, bool& redirect, std::vector<ContactRecord>& contacts);
    // The user part of the conference server URI; "confsvr" when none is
    // configured or there is no connection.
    std::string queryConferenceServerHandle();
    // Builds and keeps the conference server URI; empty without a domain.
    std::string composeConferenceServerUri(const std::string& primaryDomain, bool isTlsTransport);
    // Reserves a conference bridge and makes `contact` point at it; `flag`
    // is set. `authUser` selects a bridge behind the user's own trunk.
    DatabaseResult resolveConfSvrUri(const char* authUser, bool& flag, ContactRecord& contact);
    // Counts the bridge pool and raises the capacity events when usage is
    // exactly 80 or 100 percent.
    DatabaseResult checkUsage();

    // The digit-prefix tree and digit-map lookup.
    //
    // One tree of prefix_map rows serves every instance of the process; it
    // is built, rebuilt, destroyed and read under m_mutexPrefix. A failed
    // build leaves no tree, and digit-map lookups then answer ok with no
    // contacts.
    // Builds the tree unless one exists.
    DatabaseResult createPrefixMap();
    // Replaces the tree with one built from the table as it is now.
    DatabaseResult recreatePrefixMap();
    void destroyPrefixmap();
    // The tree operations themselves; the caller holds m_mutexPrefix.
    DatabaseResult createPrefix();
    void addPrefixNode(const char* prefix, int index, int csid, int totalLength, PrefixMap* node);
    // Leaves in `csid` the contact set of the deepest node along `user` whose
    // length condition holds; an inner node on the way to a longer prefix
    // sets it back to 0. `csid` is untouched when the first digit matches
    // nothing.
    void findPrefix(const char* user, int& csid, int index, PrefixMap* node);
    void deleteNodes(PrefixMap* node);
    // Routes `requestUri` by the prefix of its user part to a contact set and
    // rewrites the first contact to the requested scheme and user. The tree
    // lock is held through the contact query, so lookups run one at a time.
    DatabaseResult lookupDigitMap(const char* requestUri, std::string& ordering, bool& redirect,
                                  std::vector<ContactRecord>& contacts);
    // The rows of prefix_map as the database returns them.
    DatabaseResult getPrefixMap(std::vector<PrefixMapRecord>& maps);
    // The change counter of prefix_map (0 when none is kept).
    DatabaseResult checkPrefixMap(int* counter);

    // Address maps.

    // Routes `requestUri` by the address map: the first row, in ascending
    // priority, whose pattern (POSIX extended; an empty one matches all)
    // matches the whole URI gives the contact set. Each contact's address has
    // the URI's parts substituted for $protocol, $user, $password, $host,
    // $port, $parameters and $headers (absent parts are empty; an absent port
    // stays unexpanded). Not found when no row matches, and, with the
    // message "lookupAddressMap passed visiting user", for a visiting user.
    // The compiled patterns are kept per instance and compiled again only
    // when a row's modification_time moves forward.
    DatabaseResult lookupAddressMap(const char* requestUri, std::string& ordering, bool& redirect,
                                    std::vector<ContactRecord>& contacts);
    // The compiled entries, each keyed "<handle>-<csid>" and in the priority
    // order of the last lookup.
    void getMapKeys(std::vector<std::string>& keys);
    // The first entry with `key`, or null; it stays owned by the instance.
    AddressMap* lookupMapEntry(std::string& key);
    // Frees the first entry with `key`, if any, and drops it from the list.
    void removeMapEntry(std::string& key);
    void clearMapEntries();

    // Configuration and policy accessors.

    // The process's trusted hosts. A hosting server reads them with
    // queryTrustedHosts and hands them to setTrustedHosts once at start-up;
    // until that first set every reader blocks (no time-out; a blocked
    // reader can be cancelled). Later sets replace the list.
    void setTrustedHosts(const std::vector<TrustedHostRecord>& hosts);
    void getTrustedHosts(std::vector<TrustedHostRecord>& hosts);
    // Reads the trusted_host table; leaves the process's list alone.
    DatabaseResult queryTrustedHosts(std::vector<TrustedHostRecord>& hosts);
    // The first host named `hostName` (when not empty), else the first named
    // `host`; names compare exactly. False for a null argument.
    bool getTrustedHost(const char* host, const char* hostName, TrustedHostRecord& record);
    bool isTrustedHost(const char* host, const char* hostName);

    DatabaseResult getQoS(int* qos);
    // `nodeType` is assigned whatever the outcome; an empty one is not found.
    DatabaseResult getNodeType(std::string& nodeType);
    DatabaseResult getProxyConfig(const char* proxyName, std::vector<ProxyConfig>& items);
    // The edge system's user and password (EdgeUsername, EdgePassword).
    DatabaseResult getSystemUserAndPasswordValues(std::string& user, std::string& password);
    // `allowed` (set only on success) unless an inbound or two-way rule for
    // exactly `domain` denies it, wherever that rule stands in the order.
    DatabaseResult checkInboundDomainAccess(const char* domain, bool& allowed);
    // Whether `contact` is exactly one of the emergency ids, read afresh on
    // every call.
    DatabaseResult isEmergencyContact(const char* contact, bool& isEmergency);
    DatabaseResult isEmergencyContact(const std::string& contact, bool& isEmergency);
    // This node's persistent trace filters and their trace destination. Not
    // found when there are none; okay with the message "invalid parameter
    // getRemoteFilters." when filters exist but the destination is empty.
    DatabaseResult getRemoteFilters(std::vector<remoteFilter>* filters, std::string* destination);
    // Deletes event notifications older than 60 seconds.
    DatabaseResult deleteOldEventNotifyRows();
    // Okay at once, doing nothing, for an empty id. Any other id fails on
    // PostgreSQL 15, which rejects the statement the id is written into (the
    // id runs into the keyword after it), and so raises the alarm.
    DatabaseResult getSipEventAggregator(const std::string& id, SipEventAggregator& aggregator);
    // Every aggregator once per contact of its subscriber's contact set.
    DatabaseResult getSipEventAggregators(std::vector<SipEventAggregator>& aggregators);

    // Per-instance state. The pool binds an instance to its thread through
    // m_threadId.
    pthread_t m_threadId;
    bool m_useAutoCommit;
    DatabaseCommandExecutor* m_exec;
    std::vector<AddressMap*> m_addrMap;
    bool m_alternateOnNoContacts;
    bool m_alternateOnNotFound;
    bool m_moduleFirst;
    Trace m_trace;
    Trace m_perfTrace;
    EventMgrForEventServer m_alarmMgr;
    EventMgrForSipServer alarmMgr;

    // Process-wide state shared by every instance, each piece under its lock.
    static std::vector<TrustedHostRecord> m_trustedHosts;
    static bool m_trustedHostsInitDone;
    static osk::Mutex m_mutex;
    static pthread_cond_t m_cond;
    static PrefixMap* m_prefixMap;
    static osk::Mutex m_mutexPrefix;
    static bool m_bPrefixMapInitialized;
    static std::string m_conferenceServerHandle;
    static std::string m_conferenceServerUri;
    static osk::Mutex m_mutexConferenceServerUri;
    static bool m_needToReloadConferenceServerUri;
    // Read and written only under m_mutexPrimaryDomain (through the two
    // accessors): threads of the whole process read it.
    static std::string m_primaryDomain;
    static osk::Mutex m_mutexPrimaryDomain;
    static Trace& m_strace;
    static osk::CritSect m_cs;
    static const std::string STR_CONF_IN_USE;
    static const std::string STR_CONF_IDLE;
    static const std::string STR_CONF_INVALID;
    static const std::string STR_CONF_TOTAL;

private:
    // Helpers of the lookups and visiting users.
    // The node of the subscriber owning handle@domain:
    // `node` is empty when the subscriber has no node row or a NULL node;
    // `found` tells whether a row came back.
    DatabaseResult subscriberNode(const std::string& handle, const std::string& domain, bool& found,
                                  std::string& node);
    // The node check after a subscriber was found: sets the record's
    // m_isLocal; the traces, logs and alarm steps (`queryStep` for the node
    // query, `homeStep` for this node's id) are those of `operation`.
    DatabaseResult checkSubscriberNode(const char* operation, int queryStep, int homeStep,
                                       const std::string& handle, const std::string& domain,
                                       SubscriberRecord& subscriber);
    // The failure that the executor's lookupSubscriber answer `found` means
    // (-1: connection error and the alarm `alarmText`; -2: bad parameter);
    // okay for 0 and 1.
    DatabaseResult subscriberLookupResult(int found, const std::string& alarmText);
    // Asks the administration service for the subscriber id of handle@domain
    // (escaped texts) and records the visitor: okay with `sid` recorded, not
    // found when the service or the configuration does not know it.
    DatabaseResult fetchVisitor(const std::string& handle, const std::string& domain, int& sid);
    // The node of visitor `sid` once its rows arrived; a visitor now homed
    // here is no visitor any more.
    DatabaseResult checkVisitorNode(int sid);
    // The number of rows in replica_extra; a failure (always one of the
    // database) raises the alarm of removeExpiredVisitingUsers step `step`.
    DatabaseResult countVisitors(int step, int& count);

    // Helpers of routing and the conference server.
    // The conference server URI, composed again first when asked to; the
    // state is read and written under m_mutexConferenceServerUri.
    std::string conferenceServerUri();
    // composeConferenceServerUri with m_mutexConferenceServerUri held.
    std::string composeConferenceServerUriLocked(const std::string& primaryDomain, bool isTlsTransport);

    // Helpers of the digit-prefix tree.

    // The found contact set's first contact, rewritten to carry the scheme
    // and user of `requestUri`; a query error when its address is no URI.
    DatabaseResult rewriteFirstContact(const osk::Uri& requestUri, ContactRecord& contact);

    // Helpers of the address maps.

    // Brings m_addrMap in line with `rows` (ascending priority): entries
    // whose key still has a row are kept, in the rows' order, and compiled
    // again only when their row is newer; the others are freed.
    void synchronizeMaps(const std::vector<AddressMapRecord>& rows);
    // The csid of the first entry whose pattern matches, 0 when none does.
    int matchingCsid(const char* requestUri);

    // Helpers of the configuration accessors.

    // Traces "connection error" when the instance has no connection, for the
    // accessors that say why guarded() turned them away.
    void traceIfUnconnected();

    // The frame of an operation that runs one executor command: the
    // connection guard, `command(*m_exec)`, and the alarm when the database
    // failed. `operation` names it in the alarm text.
    template <class Command>
    DatabaseResult guarded(const std::string& operation, Command&& command);
    // "database failure - <operation>. <message>" when `result` is fatal.
    void alarmOnFatal(const std::string& operation, const DatabaseResult& result);
    void raiseDatabaseAlarm(const std::string& text);
    // The alarm of numbered step `step` of `operation`, when `result` is fatal.
    void alarmStep(const char* operation, int step, const DatabaseResult& result);

    // How a failed registration step ends its transaction (defined with the
    // registration forms).
    using Closing = registration::Closing;
    // Alarms a fatal `failure` as step `step` (0: no alarm of its own), logs
    // `message` with its text, closes the transaction; returns `failure`.
    DatabaseResult failStep(const DatabaseResult& failure, const char* operation, int step, const char* message,
                            const Closing& closing);
    void closeTransaction(const char* operation, const Closing& closing);
    // The start of every step-by-step form: the output vectors must be empty
    // (a bad parameter otherwise) and the connection there.
    DatabaseResult readyForSteps(const std::vector<ContactRecord>& addedContacts,
                                 const std::vector<ContactRecord>& deletedContacts,
                                 const std::vector<ContactRecord>& changedContacts);
    // The index in `stored` of the contact whose Contact header names the same
    // contact as `contact`'s, or -1; traced as an unregistration or a refresh.
    int matchStored(const ContactRecord& contact, const std::vector<ContactRecord>& stored, bool unregistering);
};

template <class Command>
DatabaseResult LocationService::guarded(const std::string& operation, Command&& command) {
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay())
        return result;
    result = command(*m_exec);
    alarmOnFatal(operation, result);
    return result;
}

} // namespace velm

#endif
