// Splitting a text into its tokens at once.
#include "StringTokenizer.h"

StringTokenizer::StringTokenizer(const std::string& text, const std::string& delimiters) {
    bool isDelimiter[256] = {};
    for (unsigned char c : delimiters)
        isDelimiter[c] = true;
    // Visits every token as (start, length); run twice, so that the tokens
    // are stored with one allocation (time stamps of address maps are split
    // for every row of every lookup).
    auto forEachToken = [&](auto&& visit) {
        size_t at = 0;
        while (at < text.size()) {
            while (at < text.size() && isDelimiter[static_cast<unsigned char>(text[at])])
                ++at;
            size_t start = at;
            while (at < text.size() && !isDelimiter[static_cast<unsigned char>(text[at])])
                ++at;
            if (at > start)
                visit(start, at - start);
        }
    };
    size_t count = 0;
    forEachToken([&](size_t, size_t) { ++count; });
    m_tokens.reserve(count);
    forEachToken([&](size_t start, size_t length) { m_tokens.emplace_back(text, start, length); });
}

std::string StringTokenizer::nextToken() {
    return hasMoreTokens() ? m_tokens[m_next++] : std::string();
}
