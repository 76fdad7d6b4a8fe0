// StatementShape: a statement with its literals lifted out, ready to be prepared.
#ifndef VELM_STATEMENTSHAPE_H
#define VELM_STATEMENTSHAPE_H

#include <string>
#include <vector>

namespace velm {

// One statement with its literals lifted out: the text with $1, $2, ... in
// their places and the values in order, ready to be prepared once and run
// with different values. Plain quoted strings become untyped parameters,
// exactly as untyped as the literal was; integers become parameters of the
// type the server gives such a literal (int4, else int8). Everything else
// (decimals, prefixed strings such as E'...', dollar quotes, identifiers,
// comments, and the column positions of ORDER BY / GROUP BY) stays in the
// text.
struct StatementShape {
    static const unsigned UNTYPED = 0;
    static const unsigned INT4 = 23;
    static const unsigned INT8 = 20;

    std::string text;
    std::vector<std::string> values;
    std::vector<unsigned> types;

    // False when `sql` is not a candidate: more than one statement, not a
    // SELECT / INSERT / UPDATE / DELETE / WITH / VALUES, no literal to lift,
    // parameters of its own, or a quoted string with a backslash when the
    // server does not read strings standard-conformingly.
    static bool of(const char* sql, bool standardStrings, StatementShape& shape);
};

} // namespace velm

#endif
