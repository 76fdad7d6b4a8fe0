// PrefixMapRecord: one digit-prefix route.
#ifndef VELM_PREFIXMAPRECORD_H
#define VELM_PREFIXMAPRECORD_H

#include "RecordText.h"

#include <string>

namespace velm {

// One digit-prefix route: numbers that start with `m_prefix` and have
// `m_total_length` digits in all go to contact set `m_csid`.
class PrefixMapRecord {
public:
    int csid() const { return m_csid; }
    int total_length() const { return m_total_length; }
    const std::string& prefix() const { return m_prefix; }

    void setCsid(int csid) { m_csid = csid; }
    void setTotalLength(int totalLength) { m_total_length = totalLength; }
    void setPrefix(const char* prefix) { assignUnlessNull(m_prefix, prefix); }
    void setPrefix(const std::string& prefix) { m_prefix = prefix; }

    int m_csid = -1;
    int m_total_length = 0;
    std::string m_prefix;
};

} // namespace velm

#endif
