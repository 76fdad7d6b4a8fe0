// SipAddr::addressMatches on two Contact values (the input split at its first
// newline): the answer is the same both ways, and a value that is a SIP
// address matches itself with an empty detail.
#include "FuzzCheck.h"
#include "SipAddr.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string input(reinterpret_cast<const char*>(data), size);
    size_t newline = input.find('\n');
    std::string first = input.substr(0, newline);
    std::string second = newline == std::string::npos ? first : input.substr(newline + 1);

    std::string forward;
    std::string backward;
    bool matches = velm::SipAddr::addressMatches(first, second, forward);
    FUZZ_CHECK(matches == velm::SipAddr::addressMatches(second, first, backward));
    FUZZ_CHECK(matches || !forward.empty());

    std::string itself;
    bool firstIsAddress = velm::SipAddr::addressMatches(first, first, itself);
    FUZZ_CHECK(firstIsAddress == itself.empty());
    if (matches)
        FUZZ_CHECK(firstIsAddress);
    return 0;
}
