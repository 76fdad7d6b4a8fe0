// osk::Uri: a valid URI rebuilt from its parts parses again to the same parts;
// an invalid one has no parts and says why.
#include "FuzzCheck.h"
#include "Uri.h"

#include <cstdint>
#include <cstring>
#include <string>

namespace {

std::string part(const char* text) {
    return text != nullptr ? text : "";
}

bool same(const char* a, const char* b) {
    return (a == nullptr && b == nullptr) || (a != nullptr && b != nullptr && std::strcmp(a, b) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    osk::Uri uri(std::string(reinterpret_cast<const char*>(data), size));
    if (!uri.isValid()) {
        FUZZ_CHECK(uri.getProtocol() == nullptr && uri.getHost() == nullptr && uri.getUser() == nullptr);
        FUZZ_CHECK(uri.getParameters() == nullptr && uri.getHeaders() == nullptr);
        FUZZ_CHECK(*uri.errorMessage() != '\0');
        return 0;
    }
    FUZZ_CHECK(*uri.errorMessage() == '\0');
    FUZZ_CHECK(uri.getPort() >= 0 && uri.getPort() <= 65535);
    FUZZ_CHECK(uri.getPassword() == nullptr || uri.getUser() != nullptr);
    std::string rebuilt = part(uri.getProtocol()) + ":";
    if (uri.getUser() != nullptr)
        rebuilt += part(uri.getUser()) + (uri.getPassword() != nullptr ? ":" + part(uri.getPassword()) : "") + "@";
    rebuilt += part(uri.getHost());
    if (uri.getPort() != 0)
        rebuilt += ":" + std::to_string(uri.getPort());
    if (uri.getParameters() != nullptr)
        rebuilt += ";" + part(uri.getParameters());
    if (uri.getHeaders() != nullptr)
        rebuilt += "?" + part(uri.getHeaders());
    osk::Uri again(rebuilt);
    FUZZ_CHECK(again.isValid());
    FUZZ_CHECK(same(uri.getProtocol(), again.getProtocol()) && same(uri.getUser(), again.getUser()));
    FUZZ_CHECK(same(uri.getPassword(), again.getPassword()) && same(uri.getHost(), again.getHost()));
    FUZZ_CHECK(uri.getPort() == again.getPort());
    FUZZ_CHECK(same(uri.getParameters(), again.getParameters()) && same(uri.getHeaders(), again.getHeaders()));
    return 0;
}
