// The whole-database views: every registration, page by page, and the counts of what is stored.
#include "CommandRegistry.h"
#include "CommandSupport.h"
#include "Inventory.h"
#include "Paging.h"

namespace velmctl {

namespace {

Outcome registrations(const Arguments& arguments, Output& output) {
    std::vector<std::string> none;
    std::vector<std::string> options = Page::OPTIONS;
    options.push_back("--expired");
    Outcome outcome = expectArguments(arguments, {}, options, none);
    Page page;
    if (outcome.ok())
        outcome = page.read(arguments);
    Session session;
    outcome = openSession(outcome, arguments, session);
    std::vector<Registration> found;
    long read = 0;
    if (outcome.ok())
        outcome = Inventory(*session.service()).registrations(page, arguments.has("--expired"), found, read);
    if (!outcome.ok())
        return outcome;
    if (found.empty())
        output.note(arguments.has("--expired") ? "no expired contacts" : "no registrations");
    for (const Registration& registration : found)
        output.contacts("registration", registration.aor, registration.contacts);
    page.report(read, output);
    return outcome;
}

Outcome stats(const Arguments& arguments, Output& output) {
    std::vector<std::string> none;
    Outcome outcome = expectArguments(arguments, {}, {}, none);
    Session session;
    outcome = openSession(outcome, arguments, session);
    Fields counts;
    if (outcome.ok())
        outcome = Inventory(*session.service()).counts(counts);
    for (const auto& count : counts)
        output.field(count.first, count.second);
    return outcome;
}

const CommandRegistration REGISTRATIONS("registrations",
    "  registrations [--like PATTERN] [--expired] [--limit N] [--offset N]\n"
    "                               every address of record with its contacts, sorted by address;\n"
    "                               --expired: only expired contacts; paged as subscriber list\n",
    registrations);
const CommandRegistration STATS("stats",
    "  stats                        counts of subscribers, addresses, contacts by state, visitors,\n"
    "                               prefixes, address maps and conference bridges by state\n",
    stats);

} // namespace

} // namespace velmctl
