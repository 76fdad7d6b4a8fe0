// VariableSubstitution::subst: the input is a marker, variables and a text
// (separated by NUL bytes). Expanding in place gives what expanding into
// another string gives; text without the marker, or an empty marker, is
// copied unchanged; a table without variables leaves every text as it is
// except that "$$" becomes "$".
#include "FuzzCheck.h"
#include "VariableSubstitution.h"

#include <cstdint>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<std::string> fields(1);
    for (size_t at = 0; at < size; ++at) {
        if (data[at] == '\0')
            fields.emplace_back();
        else
            fields.back() += static_cast<char>(data[at]);
    }
    if (fields.size() < 2)
        return 0;
    const std::string& marker = fields[0];
    const std::string& text = fields.back();
    Hashtable table;
    for (size_t at = 1; at + 2 < fields.size(); at += 2)
        table.put(fields[at], fields[at + 1]);

    std::string out;
    VariableSubstitution::subst(text, out, table, marker);
    std::string inPlace = text;
    VariableSubstitution::subst(inPlace, inPlace, table, marker);
    FUZZ_CHECK(out == inPlace);
    if (marker.empty() || text.find(marker) == std::string::npos)
        FUZZ_CHECK(out == text);

    if (marker == "$") {
        std::string unexpanded;
        VariableSubstitution::subst(text, unexpanded, Hashtable(), marker);
        std::string expected;
        for (size_t at = 0; at < text.size(); ++at) {
            expected += text[at];
            if (text.compare(at, 2, "$$") == 0)
                ++at;
        }
        FUZZ_CHECK(unexpanded == expected);
    }
    return 0;
}
