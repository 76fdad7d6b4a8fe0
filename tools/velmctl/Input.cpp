#include "Input.h"

#include "Uri.h"

#include <cerrno>
#include <cstdlib>

namespace velmctl {

namespace {

Outcome bad(const std::string& message) {
    return Outcome::failure(BAD_INPUT, message);
}

} // namespace

Outcome parseAor(const std::string& text, Aor& aor) {
    size_t at = text.find('@');
    if (at == std::string::npos || at == 0 || at + 1 == text.size() || text.find('@', at + 1) != std::string::npos)
        return bad("'" + text + "' is not an address of record: expected user@domain");
    if (text.find_first_of(" '\"<>;") != std::string::npos)
        return bad("'" + text + "' is not an address of record: blanks, quotes, <, > and ; are not allowed");
    aor.user = text.substr(0, at);
    aor.domain = text.substr(at + 1);
    return Outcome();
}

Outcome parseContact(const std::string& text, ContactArg& contact) {
    std::string uri = text;
    size_t open = text.find('<');
    if (open != std::string::npos) {
        size_t close = text.find('>', open);
        if (close == std::string::npos)
            return bad("contact '" + text + "' has no closing '>'");
        uri = text.substr(open + 1, close - open - 1);
    }
    osk::Uri parsed(uri);
    if (!parsed.isValid())
        return bad("contact '" + text + "': " + parsed.errorMessage());
    if (text.find('\'') != std::string::npos)
        return bad("contact '" + text + "' contains a quote");
    contact.uri = uri;
    contact.header = open != std::string::npos ? text : "<" + uri + ">";
    return Outcome();
}

Outcome parseSeconds(const std::string& option, const std::string& text, long& seconds) {
    errno = 0;
    char* end = nullptr;
    long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0)
        return bad(option + " '" + text + "' is not a whole number");
    if (value < 0)
        return bad(option + " must not be negative (got " + text + ")");
    seconds = value;
    return Outcome();
}

Outcome parseQvalue(const std::string& text, std::string& qvalue) {
    char* end = nullptr;
    double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || value < 0 || value > 1)
        return bad("--q '" + text + "' is not a qvalue between 0 and 1");
    qvalue = text;
    return Outcome();
}

} // namespace velmctl
