// monthToInt and convertTime: any text is read without harm; a month number
// belongs to exactly its three-letter name, and a time comes only from a text
// that names a month.
#include "ColumnText.h"
#include "FuzzCheck.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::string text(reinterpret_cast<const char*>(data), size);
    int month = velm::monthToInt(text);
    FUZZ_CHECK(month >= -1 && month <= 11);
    FUZZ_CHECK(month == -1 || text == months[month]);

    time_t time = velm::convertTime(text.c_str());
    if (time != 0) {
        bool namesAMonth = false;
        for (const char* name : months)
            namesAMonth = namesAMonth || text.find(name) != std::string::npos;
        FUZZ_CHECK(namesAMonth);
    }
    return 0;
}
