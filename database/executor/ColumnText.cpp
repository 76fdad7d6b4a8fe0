// Reading column texts as booleans, month names and ctime() time stamps.
#include "ColumnText.h"

#include "StringTokenizer.h"

#include <climits>
#include <cstdlib>

namespace velm {

bool isTrue(char c) {
    return c == 't' || c == 'T' || c == '1';
}

bool isFalse(char c) {
    return c == 'f' || c == 'F' || c == '0';
}

int monthToInt(const std::string& name) {
    static const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (int month = 0; month < 12; ++month)
        if (name == months[month])
            return month;
    return -1;
}

time_t convertTime(const char* text) {
    if (text == nullptr)
        return 0;
    StringTokenizer tokens(text, ":- .");
    if (tokens.countTokens() != 7)
        return 0;
    tokens.nextToken();  // the weekday says nothing the date does not
    int month = monthToInt(tokens.nextToken());
    if (month == -1)
        return 0;
    struct tm calendar = {};
    calendar.tm_mon = month;
    calendar.tm_mday = std::atoi(tokens.nextToken().c_str());
    calendar.tm_hour = std::atoi(tokens.nextToken().c_str());
    calendar.tm_min = std::atoi(tokens.nextToken().c_str());
    calendar.tm_sec = std::atoi(tokens.nextToken().c_str());
    // A year that does not fit the calendar's count from 1900 names no time.
    long year = std::strtol(tokens.nextToken().c_str(), nullptr, 10);
    if (year < INT_MIN + 1900L || year > INT_MAX)
        return 0;
    calendar.tm_year = static_cast<int>(year - 1900);
    calendar.tm_isdst = -1;
    time_t converted = mktime(&calendar);
    return converted == static_cast<time_t>(-1) ? 0 : converted;
}

} // namespace velm
