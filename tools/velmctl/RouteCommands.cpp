// Where a request goes: the routing lookup, the default and outbound routes,
// and the conference bridge pool.
#include "CommandRegistry.h"
#include "CommandSupport.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "Session.h"
#include "Trace.h"
#include "Uri.h"

#include <map>
#include <mutex>

namespace velmctl {

namespace {

// Tells which source answered a routing lookup from the service's trace
// lines: the chain ends with "found N contacts" only when the contacts came
// from the cache or the database, and names the database when it asked it.
// While it lives, the service's trace lines come here and nowhere else.
class SourceWitness : public velm::TraceSink {
public:
    SourceWitness() : m_wasOn(velm::Trace("LocationService").enabled()) {
        velm::Trace::enable("LocationService", true);
        velm::Trace::setSink(this);
    }
    ~SourceWitness() override {
        velm::Trace::setSink(nullptr);
        velm::Trace::enable("LocationService", m_wasOn);
    }
    SourceWitness(const SourceWitness&) = delete;
    SourceWitness& operator=(const SourceWitness&) = delete;

    void write(const char* channel, const char* text) override {
        if (std::string(channel) != "LocationService")
            return;
        std::string line = text;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_conference = m_conference || line.find("--- SUCCESS ---: Found match!") == 0;
        m_database = m_database || line.find("looking up contacts for ") == 0 ||
                     line == "getContactsFromCache: resolving cycle contacts from db";
        if (line.find("--- ") != 0 && line.find("*** ") != 0)
            m_chainEnd = line.find("found ") == 0;
    }

    std::string source(const velm::DatabaseResult& result) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!result.okay())
            return "none";
        if (m_conference)
            return "conference server";
        if (!m_chainEnd)
            return "module";
        return m_database ? "database" : "cache";
    }

private:
    bool m_wasOn;
    mutable std::mutex m_mutex;
    bool m_conference = false;
    bool m_database = false;
    bool m_chainEnd = false;
};

void showRoute(const std::string& title, const std::string& target, const std::string& ordering, bool redirect,
               const std::vector<velm::ContactRecord>& contacts, Output& output) {
    output.field("ordering", ordering);
    output.field("redirect", Value::flag(redirect));
    output.contacts(title, target, contacts);
}

Outcome lookup(Session& session, const std::string& requestUri, const Arguments& arguments, Output& output) {
    velm::LocationService& service = *session.service();
    // A proxy sets its primary domain once; here the request's host stands
    // in for it unless --domain names it.
    osk::Uri uri(requestUri);
    if (!uri.isValid())
        return Outcome::failure(BAD_INPUT, "request URI '" + requestUri + "': " + uri.errorMessage());
    service.setPrimaryDomain(arguments.option("--domain", uri.getHost()));

    std::string authUser = arguments.option("--auth-user");
    std::string ordering;
    bool redirect = false;
    std::vector<velm::ContactRecord> contacts;
    velm::DatabaseResult result;
    std::string source;
    {
        SourceWitness witness;
        result = service.lookupContacts(requestUri.c_str(), ordering, redirect, contacts,
                                        arguments.has("--auth-user") ? authUser.c_str() : nullptr);
        source = witness.source(result);
    }
    Outcome outcome = fromResult(result, requestUri);
    if (!outcome.ok())
        return outcome;
    output.field("source", source);
    showRoute("route", requestUri, ordering, redirect, contacts, output);
    return outcome;
}

Outcome defaultRoute(Session& session, Output& output) {
    std::string ordering;
    bool redirect = false;
    std::vector<velm::ContactRecord> contacts;
    Outcome outcome = fromResult(session.service()->getDefaultRoute(ordering, redirect, contacts),
                                 "default route (system parameters of application velm)");
    if (outcome.ok())
        showRoute("default route", "the node's parent contact", ordering, redirect, contacts, output);
    return outcome;
}

Outcome outboundRoute(Session& session, const std::string& target, bool internal, Output& output) {
    std::string proxy;
    bool allowed = false;
    Outcome outcome = fromResult(session.service()->getOutboundRoute(target.c_str(), internal, proxy, allowed),
                                 "outbound route (system parameters of application velm)");
    if (!outcome.ok())
        return outcome;
    output.field("allowed", Value::flag(allowed));
    if (allowed)
        output.field("proxy", proxy.empty() ? "(direct)" : proxy);
    return outcome;
}

Outcome route(const Arguments& arguments, Output& output) {
    std::string what;
    Outcome outcome = word(arguments, 1, "request URI, 'default' or 'outbound'", what);
    std::vector<std::string> given;
    if (outcome.ok() && what == "outbound")
        outcome = expectArguments(arguments, {"'outbound'", "outbound URI"}, {"--internal"}, given);
    else if (outcome.ok() && what == "default")
        outcome = expectArguments(arguments, {"'default'"}, {}, given);
    else if (outcome.ok())
        outcome = expectArguments(arguments, {"request URI"}, {"--auth-user", "--domain"}, given);
    Session session;
    outcome = openSession(outcome, arguments, session);
    if (!outcome.ok())
        return outcome;
    if (what == "default")
        return defaultRoute(session, output);
    if (what == "outbound")
        return outboundRoute(session, given[1], arguments.has("--internal"), output);
    return lookup(session, what, arguments, output);
}

Outcome conference(const Arguments& arguments, Output& output) {
    std::vector<std::string> given;
    Outcome outcome = expectArguments(arguments, {"conference action (status)"}, {}, given);
    if (outcome.ok() && given[0] != "status")
        outcome = usage("unknown conference action '" + given[0] + "'");
    Session session;
    outcome = openSession(outcome, arguments, session);
    std::map<std::string, unsigned int> count;
    if (outcome.ok())
        outcome = fromResult(session.service()->m_exec->confExtCount(count), "conference status");
    if (!outcome.ok())
        return outcome;
    using Executor = velm::DatabaseCommandExecutor;
    unsigned int total = count[Executor::STR_CONF_TOTAL];
    unsigned int inUse = count[Executor::STR_CONF_IN_USE];
    unsigned int invalid = count[Executor::STR_CONF_INVALID];
    output.field("bridges", Value::number(total));
    output.field("in_use", Value::number(inUse));
    output.field("invalid", Value::number(invalid));
    output.field("free", Value::number(total > inUse + invalid ? total - inUse - invalid : 0));
    return outcome;
}

const CommandRegistration ROUTE("route",
    "  route REQUEST-URI [--auth-user USER] [--domain DOMAIN]   where a request goes, and which source said so\n"
    "  route default                the contacts of the node's default route\n"
    "  route outbound URI [--internal]   whether a request may leave the node, and through which proxy\n",
    route);
const CommandRegistration CONFERENCE("conference", "  conference status            the conference bridge pool\n",
                                     conference);

} // namespace

} // namespace velmctl
