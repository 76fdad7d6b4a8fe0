// osk::URL: any text parses without harm; a valid URL has a scheme and a
// port in range, and an invalid one has no parts.
#include "FuzzCheck.h"
#include "URL.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    osk::URL url(text);
    if (!url.isValid()) {
        FUZZ_CHECK(url.getProtocol().empty() && url.getHost().empty() && url.getPath().empty());
        FUZZ_CHECK(url.getPort() == 0);
        return 0;
    }
    FUZZ_CHECK(!url.getProtocol().empty());
    FUZZ_CHECK(text.find(url.getProtocol() + "://") == 0);
    FUZZ_CHECK(url.getPort() >= 0 && url.getPort() <= 65535);
    // An escaped host is decoded; any other appears as written.
    FUZZ_CHECK(text.find('%') != std::string::npos || text.find(url.getHost()) != std::string::npos);
    return 0;
}
