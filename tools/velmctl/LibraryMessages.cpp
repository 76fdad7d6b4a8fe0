// Rewording the library's error texts for operators: a table of known texts, and function names dropped.
#include "LibraryMessages.h"

#include <cctype>

namespace velmctl {

namespace {

struct Rewording {
    const char* library;
    const char* operatorText;
};

// Texts that read wrongly once the function name is gone.
const Rewording REWORDINGS[] = {
    {"unregisteringContacts: no contacts", "no contacts are registered"},
    {"lookupDigitMap passed visiting user", "a visiting user, routed by its home node"},
    {"isLocalUser: this node's replica_id not found", "this node's id (local parameter boot/system/replica_id) is not set"},
};

// A function name: a lower-case letter first, letters only, one upper-case
// letter at least ("lookupContacts", not "ERROR" or "public").
size_t functionNameLength(const std::string& text) {
    size_t length = 0;
    bool upper = false;
    while (length < text.size() && std::isalpha(static_cast<unsigned char>(text[length])) != 0) {
        upper = upper || std::isupper(static_cast<unsigned char>(text[length])) != 0;
        ++length;
    }
    bool named = length > 0 && std::islower(static_cast<unsigned char>(text[0])) != 0 && upper;
    return named ? length : 0;
}

} // namespace

std::string operatorWords(const std::string& message) {
    for (const Rewording& rewording : REWORDINGS)
        if (message == rewording.library)
            return rewording.operatorText;
    size_t name = functionNameLength(message);
    if (name == 0 || name == message.size())
        return message;
    size_t rest = message.find_first_not_of(": ", name);
    return rest == std::string::npos ? message : message.substr(rest);
}

} // namespace velmctl
