// The policy answers a server asks for a request: trusted host, inbound
// domain access, emergency contact.
#include "CommandRegistry.h"
#include "CommandSupport.h"
#include "LibraryMessages.h"
#include "LocationService.h"
#include "TrustedHostRecord.h"

namespace velmctl {

namespace {

const char* const QUESTION = "policy question (trusted, domain, emergency)";

Outcome failed(const velm::DatabaseResult& result, const std::string& context) {
    Status status = result.badParameter() ? BAD_INPUT : DATABASE_ERROR;
    return Outcome::failure(status, context + ": " + operatorWords(result.getErrorMessage()));
}

Outcome trusted(velm::LocationService& service, const std::string& host, const std::string& hostName,
                Output& output) {
    // As a server starts: read the table, then hand the list to every thread.
    std::vector<velm::TrustedHostRecord> hosts;
    velm::DatabaseResult result = service.queryTrustedHosts(hosts);
    if (!result.okay())
        return failed(result, "reading trusted hosts");
    service.setTrustedHosts(hosts);
    velm::TrustedHostRecord record;
    bool found = service.getTrustedHost(host.c_str(), hostName.c_str(), record);
    output.table("trusted host", {"host", "host_name", "trusted", "matched", "perform_orig_proc"},
                 {{host, hostName, Value::flag(found), found ? Value(record.getName()) : Value::none(),
                   found ? Value::flag(record.getPerformOrigProc()) : Value::none()}});
    return Outcome();
}

Outcome domain(velm::LocationService& service, const std::string& domain, Output& output) {
    bool allowed = false;
    velm::DatabaseResult result = service.checkInboundDomainAccess(domain.c_str(), allowed);
    if (!result.okay())
        return failed(result, "checking " + domain);
    output.table("inbound domain access", {"domain", "allowed"}, {{domain, Value::flag(allowed)}});
    return Outcome();
}

Outcome emergency(velm::LocationService& service, const std::string& contact, Output& output) {
    bool isEmergency = false;
    velm::DatabaseResult result = service.isEmergencyContact(contact, isEmergency);
    if (!result.okay())
        return failed(result, "checking " + contact);
    output.table("emergency contact", {"contact", "emergency"}, {{contact, Value::flag(isEmergency)}});
    return Outcome();
}

Outcome policy(const Arguments& arguments, Output& output) {
    std::string question;
    Outcome outcome = word(arguments, 1, QUESTION, question);
    std::vector<std::string> given;
    if (outcome.ok() && question == "trusted") {
        // The host name is optional.
        bool named = arguments.words().size() > 3;
        outcome = named ? expectArguments(arguments, {QUESTION, "host", "host name"}, {}, given)
                        : expectArguments(arguments, {QUESTION, "host"}, {}, given);
        given.resize(3);
    } else if (outcome.ok() && question == "domain") {
        outcome = expectArguments(arguments, {QUESTION, "domain"}, {}, given);
    } else if (outcome.ok() && question == "emergency") {
        outcome = expectArguments(arguments, {QUESTION, "contact"}, {}, given);
    } else if (outcome.ok()) {
        outcome = usage("unknown policy question '" + question + "'");
    }
    Session session;
    outcome = openSession(outcome, arguments, session);
    if (!outcome.ok())
        return outcome;
    velm::LocationService& service = *session.service();
    if (question == "trusted")
        return trusted(service, given[1], given[2], output);
    return question == "domain" ? domain(service, given[1], output) : emergency(service, given[1], output);
}

const CommandRegistration POLICY("policy",
    "  policy trusted HOST [HOSTNAME]\n"
    "                               whether the trusted hosts hold HOSTNAME, else HOST\n"
    "  policy domain DOMAIN         whether inbound requests for DOMAIN are allowed\n"
    "  policy emergency CONTACT     whether CONTACT is an emergency id\n",
    policy);

} // namespace

} // namespace velmctl
