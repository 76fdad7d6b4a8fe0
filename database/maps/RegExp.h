// RegExp: a POSIX extended regular expression.
#ifndef VELM_REGEXP_H
#define VELM_REGEXP_H

#include "Trace.h"

#include <regex.h>

#include <string>

namespace velm {

// A POSIX extended regular expression. A pattern that does not compile
// leaves an expression that matches nothing.
class RegExp {
public:
    RegExp();
    ~RegExp();
    RegExp(const RegExp&) = delete;
    RegExp& operator=(const RegExp&) = delete;

    // Replaces any earlier expression; true when `pattern` compiled.
    bool compile(const char* pattern, bool ignoreCase);
    bool valid() const { return m_compiled; }
    bool match(const char* text) const;
    void free();

private:
    std::string m_pattern;
    regex_t m_regex;
    bool m_compiled;
    Trace m_trace;
};

} // namespace velm

#endif
