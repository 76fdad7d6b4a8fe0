// Lower-casing user parts and domains.
#include "LowerCase.h"

#include <cctype>

namespace velm {

std::string lowerCase(const char* text) {
    std::string lower = text != nullptr ? text : "";
    for (char& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower;
}

} // namespace velm
