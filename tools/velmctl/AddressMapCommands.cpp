// The address maps: the rows as stored, and how a request URI is routed.
#include "AddressMap.h"
#include "AddressMapRecord.h"
#include "CommandRegistry.h"
#include "CommandSupport.h"
#include "DatabaseCommandExecutor.h"
#include "LibraryMessages.h"
#include "LocationService.h"
#include "RegExp.h"
#include "Uri.h"


namespace velmctl {

namespace {

// What an operator should know about a pattern before a request meets it.
std::string patternNote(const std::string& pattern) {
    if (pattern.empty())
        return "empty: matches every request";
    velm::RegExp expression;
    return expression.compile(pattern.c_str(), false) ? "" : "does not compile: matches nothing";
}

Outcome fromLookup(const velm::DatabaseResult& result, const std::string& context) {
    return Outcome::failure(result.notFound() ? NOT_FOUND : DATABASE_ERROR,
                            context + ": " + operatorWords(result.getErrorMessage()));
}

Outcome list(Session& session, Output& output) {
    std::vector<velm::AddressMapRecord> rows;
    velm::DatabaseResult result = session.service()->m_exec->getAddressMaps(rows);
    if (!result.okay())
        return fromLookup(result, "reading address maps");
    std::vector<Row> table;
    for (const velm::AddressMapRecord& row : rows)
        table.push_back({Value::number(row.priority()), row.handle() + "-" + std::to_string(row.csid()), row.pattern(),
                         Value::number(row.csid()), row.ordering(), Value::flag(row.replaceUri()),
                         row.modTime() == 0 ? Value::none() : Value::utcTime(row.modTime()), patternNote(row.pattern())});
    output.table("address maps, in the order they are tried",
                 {"priority", "key", "pattern", "csid", "ordering", "replace_uri", "modified_at", "note"}, table);
    return Outcome();
}

Outcome test(Session& session, const std::string& requestUri, Output& output) {
    osk::Uri uri(requestUri);
    if (!uri.isValid())
        return Outcome::failure(BAD_INPUT, "request URI '" + requestUri + "': " + uri.errorMessage());
    if (uri.getUser() == nullptr)
        return Outcome::failure(BAD_INPUT, "request URI '" + requestUri + "' has no user part");
    velm::LocationService& service = *session.service();
    std::string ordering;
    bool redirect = false;
    std::vector<velm::ContactRecord> contacts;
    velm::DatabaseResult result = service.lookupAddressMap(requestUri.c_str(), ordering, redirect, contacts);
    if (!result.okay() && !result.notFound())
        return fromLookup(result, "routing " + requestUri);

    // The entries as the lookup left them, tried in order up to the first match.
    std::vector<Row> tried;
    for (velm::AddressMap* entry : service.m_addrMap) {
        bool matched = entry->matches(requestUri.c_str());
        tried.push_back({Value::number(static_cast<long long>(tried.size()) + 1), entry->key(), entry->pattern(),
                         Value::flag(matched)});
        if (matched)
            break;
    }
    output.table("address maps tried for " + requestUri, {"order", "key", "pattern", "matched"}, tried);
    if (!result.okay()) {
        std::string why = result.getErrorMessage().empty() ? "no address map matches" : operatorWords(result.getErrorMessage());
        return Outcome::failure(NOT_FOUND, requestUri + ": " + why);
    }
    output.contacts("routed (" + ordering + (redirect ? ", replace URI" : "") + ")", requestUri, contacts);
    return Outcome();
}

Outcome addressMap(const Arguments& arguments, Output& output) {
    std::string action;
    Outcome outcome = word(arguments, 1, "addressmap action (list, test)", action);
    std::vector<std::string> given;
    if (outcome.ok() && action == "list")
        outcome = expectArguments(arguments, {"addressmap action (list, test)"}, {}, given);
    else if (outcome.ok() && action == "test")
        outcome = expectArguments(arguments, {"addressmap action (list, test)", "request URI"}, {}, given);
    else if (outcome.ok())
        outcome = usage("unknown addressmap action '" + action + "'");
    Session session;
    outcome = openSession(outcome, arguments, session);
    if (!outcome.ok())
        return outcome;
    return action == "list" ? list(session, output) : test(session, given[1], output);
}

const CommandRegistration ADDRESSMAP("addressmap",
    "  addressmap list              the address maps in the order they are tried\n"
    "  addressmap test REQUEST-URI  the maps tried for the URI, the match and the rewritten contacts\n",
    addressMap);

} // namespace

} // namespace velmctl
