// The policy checks: inbound domain access and emergency contacts.
#include "LocationService.h"

#include "DatabaseCommandExecutor.h"
#include "DomainAccess.h"

namespace velm {

namespace {

DatabaseResult badParameter(const char* message) {
    DatabaseResult result;
    result.setBadParameter();
    result.setErrorMessage(message);
    return result;
}

bool deniesInbound(const DomainAccess& rule, const char* domain) {
    return rule.domain() == domain && (rule.direction() == "i" || rule.direction() == "*") && rule.action() == "d";
}

} // namespace

DatabaseResult LocationService::checkInboundDomainAccess(const char* domain, bool& allowed) {
    return guarded("checkInboundDomainAccess", [&](DatabaseCommandExecutor& exec) {
        if (domain == nullptr)
            return badParameter("checkInboundDomainAccess: null domain");
        m_trace.prn("checking inbound domain access list");
        std::vector<DomainAccess> rules;
        DatabaseResult result = exec.getDomainAccessList(rules);
        if (!result.okay()) {
            if (!result.fatalError())
                m_trace.prn("database error");
            return result;
        }
        // A deny applies wherever it stands: an earlier allow does not end the walk.
        allowed = true;
        for (const DomainAccess& rule : rules)
            if (deniesInbound(rule, domain)) {
                allowed = false;
                break;
            }
        return result;
    });
}

DatabaseResult LocationService::isEmergencyContact(const char* contact, bool& isEmergency) {
    return guarded("isEmergencyContact", [&](DatabaseCommandExecutor& exec) {
        if (contact == nullptr)
            return badParameter("isEmergencyContact: null contact");
        m_trace.prn("getting emergency contact ids");
        std::vector<std::string> ids;
        DatabaseResult result = exec.getEmergencyCallIds(ids);
        if (!result.okay()) {
            if (!result.fatalError())
                m_trace.prn("execute failed");
            return result;
        }
        m_trace.prn("emergency ids contains %d element(s)", static_cast<int>(ids.size()));
        isEmergency = false;
        for (const std::string& id : ids)
            if (id == contact) {
                isEmergency = true;
                break;
            }
        return result;
    });
}

DatabaseResult LocationService::isEmergencyContact(const std::string& contact, bool& isEmergency) {
    return isEmergencyContact(contact.c_str(), isEmergency);
}

} // namespace velm
