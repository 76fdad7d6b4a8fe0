// DomainAccess: one inbound or outbound domain rule.
#ifndef VELM_DOMAINACCESS_H
#define VELM_DOMAINACCESS_H

#include "RecordText.h"

#include <string>

namespace velm {

// One inbound/outbound domain rule: what to do (`m_action`) with requests of
// `m_direction` for `m_domain`.
class DomainAccess {
public:
    int domainId() const { return m_domain_id; }
    const std::string& domain() const { return m_domain; }
    const std::string& action() const { return m_action; }
    const std::string& direction() const { return m_direction; }

    void setDomainId(int id) { m_domain_id = id; }
    void setDomain(const char* domain) { assignUnlessNull(m_domain, domain); }
    void setDomain(const std::string& domain) { m_domain = domain; }
    void setAction(const char* action) { assignUnlessNull(m_action, action); }
    void setAction(const std::string& action) { m_action = action; }
    void setDirection(const char* direction) { assignUnlessNull(m_direction, direction); }
    void setDirection(const std::string& direction) { m_direction = direction; }

    int m_domain_id = -1;
    std::string m_domain;
    std::string m_action;
    std::string m_direction;
};

} // namespace velm

#endif
