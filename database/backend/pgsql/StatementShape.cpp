// Scanning an SQL statement to lift its string and integer literals out into parameters.
#include "StatementShape.h"

#include <strings.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace velm {

namespace {

// SQL's own character classes, whatever locale the host has set.
constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool isIdentStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || (c & 0x80) != 0;
}

// Looked up rather than tested: every character of every word goes through
// it.
struct IdentChars {
    bool table[256] = {};
    constexpr IdentChars() {
        for (int c = 0; c < 256; ++c)
            table[c] = isIdentStart(static_cast<char>(c)) || isDigit(static_cast<char>(c)) || c == '$';
    }
};
constexpr IdentChars IDENT_CHARS;

bool isIdentChar(char c) {
    return IDENT_CHARS.table[static_cast<unsigned char>(c)];
}

// Characters that are kept as written and change nothing about what
// follows: blanks, commas, operators other than - and /. Most of a
// statement between its words is made of them.
bool isPassive(char c) {
    switch (c) {
    case ' ': case '\t': case '\n': case '\r': case '\f': case '\v':
    case ',': case '=': case '<': case '>': case '*': case '+': case '!': case '|':
    case '%': case '^': case '~': case '@': case '#': case '[': case ']': case ':':
        return true;
    default:
        return false;
    }
}

// The word sql[0, length) is one of `words`, in any case.
bool oneOf(const char* sql, size_t length, const char* const* words) {
    for (; *words != nullptr; ++words)
        if (std::strlen(*words) == length && strncasecmp(sql, *words, length) == 0)
            return true;
    return false;
}

const char* const PLANNABLE[] = {"SELECT", "INSERT", "UPDATE", "DELETE", "WITH", "VALUES", nullptr};
const char* const BY[] = {"BY", nullptr};
// Clauses that end an ORDER BY or GROUP BY list.
const char* const AFTER_BY_LIST[] = {"LIMIT",     "OFFSET", "FETCH",  "FOR",       "HAVING", "WINDOW",
                                     "UNION",     "INTERSECT", "EXCEPT", "RETURNING", "ORDER",  "FROM",
                                     "WHERE",     "SELECT", nullptr};

// Walks the statement once. The text between literals is not copied as it
// is passed but appended in one piece when a literal is lifted or the walk
// ends: most of a statement is such text.
class Splitter {
public:
    Splitter(const char* sql, bool standardStrings, StatementShape& shape)
        : m_sql(sql), m_pos(0), m_standardStrings(standardStrings), m_shape(shape) {}

    bool run() {
        m_shape.text.clear();
        m_shape.values.clear();
        m_shape.types.clear();
        while (m_sql[m_pos] != '\0') {
            if (isPassive(m_sql[m_pos]))
                ++m_pos;
            else if (!step())
                return false;
        }
        m_shape.text.append(m_sql + m_copied, (m_end != NONE ? m_end : m_pos) - m_copied);
        while (!m_shape.text.empty() && std::isspace(static_cast<unsigned char>(m_shape.text.back())))
            m_shape.text.pop_back();
        return m_firstWordLength > 0 && oneOf(m_sql + m_firstWord, m_firstWordLength, PLANNABLE) &&
               !m_shape.values.empty();
    }

private:
    char at(size_t offset) const {
        for (size_t i = 0; i < offset; ++i)
            if (m_sql[m_pos + i] == '\0')
                return '\0';
        return m_sql[m_pos + offset];
    }

    char before() const { return m_pos == 0 ? '\0' : m_sql[m_pos - 1]; }

    // Keeps the next `length` characters as written.
    void copy(size_t length) { m_pos += length; }

    // The literal that started at `start` and ends at m_pos becomes a
    // parameter.
    void lift(size_t start, std::string value, unsigned type) {
        m_shape.text.append(m_sql + m_copied, start - m_copied);
        m_shape.values.push_back(std::move(value));
        m_shape.types.push_back(type);
        m_shape.text += "$" + std::to_string(m_shape.values.size());
        m_copied = m_pos;
    }

    bool step() {
        char c = at(0);
        if (c == '-' && at(1) == '-')
            return lineComment();
        if (c == '/' && at(1) == '*')
            return blockComment();
        if (c == '\'')
            return isIdentChar(before()) || before() == '&' ? prefixedString() : plainString();
        if (c == '"')
            return quoted('"');
        if (c == '$')
            return dollar();
        if (isDigit(c) || (c == '.' && isDigit(at(1))))
            return number();
        if (isIdentStart(c))
            return word();
        if (c == ';')
            return semicolon();
        if (c == '(')
            ++m_depth;
        if (c == ')' && --m_depth < m_byDepth)
            m_inByList = false;
        copy(1);
        return true;
    }

    bool lineComment() {
        size_t length = std::strcspn(m_sql + m_pos, "\n");
        copy(length);
        return true;
    }

    bool blockComment() {
        // Block comments nest.
        int level = 0;
        size_t end = m_pos;
        do {
            if (m_sql[end] == '\0')
                return false;
            if (m_sql[end] == '/' && m_sql[end + 1] == '*') {
                ++level;
                end += 2;
            } else if (m_sql[end] == '*' && m_sql[end + 1] == '/') {
                --level;
                end += 2;
            } else {
                ++end;
            }
        } while (level > 0);
        copy(end - m_pos);
        return true;
    }

