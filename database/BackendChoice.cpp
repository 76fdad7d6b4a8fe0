#include "BackendChoice.h"

#include "AppProperties.h"
#include "SafeLock.h"

#include <strings.h>

namespace velm {

void chooseBackend(bool& initialized, bool& useNative, osk::Mutex& mutex) {
    if (initialized)
        return;
    osk::withCancelSafeLock(mutex, [&] {
        if (initialized)
            return;
        initialized = true;
        const char* type = AppProperties::get("SipServer", "DatabaseType");
        useNative = type == nullptr || strcasecmp(type, "odbc") != 0;
    });
}

} // namespace velm
