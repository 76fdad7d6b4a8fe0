// EscapedString: a text made safe for a single-quoted SQL literal.
#ifndef VELM_ESCAPEDSTRING_H
#define VELM_ESCAPEDSTRING_H

#include <string>

namespace velm {

// A text made safe for a single-quoted SQL literal, the way libpq escapes it
// for the server it last connected to: quotes doubled, and backslashes too
// when that server does not read standard-conforming strings. A C string
// ends at its first NUL. A null text gives the empty text.
class EscapedString {
public:
    explicit EscapedString(const char* text);
    explicit EscapedString(const std::string& text);
    ~EscapedString();
    EscapedString(const EscapedString&) = delete;
    EscapedString& operator=(const EscapedString&) = delete;

    const char* value() const { return m_value != nullptr ? m_value : ""; }

private:
    void escape(const char* text, size_t length);

    char* m_value;
};

} // namespace velm

#endif
