// Telling a location libpq must read itself from one osk::URL represents exactly.
#include "LibpqLocation.h"

#include "URL.h"

namespace velm {

bool libpqReadsLocation(const std::string& location) {
    // The two URI prefixes libpq recognises.
    for (const char* prefix : {"postgresql://", "postgres://"}) {
        const std::string scheme(prefix);
        if (location.compare(0, scheme.size(), scheme) != 0)
            continue;
        const size_t hostsEnd = location.find_first_of("/?", scheme.size());
        return location.find(',', scheme.size()) < hostsEnd || location.find('?') != std::string::npos;
    }
    // libpq takes any other text with '=' for keywords and values.
    return !osk::URL(location).isValid() && location.find('=') != std::string::npos;
}

} // namespace velm
