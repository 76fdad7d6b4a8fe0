// SipEventAggregator: one SIP event aggregator and a contact address of its subscriber.
#ifndef VELM_SIPEVENTAGGREGATOR_H
#define VELM_SIPEVENTAGGREGATOR_H

#include <string>

namespace velm {

// One SIP event aggregator with the address of a contact of its subscriber's
// contact set. The numbers mean nothing until the command that reads the
// aggregator sets them.
class SipEventAggregator {
public:
    int id() const { return m_id; }
    int sid() const { return m_sid; }
    int nodeId() const { return m_nodeId; }
    int csid() const { return m_csid; }
    const std::string& aType() const { return m_aType; }
    const std::string& name() const { return m_name; }
    const std::string& fromName() const { return m_fromName; }
    const std::string& toName() const { return m_toName; }
    const std::string& event() const { return m_event; }
    const std::string& docType() const { return m_docType; }
    int presentityPerBatch() const { return m_presentityPerBatch; }
    int throttlingInterval() const { return m_throttlingInterval; }
    const std::string& address() const { return m_address; }

    void setId(int id) { m_id = id; }
    void setSid(int sid) { m_sid = sid; }
    void setNodeId(int nodeId) { m_nodeId = nodeId; }
    void setCsid(int csid) { m_csid = csid; }
    void setaType(const std::string& aType) { m_aType = aType; }
    void setName(const std::string& name) { m_name = name; }
    void setFromName(const std::string& fromName) { m_fromName = fromName; }
    void setToName(const std::string& toName) { m_toName = toName; }
    void setEvent(const std::string& event) { m_event = event; }
    void setDocType(const std::string& docType) { m_docType = docType; }
    void setPresentityPerBatch(int count) { m_presentityPerBatch = count; }
    void setThrottlingInterval(int interval) { m_throttlingInterval = interval; }
    void setAddress(const std::string& address) { m_address = address; }

    int m_id = -1;
    int m_sid = -1;
    int m_nodeId = -1;
    int m_csid = -1;
    std::string m_aType;
    std::string m_name;
    std::string m_fromName;
    std::string m_toName;
    std::string m_event;
    std::string m_docType;
    int m_presentityPerBatch = 0;
    int m_throttlingInterval = 0;
    std::string m_address;
};

} // namespace velm

#endif
