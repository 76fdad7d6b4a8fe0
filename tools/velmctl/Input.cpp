// Checking and reading velmctl's inputs: UTF-8, addresses of record, contacts, numbers, seconds and qvalues.
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

bool isUtf8(const std::string& text) {
    static const unsigned long smallest[] = {0, 0x80, 0x800, 0x10000};
    const auto* byte = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = byte + text.size();
    while (byte < end) {
        unsigned char lead = *byte++;
        if (lead < 0x80)
            continue;
        int more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
        if (more == 0 || lead > 0xF4 || end - byte < more)
            return false;
        unsigned long code = lead & (0x3F >> more);
        for (int left = more; left > 0; --left, ++byte) {
            if ((*byte & 0xC0) != 0x80)
                return false;
            code = code << 6 | (*byte & 0x3F);
        }
        if (code < smallest[more] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return false;
    }
    return true;
}

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

Outcome parseNumber(const std::string& name, const std::string& text, long min, long max, long& value) {
    size_t digits = !text.empty() && text[0] == '-' ? 1 : 0;
    if (digits == text.size() || text.find_first_not_of("0123456789", digits) != std::string::npos)
        return bad(name + " '" + text + "' is not a whole number");
    if (digits == 1 && min >= 0)
        return bad(name + " must not be negative (got " + text + ")");
    errno = 0;
    long parsed = std::strtol(text.c_str(), nullptr, 10);
    if (errno == ERANGE || parsed < min || parsed > max)
        return bad(name + " '" + text + "' is out of range: " + std::to_string(min) + " to " + std::to_string(max));
    value = parsed;
    return Outcome();
}

Outcome parseSeconds(const std::string& option, const std::string& text, long& seconds) {
    return parseNumber(option, text, 0, MAX_DELTA_SECONDS, seconds);
}

Outcome parseQvalue(const std::string& text, std::string& qvalue) {
    const char* const digits = "0123456789";
    size_t whole = text.find_first_not_of(digits);
    bool decimal = !text.empty() && whole != 0 &&
                   (whole == std::string::npos ||
                    (text[whole] == '.' && whole + 1 < text.size() &&
                     text.find_first_not_of(digits, whole + 1) == std::string::npos));
    if (!decimal || std::strtod(text.c_str(), nullptr) > 1)
        return bad("--q '" + text + "' is not a qvalue between 0 and 1");
    qvalue = text;
    return Outcome();
}

} // namespace velmctl
