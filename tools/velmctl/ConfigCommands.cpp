// What this node's configuration says: host information, QoS, node type, a
// proxy's settings, trace filters and event aggregators.
#include "CommandRegistry.h"
#include "CommandSupport.h"
#include "DatabaseCommandExecutor.h"
#include "HostInfo.h"
#include "LibraryMessages.h"
#include "LocationService.h"
#include "ProxyConfig.h"
#include "RemoteFilter.h"
#include "SipEventAggregator.h"

namespace velmctl {

namespace {

// Not found is an answer (the setting is not there); anything else failed.
bool failed(const velm::DatabaseResult& result, const std::string& context, Outcome& outcome) {
    if (result.okay() || result.notFound())
        return false;
    outcome = Outcome::failure(DATABASE_ERROR, context + ": " + operatorWords(result.getErrorMessage()));
    return true;
}

Outcome hostInformation(velm::LocationService& service, Output& output) {
    Outcome outcome;
    velm::HostInfo info;
    std::string nodeType;
    int qos = 0;
    velm::DatabaseResult qosRead;
    if (failed(service.m_exec->getHostInfo(info), "reading host information", outcome) ||
        failed(service.getNodeType(nodeType), "reading the node type", outcome) ||
        failed(qosRead = service.getQoS(&qos), "reading QoS", outcome))
        return outcome;
    output.table("host information", {"setting", "value"},
                 {{"node_type", nodeType},
                  {"qos", qosRead.okay() ? Value::number(qos) : Value::none()},
                  {"parent", info.parent()},
                  {"parent_contact", info.parentContact()},
                  {"top_url", info.topUrl()},
                  {"server_name", info.serverName()},
                  {"outbound_proxy", info.outboundProxy()},
                  {"outbound_direct", info.outboundDirect()},
                  {"outbound_allowed_internal", Value::flag(info.outboundAllowInternal())},
                  {"outbound_allowed_external", Value::flag(info.outboundAllowExternal())}});
    return outcome;
}

Outcome proxyConfiguration(velm::LocationService& service, const std::string& proxy, Output& output) {
    Outcome outcome;
    std::vector<velm::ProxyConfig> items;
    if (failed(service.getProxyConfig(proxy.c_str(), items), "reading the configuration of " + proxy, outcome))
        return outcome;
    std::vector<Row> rows;
    for (const velm::ProxyConfig& item : items)
        rows.push_back({item.scope(), item.name(), item.value()});
    output.table("proxy configuration of " + proxy, {"scope", "name", "value"}, rows);
    return outcome;
}

Outcome remoteFilters(velm::LocationService& service, Output& output) {
    Outcome outcome;
    std::vector<velm::remoteFilter> filters;
    std::string destination;
    velm::DatabaseResult result = service.getRemoteFilters(&filters, &destination);
    if (failed(result, "reading remote trace filters", outcome))
        return outcome;
    std::vector<Row> rows;
    for (const velm::remoteFilter& f : filters)
        rows.push_back({Value::number(f.fid()), Value::number(f.trid()), f.label(), f.methods(), f.from(), f.to(),
                        f.contact(), f.request(), f.response(), f.useragent(), f.type()});
    std::string title = "remote trace filters";
    if (!result.getErrorMessage().empty())
        title += " (no trace destination set)";
    else if (!destination.empty())
        title += " to " + destination;
    output.table(title,
                 {"fid", "trid", "label", "methods", "from", "to", "contact", "request", "response", "useragent", "type"},
                 rows);
    return outcome;
}

Outcome eventAggregators(velm::LocationService& service, Output& output) {
    Outcome outcome;
    std::vector<velm::SipEventAggregator> aggregators;
    if (failed(service.getSipEventAggregators(aggregators), "reading event aggregators", outcome))
        return outcome;
    std::vector<Row> rows;
    for (const velm::SipEventAggregator& a : aggregators)
        rows.push_back({Value::number(a.id()), Value::number(a.sid()), Value::number(a.nodeId()), a.aType(),
                        a.name(), a.fromName(), a.toName(), a.event(), a.docType(),
                        Value::number(a.presentityPerBatch()), Value::number(a.throttlingInterval()),
                        Value::number(a.csid()), a.address()});
    output.table("event aggregators, one row per contact",
                 {"id", "sid", "node_id", "a_type", "name", "from_name", "to_name", "event", "doc_type",
                  "presentity_per_batch", "throttling_interval", "csid", "address"},
                 rows);
    return outcome;
}

Outcome config(const Arguments& arguments, Output& output) {
    std::vector<std::string> given;
    Outcome outcome = expectArguments(arguments, {"config action (show)"}, {"--proxy"}, given);
    if (outcome.ok() && given[0] != "show")
        outcome = usage("unknown config action '" + given[0] + "'");
    Session session;
    outcome = openSession(outcome, arguments, session);
    if (!outcome.ok())
        return outcome;
    velm::LocationService& service = *session.service();
    outcome = hostInformation(service, output);
    if (outcome.ok())
        outcome = proxyConfiguration(service, arguments.option("--proxy", "velm"), output);
    if (outcome.ok())
        outcome = remoteFilters(service, output);
    if (outcome.ok())
        outcome = eventAggregators(service, output);
    return outcome;
}

const CommandRegistration CONFIG("config",
    "  config show [--proxy NAME]   host information, QoS, node type, the settings of proxy NAME\n"
    "                               (default velm), remote trace filters, event aggregators\n",
    config);

} // namespace

} // namespace velmctl
