#include "StringTokenizer.h"

StringTokenizer::StringTokenizer(const std::string& text, const std::string& delimiters) {
    size_t start = text.find_first_not_of(delimiters);
    while (start != std::string::npos) {
        size_t end = text.find_first_of(delimiters, start);
        m_tokens.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        start = text.find_first_not_of(delimiters, end);
    }
}

std::string StringTokenizer::nextToken() {
    return hasMoreTokens() ? m_tokens[m_next++] : std::string();
}
