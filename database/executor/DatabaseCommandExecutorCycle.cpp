// Where the next call into a "cycle" contact set starts: the sets' start
// indexes are shared by every executor of the process.
#include "DatabaseCommandExecutor.h"

#include "SafeLock.h"

namespace velm {

std::map<std::string, int> DatabaseCommandExecutor::m_cycleMap;
osk::Mutex DatabaseCommandExecutor::m_cycleMutex;

int DatabaseCommandExecutor::getNextCycleIndex(std::string& csid, int nContacts) {
    return osk::withCancelSafeLock(m_cycleMutex, [&] {
        auto next = m_cycleMap.find(csid);
        if (next == m_cycleMap.end()) {
            m_cycleMap.emplace(csid, 1);
            return 0;
        }
        int index = next->second;
        if (index <= nContacts - 1) {
            next->second = index + 1;
            return index;
        }
        // The cycle wrapped, or the set shrank below the stored index.
        next->second = 1;
        return 0;
    });
}

} // namespace velm
