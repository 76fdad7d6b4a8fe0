// The records' rule for text setters given a null column value.
#ifndef VELM_RECORDTEXT_H
#define VELM_RECORDTEXT_H

#include <string>

namespace velm {

// Column values arrive as C strings: the records' text setters that take one
// keep the field as it was when given a null pointer.
inline void assignUnlessNull(std::string& field, const char* text) {
    if (text != nullptr)
        field = text;
}

} // namespace velm

#endif
