// StringTokenizer: a text split at any of a set of delimiter characters.
#ifndef VELM_STRINGTOKENIZER_H
#define VELM_STRINGTOKENIZER_H

#include <string>
#include <vector>

// Splits a text at any of a set of delimiter characters. A run of adjacent
// delimiters separates two tokens; it never yields an empty token.
class StringTokenizer {
public:
    StringTokenizer(const std::string& text, const std::string& delimiters);

    int countTokens() const { return static_cast<int>(m_tokens.size() - m_next); }
    bool hasMoreTokens() const { return m_next < m_tokens.size(); }
    // The next token, or an empty text when none is left.
    std::string nextToken();

private:
    std::vector<std::string> m_tokens;
    size_t m_next = 0;
};

#endif
