// HostInfo: this node's system settings.
#ifndef VELM_HOSTINFO_H
#define VELM_HOSTINFO_H

#include "RecordText.h"

#include <string>

namespace velm {

// This node's system settings. Outbound calls to internal destinations are
// allowed and to external ones forbidden until the settings say otherwise.
class HostInfo {
public:
    const std::string& nodeType() const { return m_nodeType; }
    const std::string& parent() const { return m_parent; }
    const std::string& parentContact() const { return m_parentContact; }
    const std::string& topUrl() const { return m_topUrl; }
    const std::string& serverName() const { return m_serverName; }
    const std::string& outboundProxy() const { return m_outboundProxy; }
    const std::string& outboundDirect() const { return m_outboundDirect; }
    bool outboundAllowInternal() const { return m_outboundAllowInternal; }
    bool outboundAllowExternal() const { return m_outboundAllowExternal; }

    void setNodeType(const char* value) { assignUnlessNull(m_nodeType, value); }
    void setNodeType(const std::string& value) { m_nodeType = value; }
    void setParent(const char* value) { assignUnlessNull(m_parent, value); }
    void setParent(const std::string& value) { m_parent = value; }
    void setParentContact(const char* value) { assignUnlessNull(m_parentContact, value); }
    void setParentContact(const std::string& value) { m_parentContact = value; }
    void setTopUrl(const char* value) { assignUnlessNull(m_topUrl, value); }
    void setTopUrl(const std::string& value) { m_topUrl = value; }
    void setServerName(const char* value) { assignUnlessNull(m_serverName, value); }
    void setServerName(const std::string& value) { m_serverName = value; }
    void setOutboundProxy(const char* value) { assignUnlessNull(m_outboundProxy, value); }
    void setOutboundProxy(const std::string& value) { m_outboundProxy = value; }
    void setOutboundDirect(const char* value) { assignUnlessNull(m_outboundDirect, value); }
    void setOutboundDirect(const std::string& value) { m_outboundDirect = value; }
    void setOutboundAllowInternal(bool allow) { m_outboundAllowInternal = allow; }
    void setOutboundAllowExternal(bool allow) { m_outboundAllowExternal = allow; }

    std::string m_nodeType;
    std::string m_parent;
    std::string m_parentContact;
    std::string m_topUrl;
    std::string m_serverName;
    std::string m_outboundProxy;
    std::string m_outboundDirect;
    bool m_outboundAllowInternal = true;
    bool m_outboundAllowExternal = false;
};

} // namespace velm

#endif
