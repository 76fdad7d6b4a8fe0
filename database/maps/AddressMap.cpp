// Compiling an address-map row's pattern when it changed, and matching request URIs against it.
#include "AddressMap.h"

namespace velm {

AddressMap::AddressMap() : m_csid(0), m_time(0), m_trace("AddressMap") {}

void AddressMap::compile(const char* pattern, long modTime) {
    m_pattern = pattern;
    if (m_time != 0 && m_time >= modTime) {
        m_trace.prn("expression already compiled");
        return;
    }
    m_trace.prn("compiling expression '%s'", pattern);
    m_regex.compile(pattern, false);
    m_time = modTime;
}

bool AddressMap::matches(const char* text) const {
    m_trace.prn("checking regex match for %s against %s", text, m_pattern.c_str());
    return m_regex.match(text);
}

} // namespace velm
