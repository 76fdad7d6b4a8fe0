// The subscriber commands: add one, list them page by page, remove one with all that is its.
#include "CommandRegistry.h"
#include "CommandSupport.h"
#include "Inventory.h"
#include "Paging.h"

namespace velmctl {

namespace {

const char* const ACTION = "subscriber action (add, list, remove)";

Outcome add(Session& session, const Aor& aor, const Arguments& arguments, Output& output) {
    Outcome outcome = session.addSubscriber(aor, arguments.option("--password"));
    if (outcome.ok())
        output.note("added subscriber " + aor.text());
    return outcome;
}

Outcome list(Session& session, const Page& page, Output& output) {
    std::vector<Row> rows;
    long read = 0;
    Outcome outcome = Inventory(*session.service()).subscribers(page, rows, read);
    if (!outcome.ok())
        return outcome;
    output.table("subscribers", {"sid", "auth_user", "active", "type", "password", "addresses", "contacts"}, rows);
    page.report(read, output);
    return outcome;
}

Outcome remove(Session& session, const Aor& aor, Output& output) {
    Fields removed;
    Outcome outcome = Inventory(*session.service()).removeSubscriber(aor, removed);
    if (outcome.ok())
        output.record("removed subscriber of " + aor.text(), removed);
    return outcome;
}

Outcome subscriber(const Arguments& arguments, Output& output) {
    std::string action;
    Outcome outcome = word(arguments, 1, ACTION, action);
    std::vector<std::string> given;
    Page page;
    if (outcome.ok() && action == "add")
        outcome = expectArguments(arguments, {ACTION, "address of record"}, {"--password"}, given);
    else if (outcome.ok() && action == "remove")
        outcome = expectArguments(arguments, {ACTION, "address of record"}, {}, given);
    else if (outcome.ok() && action == "list")
        outcome = expectArguments(arguments, {ACTION}, Page::OPTIONS, given);
    else if (outcome.ok())
        outcome = usage("unknown subscriber action '" + action + "'");
    Aor aor;
    if (outcome.ok() && action != "list")
        outcome = parseAor(given[1], aor);
    if (outcome.ok() && action == "list")
        outcome = page.read(arguments);
    Session session;
    outcome = openSession(outcome, arguments, session);
    if (!outcome.ok())
        return outcome;
    if (action == "add")
        return add(session, aor, arguments, output);
    return action == "list" ? list(session, page, output) : remove(session, aor, output);
}

const CommandRegistration SUBSCRIBER("subscriber",
    "  subscriber add AOR [--password PASSWORD]\n"
    "  subscriber list [--like PATTERN] [--limit N] [--offset N]\n"
    "                               subscribers sorted by user id: --limit of them (default 100)\n"
    "                               after --offset, and the next page's offset; PATTERN is SQL\n"
    "                               LIKE (%, _) on the user id or an address, case ignored\n"
    "  subscriber remove AOR        the subscriber owning AOR, with its addresses and contacts\n",
    subscriber);

} // namespace

} // namespace velmctl
