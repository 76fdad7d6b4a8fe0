// How the executor reads boolean, empty and time-stamp column texts.
#ifndef VELM_COLUMNTEXT_H
#define VELM_COLUMNTEXT_H

#include <ctime>
#include <string>

namespace velm {

// Boolean columns are read by their first character. A character that is
// neither ('\0' of an SQL NULL, say) is neither true nor false.
bool isTrue(char c);   // 't', 'T' or '1'
bool isFalse(char c);  // 'f', 'F' or '0'

// Results read an SQL NULL as the empty text, so a column value counts only
// when it holds some text.
inline bool hasValue(const char* value) {
    return value != nullptr && *value != '\0';
}

// "Jan" is 0 ... "Dec" is 11, exactly so; anything else is -1.
int monthToInt(const std::string& name);

// Reads a time stamp in the layout of ctime(), "Sun Nov 15 06:20:45 2026", as
// local time. Null, another layout or an unknown month gives 0.
time_t convertTime(const char* text);

} // namespace velm

#endif
