// What the library knows of an address, and the visitors of this node.
#include "CommandRegistry.h"
#include "CommandSupport.h"
#include "DatabaseCommandExecutor.h"
#include "LibraryMessages.h"
#include "LocationService.h"
#include "LowerCase.h"
#include "QueryResultPtr.h"
#include "SubscriberRecord.h"

#include <cstdlib>
#include <ctime>

namespace velmctl {

namespace {

std::string servedBy(const velm::DatabaseResult& local) {
    if (local.okay())
        return "this node";
    if (local.notFound())
        return "another node (visiting)";
    return "unknown: " + operatorWords(local.getErrorMessage());
}

// The recorded visitors, or only `sid` when it is not 0.
Outcome visitors(velm::LocationService& service, int sid, std::vector<Row>& rows) {
    velm::QueryResultPtr result;
    std::string sql = "SELECT id, expires FROM replica_extra";
    if (sid != 0)
        sql += " WHERE id = " + std::to_string(sid);
    velm::DatabaseResult read = service.m_exec->execute(sql + " ORDER BY id", result);
    if (!read.okay())
        return fromResult(read, "reading the visitors");
    long now = static_cast<long>(time(nullptr));
    for (int row = 0; row < result.rows(); ++row) {
        long expires = std::atol(result.getValue(row, 1));
        rows.push_back({Value::number(std::atol(result.getValue(row, 0))), Value::secondsUntil(expires, now),
                        Value::utcTime(expires)});
    }
    return Outcome();
}

const std::vector<std::string> VISITOR_COLUMNS{"sid", "expires_in", "expires_at"};

Outcome lookup(const Arguments& arguments, Output& output) {
    std::vector<std::string> given;
    Outcome outcome = expectArguments(arguments, {"address of record"}, {}, given);
    Aor aor;
    if (outcome.ok())
        outcome = parseAor(given[0], aor);
    Session session;
    outcome = openSession(outcome, arguments, session);
    if (!outcome.ok())
        return outcome;
    // Addresses are stored in lower case.
    aor = Aor{velm::lowerCase(aor.user.c_str()), velm::lowerCase(aor.domain.c_str())};
    velm::LocationService& service = *session.service();
    const char* user = aor.user.c_str();
    const char* domain = aor.domain.c_str();

    int key = 0;
    int csid = 0;
    outcome = fromResult(service.getPublicAddressKeyCSID(user, domain, key, csid), aor.text());
    if (!outcome.ok())
        return outcome;
    Fields fields{{"public_address_id", Value::number(key)}, {"csid", Value::number(csid)}};
    velm::SubscriberRecord subscriber;
    velm::DatabaseResult found = service.lookupSubscriber(user, domain, subscriber);
    if (found.okay()) {
        fields.push_back({"sid", Value::number(subscriber.sid())});
        fields.push_back({"auth_user", subscriber.userId()});
        fields.push_back({"active", Value::flag(subscriber.active() == "t")});
    } else if (found.notFound()) {
        fields.push_back({"sid", Value::none()});
    } else {
        return fromResult(found, "subscriber of " + aor.text());
    }
    fields.push_back({"served_by", servedBy(service.isLocalUser(user, domain))});
    std::string identity;
    velm::DatabaseResult named = service.getIdentity(user, domain, identity);
    if (!named.okay() && !named.notFound())
        return fromResult(named, "identity of " + aor.text());
    fields.push_back({"identity", identity.empty() ? Value::none() : Value(identity)});
    output.record(aor.text(), fields);
    return showContacts(session, aor, "contacts", output);
}

Outcome visitor(const Arguments& arguments, Output& output) {
    std::string action;
    Outcome outcome = word(arguments, 1, "visitor action (fetch, list, expire)", action);
    if (!outcome.ok())
        return outcome;
    std::vector<std::string> given;
    if (action == "fetch")
        outcome = expectArguments(arguments, {"visitor action", "address of record"}, {}, given);
    else if (action == "list" || action == "expire")
        outcome = expectArguments(arguments, {"visitor action"}, {}, given);
    else
        return usage("unknown visitor action '" + action + "'");
    Aor aor;
    if (outcome.ok() && action == "fetch")
        outcome = parseAor(given[1], aor);
    Session session;
    outcome = openSession(outcome, arguments, session);
    if (!outcome.ok())
        return outcome;
    velm::LocationService& service = *session.service();
    std::vector<Row> rows;

    if (action == "fetch") {
        velm::SubscriberRecord subscriber;
        outcome = fromResult(service.lookupSubscriberPassword(aor.user.c_str(), aor.domain.c_str(), subscriber),
                             "fetching " + aor.text());
        if (!outcome.ok())
            return outcome;
        output.record(aor.text(), {{"sid", Value::number(subscriber.sid())},
                                   {"auth_user", subscriber.userId()},
                                   {"served_by", subscriber.isLocal() ? "this node" : "another node (visiting)"}});
        outcome = visitors(service, subscriber.sid(), rows);
        if (outcome.ok())
            output.table("recorded visitor", VISITOR_COLUMNS, rows);
        return outcome;
    }
    if (action == "list") {
        outcome = visitors(service, 0, rows);
        if (outcome.ok())
            output.table("visitors", VISITOR_COLUMNS, rows);
        return outcome;
    }
    outcome = visitors(service, 0, rows);
    size_t before = rows.size();
    if (outcome.ok())
        outcome = fromResult(service.removeExpiredVisitingUsers(), "removing expired visitors");
    rows.clear();
    if (outcome.ok())
        outcome = visitors(service, 0, rows);
    if (outcome.ok())
        output.note("removed " + std::to_string(before - rows.size()) + " expired visitor(s)");
    return outcome;
}

const CommandRegistration LOOKUP("lookup",
    "  lookup AOR                   public address, contact set, subscriber, serving node, identity\n", lookup);
const CommandRegistration VISITOR("visitor",
    "  visitor fetch AOR            learn a visitor from its home node's administration service\n"
    "  visitor list | expire        the recorded visitors; remove the expired ones\n",
    visitor);

} // namespace

} // namespace velmctl