    // 'text' with '' for a quote: lifted as its value.
    bool plainString() {
        std::string value;
        size_t end = m_pos + 1;
        for (;;) {
            char c = m_sql[end];
            if (c == '\0')
                return false;
            if (c == '\'') {
                if (m_sql[end + 1] != '\'')
                    break;
                ++end;
            } else if (c == '\\' && !m_standardStrings) {
                return false;
            }
            value += c;
            ++end;
        }
        size_t start = m_pos;
        m_pos = end + 1;
        lift(start, std::move(value), StatementShape::UNTYPED);
        return true;
    }

    // E'...', B'...', X'...', N'...', U&'...': kept as written. Only E
    // strings read backslash escapes.
    bool prefixedString() {
        bool escapes = before() == 'E' || before() == 'e' || !m_standardStrings;
        size_t end = m_pos + 1;
        for (;;) {
            char c = m_sql[end];
            if (c == '\0')
                return false;
            if (c == '\\' && escapes && m_sql[end + 1] != '\0') {
                end += 2;
                continue;
            }
            if (c == '\'') {
                if (m_sql[end + 1] != '\'')
                    break;
                ++end;
            }
            ++end;
        }
        copy(end + 1 - m_pos);
        return true;
    }

    bool quoted(char quote) {
        size_t end = m_pos + 1;
        for (;;) {
            if (m_sql[end] == '\0')
                return false;
            if (m_sql[end] == quote) {
                if (m_sql[end + 1] != quote)
                    break;
                ++end;
            }
            ++end;
        }
        copy(end + 1 - m_pos);
        return true;
    }

    // $1 (a parameter of the statement's own: not ours to number) or a
    // dollar-quoted string, kept as written.
    bool dollar() {
        if (isIdentChar(before())) {
            copy(1);
            return true;
        }
        if (isDigit(at(1)))
            return false;
        size_t tagEnd = m_pos + 1;
        while (isIdentChar(m_sql[tagEnd]) && m_sql[tagEnd] != '$')
            ++tagEnd;
        if (m_sql[tagEnd] != '$') {
            copy(1);
            return true;
        }
        std::string tag(m_sql + m_pos, tagEnd + 1 - m_pos);
        const char* close = std::strstr(m_sql + tagEnd + 1, tag.c_str());
        if (close == nullptr)
            return false;
        copy(static_cast<size_t>(close - (m_sql + m_pos)) + tag.size());
        return true;
    }

    bool number() {
        if (isIdentChar(before()) || before() == '.') {
            copy(1);
            return true;
        }
        size_t end = m_pos;
        while (isDigit(m_sql[end]))
            ++end;
        char next = m_sql[end];
        if (next == '.' || isIdentChar(next) || end == m_pos) {
            // A decimal, an exponent, or digits run into letters: as written.
            while (isIdentChar(m_sql[end]) || m_sql[end] == '.' ||
                   ((m_sql[end] == '+' || m_sql[end] == '-') && (m_sql[end - 1] == 'e' || m_sql[end - 1] == 'E')))
                ++end;
            copy(end - m_pos);
            return true;
        }
        std::string digits(m_sql + m_pos, end - m_pos);
        if (m_inByList) {
            // ORDER BY 2 names a column; a parameter there would not.
            copy(end - m_pos);
            return true;
        }
        errno = 0;
        long long value = std::strtoll(digits.c_str(), nullptr, 10);
        if (errno == ERANGE) {
            copy(end - m_pos);
            return true;
        }
        size_t start = m_pos;
        m_pos = end;
        lift(start, digits, value <= INT_MAX ? StatementShape::INT4 : StatementShape::INT8);
        return true;
    }

    bool word() {
        size_t end = m_pos;
        while (isIdentChar(m_sql[end]))
            ++end;
        const char* text = m_sql + m_pos;
        size_t length = end - m_pos;
        if (m_firstWordLength == 0) {
            m_firstWord = m_pos;
            m_firstWordLength = length;
        }
        if (oneOf(text, length, BY)) {
            m_inByList = true;
            m_byDepth = m_depth;
        } else if (m_inByList && m_depth == m_byDepth && oneOf(text, length, AFTER_BY_LIST)) {
            m_inByList = false;
        }
        copy(end - m_pos);
        return true;
    }

    // Only a last statement's terminator is allowed.
    bool semicolon() {
        m_end = m_pos;
        ++m_pos;
        while (m_sql[m_pos] != '\0') {
            if (std::isspace(static_cast<unsigned char>(m_sql[m_pos])))
                ++m_pos;
            else if (m_sql[m_pos] == '-' && m_sql[m_pos + 1] == '-')
                m_pos += std::strcspn(m_sql + m_pos, "\n");
            else
                return false;
        }
        return true;
    }

    static const size_t NONE = static_cast<size_t>(-1);

    const char* m_sql;
    size_t m_pos;
    bool m_standardStrings;
    StatementShape& m_shape;
    size_t m_copied = 0;          // the text before this is in m_shape.text
    size_t m_end = NONE;          // where a terminating semicolon stood
    size_t m_firstWord = 0;
    size_t m_firstWordLength = 0;
    int m_depth = 0;
    int m_byDepth = 0;
    bool m_inByList = false;
};

} // namespace

bool StatementShape::of(const char* sql, bool standardStrings, StatementShape& shape) {
    return sql != nullptr && Splitter(sql, standardStrings, shape).run();
}

} // namespace velm
