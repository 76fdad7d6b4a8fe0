// ProxyConfig: one configuration item of a named proxy.
#ifndef VELM_PROXYCONFIG_H
#define VELM_PROXYCONFIG_H

#include "RecordText.h"

#include <string>

namespace velm {

// One configuration item of a named proxy.
class ProxyConfig {
public:
    const std::string& scope() const { return m_scope; }
    const std::string& name() const { return m_name; }
    const std::string& value() const { return m_value; }

    void setScope(const char* scope) { assignUnlessNull(m_scope, scope); }
    void setScope(const std::string& scope) { m_scope = scope; }
    void setName(const char* name) { assignUnlessNull(m_name, name); }
    void setName(const std::string& name) { m_name = name; }
    void setValue(const char* value) { assignUnlessNull(m_value, value); }
    void setValue(const std::string& value) { m_value = value; }

    std::string m_scope;
    std::string m_name;
    std::string m_value;
};

} // namespace velm

#endif
