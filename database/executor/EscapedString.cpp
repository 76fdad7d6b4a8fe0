// Escaping a text for a single-quoted SQL literal through libpq.
#include "EscapedString.h"

#include <libpq-fe.h>

#include <cstring>

namespace velm {

EscapedString::EscapedString(const char* text) : m_value(nullptr) {
    if (text != nullptr)
        escape(text, std::strlen(text));
}

EscapedString::EscapedString(const std::string& text) : m_value(nullptr) {
    escape(text.c_str(), text.size());
}

EscapedString::~EscapedString() {
    delete[] m_value;
}

void EscapedString::escape(const char* text, size_t length) {
    m_value = new char[length * 2 + 2];
    PQescapeString(m_value, text, length);
}

} // namespace velm
