// AddressMapRecord: one row of the pattern-routing address map.
#ifndef VELM_ADDRESSMAPRECORD_H
#define VELM_ADDRESSMAPRECORD_H

#include "RecordText.h"

#include <string>

namespace velm {

// One pattern-routing entry: requests whose address matches `m_pattern` go to
// contact set `m_csid`. Entries are tried in ascending `m_priority`.
class AddressMapRecord {
public:
    int mapId() const { return m_map_id; }
    const std::string& handle() const { return m_handle; }
    const std::string& pattern() const { return m_pattern; }
    int csid() const { return m_csid; }
    long modTime() const { return m_modTime; }
    int priority() const { return m_priority; }
    bool replaceUri() const { return m_replaceUri; }
    const std::string& ordering() const { return m_ordering; }

    void setMapId(int id) { m_map_id = id; }
    void setHandle(const char* handle) { assignUnlessNull(m_handle, handle); }
    void setHandle(const std::string& handle) { m_handle = handle; }
    void setPattern(const char* pattern) { assignUnlessNull(m_pattern, pattern); }
    void setPattern(const std::string& pattern) { m_pattern = pattern; }
    void setCsid(int csid) { m_csid = csid; }
    void setModTime(long modTime) { m_modTime = modTime; }
    void setPriority(int priority) { m_priority = priority; }
    void setReplaceUri(bool replaceUri) { m_replaceUri = replaceUri; }
    void setOrdering(const char* ordering) { assignUnlessNull(m_ordering, ordering); }
    void setOrdering(const std::string& ordering) { m_ordering = ordering; }

    int m_map_id = -1;
    std::string m_handle;
    std::string m_pattern;
    int m_csid = -1;
    long m_modTime = 0;
    int m_priority = 0;
    bool m_replaceUri = true;
    std::string m_ordering;
};

} // namespace velm

#endif
