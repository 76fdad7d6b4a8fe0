#include "StatementShape.h"

#include <strings.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace velm {

namespace {

bool isIdentStart(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_' || (c & 0x80) != 0;
}

bool isIdentChar(char c) {
    return isIdentStart(c) || std::isdigit(static_cast<unsigned char>(c)) || c == '$';
}

bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

bool oneOf(const std::string& word, const char* const* words) {
    for (; *words != nullptr; ++words)
        if (strcasecmp(word.c_str(), *words) == 0)
            return true;
    return false;
}

const char* const PLANNABLE[] = {"SELECT", "INSERT", "UPDATE", "DELETE", "WITH", "VALUES", nullptr};
// Clauses that end an ORDER BY or GROUP BY list.
const char* const AFTER_BY_LIST[] = {"LIMIT",     "OFFSET", "FETCH",  "FOR",       "HAVING", "WINDOW",
                                     "UNION",     "INTERSECT", "EXCEPT", "RETURNING", "ORDER",  "FROM",
                                     "WHERE",     "SELECT", nullptr};

class Splitter {
public:
    Splitter(const char* sql, bool standardStrings, StatementShape& shape)
        : m_sql(sql), m_pos(0), m_standardStrings(standardStrings), m_shape(shape) {}

    bool run() {
        m_shape.text.clear();
        m_shape.values.clear();
        m_shape.types.clear();
        while (m_sql[m_pos] != '\0')
            if (!step())
                return false;
        while (!m_shape.text.empty() && std::isspace(static_cast<unsigned char>(m_shape.text.back())))
            m_shape.text.pop_back();
        return oneOf(m_firstWord, PLANNABLE) && !m_shape.values.empty();
    }

private:
    char at(size_t offset) const {
        for (size_t i = 0; i < offset; ++i)
            if (m_sql[m_pos + i] == '\0')
                return '\0';
        return m_sql[m_pos + offset];
    }

    char before() const { return m_pos == 0 ? '\0' : m_sql[m_pos - 1]; }

    void copy(size_t length) {
        m_shape.text.append(m_sql + m_pos, length);
        m_pos += length;
    }

    void lift(std::string value, unsigned type) {
        m_shape.values.push_back(std::move(value));
        m_shape.types.push_back(type);
        m_shape.text += "$" + std::to_string(m_shape.values.size());
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
        m_pos = end + 1;
        lift(std::move(value), StatementShape::UNTYPED);
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
        m_pos = end;
        lift(digits, value <= INT_MAX ? StatementShape::INT4 : StatementShape::INT8);
        return true;
    }

    bool word() {
        size_t end = m_pos;
        while (isIdentChar(m_sql[end]))
            ++end;
        std::string text(m_sql + m_pos, end - m_pos);
        if (m_firstWord.empty())
            m_firstWord = text;
        if (strcasecmp(text.c_str(), "BY") == 0) {
            m_inByList = true;
            m_byDepth = m_depth;
        } else if (m_inByList && m_depth == m_byDepth && oneOf(text, AFTER_BY_LIST)) {
            m_inByList = false;
        }
        copy(end - m_pos);
        return true;
    }

    // Only a last statement's terminator is allowed.
    bool semicolon() {
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

    const char* m_sql;
    size_t m_pos;
    bool m_standardStrings;
    StatementShape& m_shape;
    std::string m_firstWord;
    int m_depth = 0;
    int m_byDepth = 0;
    bool m_inByList = false;
};

} // namespace

bool StatementShape::of(const char* sql, bool standardStrings, StatementShape& shape) {
    return sql != nullptr && Splitter(sql, standardStrings, shape).run();
}

} // namespace velm
