#ifndef VELM_COLUMNVALUE_H
#define VELM_COLUMNVALUE_H

namespace velm {

// Results read an SQL NULL as the empty text, so a column value counts only
// when it holds some text.
inline bool hasValue(const char* value) {
    return value != nullptr && *value != '\0';
}

} // namespace velm

#endif
