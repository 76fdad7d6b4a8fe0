// Rendering values for people and as JSON: text, numbers, flags, remaining seconds and UTC times.
#include "Value.h"

#include <cstdio>
#include <ctime>

namespace velmctl {

Value::Value(std::string text) : m_text(std::move(text)), m_json(quoted(m_text)) {}

Value::Value(const char* text) : Value(std::string(text)) {}

Value Value::number(long long number) {
    return Value(std::to_string(number), std::to_string(number));
}

Value Value::flag(bool flag) {
    return Value(flag ? "true" : "false", flag ? "true" : "false");
}

Value Value::none() {
    return Value("-", "null");
}

Value Value::secondsUntil(long epoch, long now) {
    long left = epoch - now;
    return Value(left <= 0 ? "expired" : std::to_string(left) + "s", std::to_string(left));
}

Value Value::utcTime(long epoch) {
    time_t moment = epoch;
    struct tm utc;
    char text[32];
    if (gmtime_r(&moment, &utc) == nullptr || strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc) == 0)
        return none();
    return Value(text);
}

std::string Value::quoted(const std::string& text) {
    std::string quoted = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += static_cast<char>(c);
        } else if (c < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            quoted += escape;
        } else {
            quoted += static_cast<char>(c);
        }
    }
    return quoted + "\"";
}

} // namespace velmctl
