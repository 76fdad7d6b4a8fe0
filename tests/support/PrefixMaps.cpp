// Reading the process-wide digit-prefix tree from a test.
#include "PrefixMaps.h"

#include "SafeLock.h"

namespace velmtest {

int prefixCsid(velm::LocationService& service, const char* user, int start) {
    return osk::withCancelSafeLock(velm::LocationService::m_mutexPrefix, [&] {
        int csid = start;
        service.findPrefix(user, csid, 0, velm::LocationService::m_prefixMap);
        return csid;
    });
}

} // namespace velmtest
