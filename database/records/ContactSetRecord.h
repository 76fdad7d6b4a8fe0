// ContactSetRecord: one contact set of a subscriber.
#ifndef VELM_CONTACTSETRECORD_H
#define VELM_CONTACTSETRECORD_H

#include "RecordText.h"

#include <string>

namespace velm {

// One contact set of a subscriber; `m_ordering` is "cycle" or "sequential".
// The caller sets both identifiers before addContactSet.
class ContactSetRecord {
public:
    int csid() const { return m_csid; }
    int sid() const { return m_sid; }
    const std::string& ordering() const { return m_ordering; }

    void setCsid(int csid) { m_csid = csid; }
    void setSid(int sid) { m_sid = sid; }
    void setOrdering(const char* ordering) { assignUnlessNull(m_ordering, ordering); }
    void setOrdering(const std::string& ordering) { m_ordering = ordering; }

    int m_csid = -1;
    int m_sid = -1;
    std::string m_ordering;
};

} // namespace velm

#endif
