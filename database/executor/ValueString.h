// ValueString: the column list and value list of one INSERT statement.
#ifndef VELM_VALUESTRING_H
#define VELM_VALUESTRING_H

#include <string>

// The column list and the value list of one INSERT statement, built in step:
// names() gives "(a,b,c)" and values() "('x',NULL,7)". Each of names() and
// values() appends the closing parenthesis, so call each once per statement.
// add() puts values in verbatim; addEscaped() escapes them first.
class ValueString {
public:
    ValueString() : m_names("("), m_values("(") {}

    void addName(const char* name);
    // A quoted value, or NULL for a null text.
    void addValue(const char* value);
    void add(const char* name, const char* value);
    // An empty text is stored as NULL.
    void add(const char* name, const std::string& value);
    // As add(), with the value escaped for the quoted literal: the form for
    // every text that comes from outside.
    void addEscaped(const char* name, const char* value);
    void addEscaped(const char* name, const std::string& value);
    // An unquoted number.
    void addExplicit(const char* name, long value);

    const char* names();
    const char* values();

private:
    void separate(std::string& list);

    std::string m_names;
    std::string m_values;
};

#endif
