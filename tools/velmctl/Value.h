// Value: one value velmctl prints, as people read it and as JSON carries it.
#ifndef VELMCTL_VALUE_H
#define VELMCTL_VALUE_H

#include <string>
#include <utility>

namespace velmctl {

// A value with its two renderings, so that a table and a JSON document of the
// same command always hold the same fields: text is a JSON string, numbers
// and booleans are JSON literals, a missing value is "-" and null.
class Value {
public:
    // Implicit: most values are text.
    Value(std::string text);
    Value(const char* text);

    static Value number(long long number);
    // "true" or "false" in both renderings.
    static Value flag(bool flag);
    static Value none();
    // Seconds from now until `epoch`: "3600s", or "expired" for people (a
    // negative number in JSON).
    static Value secondsUntil(long epoch, long now);
    // `epoch` as an ISO 8601 UTC time, e.g. 2026-11-25T14:00:00Z.
    static Value utcTime(long epoch);

    const std::string& text() const { return m_text; }
    const std::string& json() const { return m_json; }

    static std::string quoted(const std::string& text);

private:
    Value(std::string text, std::string json) : m_text(std::move(text)), m_json(std::move(json)) {}

    std::string m_text;
    std::string m_json;
};

} // namespace velmctl

#endif
