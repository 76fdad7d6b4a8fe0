// PublicAddressRecord: one public address and its contact set.
#ifndef VELM_PUBLICADDRESSRECORD_H
#define VELM_PUBLICADDRESSRECORD_H

#include "RecordText.h"

#include <string>

namespace velm {

// One public address (handle@domain) and the contact set it belongs to.
class PublicAddressRecord {
public:
    int public_address_id() const { return m_public_address_id; }
    const std::string& handle() const { return m_handle; }
    const std::string& domain() const { return m_domain; }
    int csid() const { return m_csid; }
    const std::string& scope() const { return m_scope; }
    // Not stored in the database; only callers set it.
    const std::string& adminDomain() const { return m_adminDomain; }

    void setPublicAddressId(int id) { m_public_address_id = id; }
    void setHandle(const char* handle) { assignUnlessNull(m_handle, handle); }
    void setHandle(const std::string& handle) { m_handle = handle; }
    void setDomain(const char* domain) { assignUnlessNull(m_domain, domain); }
    void setDomain(const std::string& domain) { m_domain = domain; }
    void setCsid(int csid) { m_csid = csid; }
    void setScope(const char* scope) { assignUnlessNull(m_scope, scope); }
    void setScope(const std::string& scope) { m_scope = scope; }
    void setAdminDomain(const char* adminDomain) { assignUnlessNull(m_adminDomain, adminDomain); }
    void setAdminDomain(const std::string& adminDomain) { m_adminDomain = adminDomain; }

    int m_public_address_id = -1;
    std::string m_handle;
    std::string m_domain;
    int m_csid = -1;
    std::string m_scope;
    std::string m_adminDomain;
};

} // namespace velm

#endif
