// ContactRecord: one registered contact of a contact set.
#ifndef VELM_CONTACTRECORD_H
#define VELM_CONTACTRECORD_H

#include "RecordText.h"

#include <string>

namespace velm {

// One registered contact of a contact set, with the public address it was
// registered for. `m_expires` is an absolute time in seconds since the epoch;
// `m_permanent` is "t" for a contact that never expires.
class ContactRecord {
public:
    int contactId() const { return m_contact_id; }
    const std::string& user() const { return m_user; }
    const std::string& domain() const { return m_domain; }
    const std::string& address() const { return m_address; }
    int csid() const { return m_csid; }
    const std::string& qvalue() const { return m_qvalue; }
    long expires() const { return m_expires; }
    const std::string& permanent() const { return m_permanent; }
    const std::string& capabilities() const { return m_capabilities; }
    const std::string& contactHeader() const { return m_contactHeader; }
    const std::string& callId() const { return m_callId; }
    const std::string& type() const { return m_type; }
    long cseq() const { return m_cseq; }
    const std::string& pathVector() const { return m_pathVector; }

    void setContactid(int id) { m_contact_id = id; }
    void setUser(const char* user) { assignUnlessNull(m_user, user); }
    void setUser(const std::string& user) { m_user = user; }
    void setDomain(const char* domain) { assignUnlessNull(m_domain, domain); }
    void setDomain(const std::string& domain) { m_domain = domain; }
    void setAddress(const char* address) { assignUnlessNull(m_address, address); }
    void setAddress(const std::string& address) { m_address = address; }
    void setCsid(int csid) { m_csid = csid; }
    void setQvalue(const char* qvalue) { assignUnlessNull(m_qvalue, qvalue); }
    void setQvalue(const std::string& qvalue) { m_qvalue = qvalue; }
    void setExpires(long expires) { m_expires = expires; }
    // Stores the character as a one-character text, even a zero character.
    void setPermanent(char c) { m_permanent = std::string(1, c); }
    void setCapabilities(const char* capabilities) { assignUnlessNull(m_capabilities, capabilities); }
    void setCapabilities(const std::string& capabilities) { m_capabilities = capabilities; }
    void setContactHeader(const char* header) { assignUnlessNull(m_contactHeader, header); }
    void setContactHeader(const std::string& header) { m_contactHeader = header; }
    void setCallId(const char* callId) { assignUnlessNull(m_callId, callId); }
    void setCallId(const std::string& callId) { m_callId = callId; }
    void setType(const char* type) { assignUnlessNull(m_type, type); }
    void setType(const std::string& type) { m_type = type; }
    void setCseq(long cseq) { m_cseq = cseq; }
    void setPathVector(const char* pathVector) { assignUnlessNull(m_pathVector, pathVector); }
    void setPathVector(const std::string& pathVector) { m_pathVector = pathVector; }

    int m_contact_id = -1;
    std::string m_user;
    std::string m_domain;
    std::string m_address;
    int m_csid = -1;
    std::string m_qvalue;
    long m_expires = 0;
    std::string m_permanent = "f";
    std::string m_capabilities;
    std::string m_contactHeader;
    std::string m_callId;
    std::string m_type;
    long m_cseq = 0;
    std::string m_pathVector;
};

} // namespace velm

#endif
