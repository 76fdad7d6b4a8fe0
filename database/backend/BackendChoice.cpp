// The once-per-process choice between the PostgreSQL and the ODBC backend.
#include "BackendChoice.h"

#include "AppProperties.h"
#include "SafeLock.h"

#include <strings.h>

namespace velm {

void chooseBackend(std::atomic<bool>& initialized, std::atomic<bool>& useNative, osk::Mutex& mutex) {
    if (initialized.load(std::memory_order_acquire))
        return;
    osk::withCancelSafeLock(mutex, [&] {
        if (initialized.load(std::memory_order_relaxed))
            return;
        const char* type = AppProperties::get("SipServer", "DatabaseType");
        useNative.store(type == nullptr || strcasecmp(type, "odbc") != 0, std::memory_order_relaxed);
        initialized.store(true, std::memory_order_release);
    });
}

} // namespace velm
