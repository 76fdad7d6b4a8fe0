// VariableSubstitution: variables in a text expanded from a Hashtable.
#ifndef VELM_VARIABLESUBSTITUTION_H
#define VELM_VARIABLESUBSTITUTION_H

#include "Hashtable.h"

#include <string>

// Expands variables in a text from a Hashtable. With the marker "$":
//   $name    the value of "name"; a name is a letter or '_' followed by
//            letters, digits and '_', as many as there are ("$hostname" is
//            the variable "hostname", never "host" followed by "name")
//   ${name}  the same, delimited: "${host}name"
//   $$       one '$'
// A variable that the table does not hold stays in the text as written, as
// does a marker that starts no variable ("$ ", "$1", a "${" never closed).
// Values are inserted as they are, not expanded again. An address map's
// contact address such as "sip:$user@gw.example.com;$parameters" is written
// in this syntax.
class VariableSubstitution {
public:
    // `text` with its variables expanded into `out` (which may be `text`).
    // `marker` introduces a variable; an empty marker copies `text` unchanged.
    static void subst(const std::string& text, std::string& out, const Hashtable& table, const std::string& marker);
};

#endif
