// The registration commands and the demo.
#include "CommandRegistry.h"
#include "CommandSupport.h"
#include "Input.h"
#include "Session.h"

#include <unistd.h>

#include <ctime>

namespace velmctl {

namespace {

Outcome registration(const Arguments& arguments, Output& output) {
    std::vector<std::string> given;
    Outcome outcome =
        expectArguments(arguments, {"address of record", "contact"}, {"--expires", "--q", "--call-id", "--cseq"}, given);
    Aor aor;
    ContactArg contact;
    long expires = 3600;
    long cseq = 1;
    std::string qvalue;
    if (outcome.ok())
        outcome = parseAor(given[0], aor);
    if (outcome.ok())
        outcome = parseContact(given[1], contact);
    if (outcome.ok() && arguments.has("--expires"))
        outcome = parseSeconds("--expires", arguments.option("--expires"), expires);
    if (outcome.ok() && arguments.has("--cseq"))
        outcome = parseNumber("--cseq", arguments.option("--cseq"), 0, MAX_CSEQ, cseq);
    if (outcome.ok() && arguments.has("--q"))
        outcome = parseQvalue(arguments.option("--q"), qvalue);
    if (!outcome.ok())
        return outcome;

    velm::ContactRecord record;
    record.setAddress(contact.uri);
    record.setContactHeader(contact.header);
    record.setQvalue(qvalue);
    record.setExpires(static_cast<long>(time(nullptr)) + expires);
    record.setCseq(cseq);
    record.setCallId(arguments.option("--call-id", "velmctl-" + std::to_string(getpid()) + "-" +
                                                       std::to_string(static_cast<long>(time(nullptr)))));
    Session session;
    Changes changes;
    outcome = openSession(outcome, arguments, session);
    if (outcome.ok())
        outcome = session.registerContact(aor, record, changes);
    if (outcome.ok())
        outcome = showContacts(session, aor, changes.added.empty() ? "refreshed" : "registered", output);
    return outcome;
}

Outcome unregistration(const Arguments& arguments, Output& output) {
    std::vector<std::string> given;
    Outcome outcome = expectArguments(arguments, {"address of record", "contact or '*'"}, {}, given);
    Aor aor;
    ContactArg contact{"*", "*"};
    if (outcome.ok())
        outcome = parseAor(given[0], aor);
    if (outcome.ok() && given[1] != "*")
        outcome = parseContact(given[1], contact);
    Session session;
    Changes changes;
    outcome = openSession(outcome, arguments, session);
    if (outcome.ok())
        outcome = session.unregisterContact(aor, contact, changes);
    if (outcome.ok())
        outcome = showContacts(session, aor, "unregistered " + std::to_string(changes.deleted.size()) + ", left", output);
    return outcome;
}

Outcome contacts(const Arguments& arguments, Output& output) {
    std::vector<std::string> given;
    Outcome outcome = expectArguments(arguments, {"address of record"}, {}, given);
    Aor aor;
    if (outcome.ok())
        outcome = parseAor(given[0], aor);
    Session session;
    outcome = openSession(outcome, arguments, session);
    if (outcome.ok())
        outcome = showContacts(session, aor, "contacts", output);
    return outcome;
}

Outcome expire(const Arguments& arguments, Output& output) {
    std::vector<std::string> none;
    Outcome outcome = expectArguments(arguments, {}, {}, none);
    Session session;
    Changes changes;
    outcome = openSession(outcome, arguments, session);
    if (outcome.ok())
        outcome = session.expire(changes);
    if (outcome.ok()) {
        output.note("removed " + std::to_string(changes.deleted.size()) + " expired contact(s)");
        output.contacts("removed", "", changes.deleted);
        output.contacts("made active", "", changes.changed);
    }
    return outcome;
}

Outcome demo(const Arguments& arguments, Output& output) {
    std::vector<std::string> none;
    Outcome outcome = expectArguments(arguments, {}, {}, none);
    Session session;
    outcome = openSession(outcome, arguments, session);
    if (!outcome.ok())
        return outcome;

    const Aor alice{"alice", "demo.velm.test"};
    const Aor bob{"bob", "demo.velm.test"};
    // Provision once; later runs start from empty contact sets.
    for (const Aor& aor : {alice, bob}) {
        Outcome added = session.addSubscriber(aor, "");
        if (!added.ok() && added.status != BAD_INPUT)
            return added;
        Changes cleared;
        Outcome unregistered = session.unregisterContact(aor, ContactArg{"*", "*"}, cleared);
        if (!unregistered.ok() && unregistered.status != NOT_FOUND)
            return unregistered;
    }
    auto contact = [](const std::string& uri, const std::string& qvalue, long expiresIn, long cseq) {
        velm::ContactRecord record;
        record.setAddress(uri);
        record.setContactHeader("<" + uri + ">");
        record.setQvalue(qvalue);
        record.setExpires(static_cast<long>(time(nullptr)) + expiresIn);
        record.setCallId("demo-" + uri);
        record.setCseq(cseq);
        return record;
    };
    const std::string desk = "sip:alice@192.0.2.10:5060";
    const std::string mobile = "sip:alice@192.0.2.20:5060;transport=tcp";
    struct Step {
        const char* title;
        const Aor& aor;
        velm::ContactRecord contact;
        bool unregister;
    };
    const Step steps[] = {
        {"1. alice registers her desk phone", alice, contact(desk, "", 3600, 1), false},
        {"2. alice registers her mobile, which becomes the active contact", alice, contact(mobile, "1.0", 600, 1), false},
        {"3. bob registers", bob, contact("sip:bob@198.51.100.7:5060", "", 3600, 1), false},
        {"4. alice's desk phone refreshes its registration", alice, contact(desk, "", 7200, 2), false},
        {"5. alice's mobile unregisters; the desk phone becomes active", alice, contact(mobile, "", 0, 2), true},
    };
    for (const Step& step : steps) {
        Changes changes;
        outcome = step.unregister
                      ? session.unregisterContact(step.aor, ContactArg{step.contact.address(), step.contact.contactHeader()},
                                                  changes)
                      : session.registerContact(step.aor, step.contact, changes);
        if (outcome.ok())
            outcome = showContacts(session, step.aor, step.title, output);
        if (!outcome.ok())
            return outcome;
    }
    return outcome;
}


const CommandRegistration REGISTER("register",
    "  register AOR CONTACT [--expires SECONDS] [--q VALUE] [--call-id ID] [--cseq N]\n", registration);
const CommandRegistration UNREGISTER("unregister", "  unregister AOR CONTACT|'*'\n", unregistration);
const CommandRegistration CONTACTS("contacts", "  contacts AOR\n", contacts);
const CommandRegistration EXPIRE("expire", "  expire                       remove expired contacts\n", expire);
const CommandRegistration DEMO("demo",
    "  demo                         provision, register, refresh and unregister, showing each step\n", demo);

} // namespace

} // namespace velmctl
