// remoteFilter: one persistent trace filter assigned to this node.
#ifndef VELM_REMOTEFILTER_H
#define VELM_REMOTEFILTER_H

#include "RecordText.h"

#include <string>

namespace velm {

// One persistent trace filter assigned to this node.
class remoteFilter {
public:
    int fid() const { return m_fid; }
    int trid() const { return m_trid; }
    const std::string& label() const { return m_label; }
    const std::string& methods() const { return m_methods; }
    const std::string& from() const { return m_from; }
    const std::string& to() const { return m_to; }
    const std::string& contact() const { return m_contact; }
    const std::string& request() const { return m_request; }
    const std::string& response() const { return m_response; }
    const std::string& useragent() const { return m_useragent; }
    const std::string& type() const { return m_type; }

    void setFid(int fid) { m_fid = fid; }
    void setTrid(int trid) { m_trid = trid; }
    void setLabel(const char* v) { assignUnlessNull(m_label, v); }
    void setLabel(const std::string& v) { m_label = v; }
    void setMethods(const char* v) { assignUnlessNull(m_methods, v); }
    void setMethods(const std::string& v) { m_methods = v; }
    void setFrom(const char* v) { assignUnlessNull(m_from, v); }
    void setFrom(const std::string& v) { m_from = v; }
    void setTo(const char* v) { assignUnlessNull(m_to, v); }
    void setTo(const std::string& v) { m_to = v; }
    void setContact(const char* v) { assignUnlessNull(m_contact, v); }
    void setContact(const std::string& v) { m_contact = v; }
    void setRequest(const char* v) { assignUnlessNull(m_request, v); }
    void setRequest(const std::string& v) { m_request = v; }
    void setResponse(const char* v) { assignUnlessNull(m_response, v); }
    void setResponse(const std::string& v) { m_response = v; }
    void setUseragent(const char* v) { assignUnlessNull(m_useragent, v); }
    void setUseragent(const std::string& v) { m_useragent = v; }
    void setType(const char* v) { assignUnlessNull(m_type, v); }
    void setType(const std::string& v) { m_type = v; }

    int m_fid = -1;
    int m_trid = -1;
    std::string m_label;
    std::string m_methods;
    std::string m_from;
    std::string m_to;
    std::string m_contact;
    std::string m_request;
    std::string m_response;
    std::string m_useragent;
    std::string m_type;
};

} // namespace velm

#endif
