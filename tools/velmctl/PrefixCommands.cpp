// The digit-prefix routing commands: the rows of prefix_map, a trial routing
// of a number, and adding or removing a row (which raises the change counter
// that the servers' monitor threads poll).
#include "CommandRegistry.h"
#include "CommandSupport.h"
#include "DatabaseCommandExecutor.h"
#include "EscapedString.h"
#include "LibraryMessages.h"
#include "LocationService.h"
#include "PrefixMapRecord.h"
#include "QueryResultPtr.h"
#include "QuietStdout.h"
#include "SafeLock.h"

namespace velmctl {

namespace {

Outcome failed(const velm::DatabaseResult& result, const std::string& context) {
    std::string message = operatorWords(result.getErrorMessage());
    return Outcome::failure(DATABASE_ERROR, context + ": " + message.substr(0, message.find('\n')));
}

// A prefix as the tree compares it, character by character with the user
// part of a request URI: a word without blanks, quotes or control characters.
Outcome parsePrefix(const std::string& text) {
    if (text.empty())
        return Outcome::failure(BAD_INPUT, "the prefix must not be empty");
    for (unsigned char c : text)
        if (c <= ' ' || c == 0x7f || c == '\'' || c == '"' || c == '@')
            return Outcome::failure(BAD_INPUT, "prefix '" + text + "' must not contain blanks, quotes, '@' or "
                                                                    "control characters");
    if (!isUtf8(text))
        return Outcome::failure(BAD_INPUT, "prefix is not UTF-8");
    return Outcome();
}

Outcome counterNote(velm::LocationService& service, const std::string& done, Output& output) {
    int counter = 0;
    velm::DatabaseResult result = service.checkPrefixMap(&counter);
    if (!result.okay())
        return failed(result, done + ", but reading the change counter failed");
    output.note(done + "; prefix_map change counter now " + std::to_string(counter));
    return Outcome();
}

Outcome list(velm::LocationService& service, Output& output) {
    std::vector<velm::PrefixMapRecord> maps;
    velm::DatabaseResult result;
    {
        QuietStdout quiet;
        result = service.getPrefixMap(maps);
    }
    if (!result.okay())
        return failed(result, "reading prefix_map");
    std::vector<Row> rows;
    for (const velm::PrefixMapRecord& map : maps)
        rows.push_back({map.prefix(), Value::number(map.csid()), Value::number(map.total_length())});
    output.table("prefix map, in the order the tree applies it (of two equal prefixes the later wins)",
                 {"prefix", "csid", "total_length"}, rows);
    return Outcome();
}

Outcome lookup(velm::LocationService& service, const std::string& address, Output& output) {
    Aor aor;
    Outcome outcome = parseAor(address, aor);
    if (!outcome.ok())
        return outcome;
    velm::DatabaseResult result;
    {
        QuietStdout quiet;
        result = service.createPrefixMap();
    }
    if (!result.okay())
        return failed(result, "building the prefix tree");
    int csid = 0;
    osk::withCancelSafeLock(velm::LocationService::m_mutexPrefix, [&] {
        service.findPrefix(aor.user.c_str(), csid, 0, velm::LocationService::m_prefixMap);
    });
    std::string ordering;
    bool redirect = false;
    std::vector<velm::ContactRecord> contacts;
    result = service.lookupDigitMap(("sip:" + aor.text()).c_str(), ordering, redirect, contacts);
    service.destroyPrefixmap();
    const std::string set = "contact set " + std::to_string(csid);
    if (result.okay()) {
        output.contacts("routed by prefix to " + set + " (" + ordering + ")", aor.text(), contacts);
        return Outcome();
    }
    if (result.notFound() && result.getErrorMessage() == "lookupDigitMap passed visiting user")
        return Outcome::failure(NOT_FOUND, aor.text() + ": " + operatorWords(result.getErrorMessage()));
    if (result.notFound())
        return Outcome::failure(NOT_FOUND, "no prefix routes '" + aor.user + "'");
    if (result.getErrorMessage() == "no contact found")
        return Outcome::failure(NOT_FOUND, "'" + aor.user + "' goes to " + set + ", which has no contacts");
    return failed(result, "routing " + aor.text());
}

Outcome add(velm::LocationService& service, const std::vector<std::string>& given, const Arguments& arguments,
            Output& output) {
    const std::string& prefix = given[1];
    long csid = 0;
    long length = 0;
    Outcome outcome = parsePrefix(prefix);
    if (outcome.ok())
        outcome = parseNumber("CSID", given[2], 1, 2147483647L, csid);
    if (outcome.ok() && arguments.has("--length"))
        outcome = parseNumber("--length", arguments.option("--length"), 0, 2147483647L, length);
    if (outcome.ok() && length > 0 && static_cast<size_t>(length) < prefix.size())
        outcome = Outcome::failure(BAD_INPUT, "--length " + std::to_string(length) + " is shorter than prefix '" +
                                                  prefix + "': no number could match");
    if (!outcome.ok())
        return outcome;

    velm::DatabaseCommandExecutor& exec = *service.m_exec;
    velm::EscapedString text(prefix);
    velm::QueryResultPtr existing;
    velm::DatabaseResult result =
        exec.execute(std::string("SELECT csid FROM prefix_map WHERE prefix = '") + text.value() + "'", existing);
    if (result.okay() && existing.rows() > 0)
        return Outcome::failure(BAD_INPUT, "prefix '" + prefix + "' exists already (contact set " +
                                               existing.getValue(0, 0) + "): remove it first");
    velm::QueryResultPtr sets;
    if (result.okay())
        result = exec.execute("SELECT 1 FROM contact_set WHERE csid = " + std::to_string(csid), sets);
    if (result.okay() && sets.rows() == 0)
        return Outcome::failure(NOT_FOUND, "no contact set " + std::to_string(csid));
    if (result.okay())
        result = exec.execute(std::string("INSERT INTO prefix_map (prefix, csid, total_length) VALUES ('") +
                              text.value() + "', " + std::to_string(csid) + ", " + std::to_string(length) + ")");
    if (!result.okay())
        return failed(result, "adding prefix '" + prefix + "'");
    return counterNote(service, "added prefix '" + prefix + "' for contact set " + std::to_string(csid), output);
}

Outcome remove(velm::LocationService& service, const std::string& prefix, Output& output) {
    Outcome outcome = parsePrefix(prefix);
    if (!outcome.ok())
        return outcome;
    // Looked for first: a DELETE of nothing would still raise the counter
    // and make every server rebuild its tree.
    const std::string where = std::string(" FROM prefix_map WHERE prefix = '") + velm::EscapedString(prefix).value() + "'";
    velm::QueryResultPtr existing;
    velm::DatabaseResult result = service.m_exec->execute("SELECT 1" + where, existing);
    if (result.okay() && existing.rows() == 0)
        return Outcome::failure(NOT_FOUND, "no prefix '" + prefix + "'");
    if (result.okay())
        result = service.m_exec->execute("DELETE" + where);
    if (!result.okay())
        return failed(result, "removing prefix '" + prefix + "'");
    return counterNote(service, "removed prefix '" + prefix + "'", output);
}

Outcome prefix(const Arguments& arguments, Output& output) {
    std::string action;
    Outcome outcome = word(arguments, 1, "prefix action (list, lookup, add, remove)", action);
    std::vector<std::string> given;
    if (outcome.ok()) {
        if (action == "list")
            outcome = expectArguments(arguments, {"prefix action"}, {}, given);
        else if (action == "lookup")
            outcome = expectArguments(arguments, {"prefix action", "NUMBER@DOMAIN"}, {}, given);
        else if (action == "add")
            outcome = expectArguments(arguments, {"prefix action", "PREFIX", "CSID"}, {"--length"}, given);
        else if (action == "remove")
            outcome = expectArguments(arguments, {"prefix action", "PREFIX"}, {}, given);
        else
            outcome = usage("unknown prefix action '" + action + "'");
    }
    Session session;
    outcome = openSession(outcome, arguments, session);
    if (!outcome.ok())
        return outcome;
    velm::LocationService& service = *session.service();
    if (action == "list")
        return list(service, output);
    if (action == "lookup")
        return lookup(service, given[1], output);
    if (action == "add")
        return add(service, given, arguments, output);
    return remove(service, given[1], output);
}

const CommandRegistration PREFIX("prefix",
    "  prefix list                  the digit-prefix routes\n"
    "  prefix lookup NUMBER@DOMAIN  the contact set and contacts a number is routed to\n"
    "  prefix add PREFIX CSID [--length N] | remove PREFIX\n",
    prefix);

} // namespace

} // namespace velmctl
