// SubscriberRecord: one subscriber.
#ifndef VELM_SUBSCRIBERRECORD_H
#define VELM_SUBSCRIBERRECORD_H

#include "RecordText.h"

#include <string>

namespace velm {

// One subscriber. `m_password` is the clear text once read through
// lookupSubscriber; `m_isLocal` is decided by the location service, not read
// from a column. `m_sid` and `m_isLocal` mean nothing until someone sets them.
class SubscriberRecord {
public:
    int sid() const { return m_sid; }
    const std::string& userId() const { return m_uid; }
    const std::string& type() const { return m_type; }
    const std::string& authType() const { return m_authType; }
    const std::string& password() const { return m_password; }
    const std::string& active() const { return m_active; }
    bool isLocal() const { return m_isLocal; }

    void setId(int sid) { m_sid = sid; }
    void setUserId(const char* uid) { assignUnlessNull(m_uid, uid); }
    void setUserId(const std::string& uid) { m_uid = uid; }
    void setType(const char* type) { assignUnlessNull(m_type, type); }
    void setType(const std::string& type) { m_type = type; }
    void setAuthType(const char* authType) { assignUnlessNull(m_authType, authType); }
    void setAuthType(const std::string& authType) { m_authType = authType; }
    void setPassword(const char* password) { assignUnlessNull(m_password, password); }
    void setPassword(const std::string& password) { m_password = password; }
    // A zero character leaves the flag as it was.
    void setActive(char c) {
        if (c != '\0')
            m_active = std::string(1, c);
    }
    void setIsLocal(bool isLocal) { m_isLocal = isLocal; }

    int m_sid = -1;
    std::string m_uid;
    std::string m_type;
    std::string m_authType;
    std::string m_password;
    std::string m_active;
    bool m_isLocal = false;
};

} // namespace velm

#endif
