// TrustedHostRecord: one trusted host.
#ifndef VELM_TRUSTEDHOSTRECORD_H
#define VELM_TRUSTEDHOSTRECORD_H

#include <string>
#include <utility>

namespace velm {

// One trusted host, and whether originating processing is done for requests
// that come from it.
class TrustedHostRecord {
public:
    const std::string& getName() const { return m_name; }
    bool getPerformOrigProc() const { return m_perform_orig_proc; }

    void setName(std::string name) { m_name = std::move(name); }
    void setPerformOrigProc(bool perform) { m_perform_orig_proc = perform; }

    std::string m_name;
    bool m_perform_orig_proc = false;
};

} // namespace velm

#endif
