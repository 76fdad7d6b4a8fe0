// Compiling and matching POSIX extended regular expressions.
#include "RegExp.h"

namespace velm {

RegExp::RegExp() : m_regex(), m_compiled(false), m_trace("RegEx") {}

RegExp::~RegExp() {
    free();
}

bool RegExp::compile(const char* pattern, bool ignoreCase) {
    free();
    m_trace.prn("compiling '%s'", pattern);
    m_pattern = pattern;
    int flags = REG_EXTENDED | (ignoreCase ? REG_ICASE : 0);
    m_compiled = regcomp(&m_regex, m_pattern.c_str(), flags) == 0;
    m_trace.prn("%s", m_compiled ? "compile ok" : "compile failed");
    return valid();
}

bool RegExp::match(const char* text) const {
    m_trace.prn("checking '%s' for match on %s", text, m_pattern.c_str());
    if (!valid()) {
        m_trace.prn("match failed, invalid regex");
        return false;
    }
    bool matched = regexec(&m_regex, text, 0, nullptr, 0) == 0;
    m_trace.prn("%s", matched ? "match found" : "not a match");
    return matched;
}

void RegExp::free() {
    if (!m_compiled)
        return;
    regfree(&m_regex);
    m_compiled = false;
}

} // namespace velm
