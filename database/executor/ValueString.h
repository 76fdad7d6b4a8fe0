// ValueString: the column list and value list of one INSERT statement.
#ifndef VELM_VALUESTRING_H
#define VELM_VALUESTRING_H

#include "Columns.h"

#include <string>

// The column list and the value list of one INSERT statement, built in step:
// names() gives "(a,b,c)" and values() "('x',NULL,7)". Each of names() and
// values() appends the closing parenthesis, so call each once per statement.
// add() puts values in verbatim; addEscaped() escapes them first; a column
// table adds its columns each quoted as the table says.
class ValueString {
public:
    ValueString() : m_names("("), m_values("(") {}

    void addName(const char* name);
    // A quoted value, or NULL for a null text.
    void addValue(const char* value);
    void add(const char* name, const char* value);
    // As add(), with the value escaped for the quoted literal: the form for
    // every text that comes from outside.
    void addEscaped(const char* name, const char* value);
    template <class Row>
    void add(const velm::columns::Columns<Row>& columns, const Row& row) {
        for (const velm::columns::Column<Row>& column : columns)
            addLiteral(column.name, velm::columns::literal(column.quoting, column.value(row)));
    }

    const char* names();
    const char* values();

private:
    void addLiteral(const char* name, const std::string& literal);
    void separate(std::string& list);

    std::string m_names;
    std::string m_values;
};

#endif
