// AddressMap: one compiled row of the address map.
#ifndef VELM_ADDRESSMAP_H
#define VELM_ADDRESSMAP_H

#include "RegExp.h"
#include "Trace.h"

#include <ctime>
#include <string>

namespace velm {

// One compiled row of the address map: a pattern over whole request URIs and
// the contact set that matching requests go to. Keyed by "<handle>-<csid>".
class AddressMap {
public:
    AddressMap();
    AddressMap(const AddressMap&) = delete;
    AddressMap& operator=(const AddressMap&) = delete;

    // Compiles `pattern` unless the compiled one is at least as new as
    // `modTime`.
    void compile(const char* pattern, long modTime);
    bool matches(const char* text) const;

    void setKey(const std::string& key) { m_key = key; }
    const std::string& key() const { return m_key; }
    void setCsid(int csid) { m_csid = csid; }
    int csid() const { return m_csid; }
    const std::string& pattern() const { return m_pattern; }

private:
    int m_csid;
    std::string m_key;
    std::string m_pattern;
    RegExp m_regex;
    time_t m_time;
    Trace m_trace;
};

} // namespace velm

#endif
