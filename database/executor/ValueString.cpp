// Building the column and value lists of an INSERT statement.
#include "ValueString.h"

#include "EscapedString.h"

void ValueString::separate(std::string& list) {
    if (list != "(")
        list += ",";
}

void ValueString::addName(const char* name) {
    separate(m_names);
    m_names += name;
}

void ValueString::addValue(const char* value) {
    separate(m_values);
    if (value == nullptr) {
        m_values += "NULL";
        return;
    }
    m_values += "'";
    m_values += value;
    m_values += "'";
}

void ValueString::add(const char* name, const char* value) {
    addName(name);
    addValue(value);
}

void ValueString::addEscaped(const char* name, const char* value) {
    if (value == nullptr)
        add(name, value);
    else
        add(name, velm::EscapedString(value).value());
}

void ValueString::addLiteral(const char* name, const std::string& literal) {
    addName(name);
    separate(m_values);
    m_values += literal;
}

const char* ValueString::names() {
    m_names += ")";
    return m_names.c_str();
}

const char* ValueString::values() {
    m_values += ")";
    return m_values.c_str();
}
