// Expanding $name and ${name} variables in a text.
#include "VariableSubstitution.h"

#include <cctype>

namespace {

bool startsName(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}

bool continuesName(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// The length of the name at `start`, 0 when none starts there.
size_t nameLength(const std::string& text, size_t start) {
    if (start >= text.size() || !startsName(text[start]))
        return 0;
    size_t end = start + 1;
    while (end < text.size() && continuesName(text[end]))
        ++end;
    return end - start;
}

} // namespace

void VariableSubstitution::subst(const std::string& text, std::string& out, const Hashtable& table,
                                 const std::string& marker) {
    if (marker.empty()) {
        out = text;
        return;
    }
    std::string result;
    size_t position = 0;
    while (position < text.size()) {
        size_t found = text.find(marker, position);
        if (found == std::string::npos) {
            result.append(text, position, std::string::npos);
            break;
        }
        result.append(text, position, found - position);
        size_t after = found + marker.size();

        if (text.compare(after, marker.size(), marker) == 0) {
            result += marker;
            position = after + marker.size();
            continue;
        }

        bool braced = after < text.size() && text[after] == '{';
        size_t nameStart = braced ? after + 1 : after;
        size_t length = nameLength(text, nameStart);
        size_t end = nameStart + length;
        if (length == 0 || (braced && (end >= text.size() || text[end] != '}'))) {
            result += marker;
            position = after;
            continue;
        }
        if (braced)
            ++end;
        const char* value = table.get(text.substr(nameStart, length));
        if (value != nullptr)
            result += value;
        else
            result.append(text, found, end - found);
        position = end;
    }
    out = result;
}
