// velmctl's command line: the input is its arguments (separated by NUL
// bytes). Parsing rejects exactly the lines with text that the C library's
// UTF-8 decoder refuses or decodes above U+10FFFF; every word passes the
// input checks without harm, and what they accept is within their bounds.
#include "Arguments.h"
#include "FuzzCheck.h"
#include "Input.h"

#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <vector>

namespace {

bool plainDecimal(const std::string& text, bool point) {
    size_t digits = 0;
    size_t points = 0;
    for (char c : text) {
        digits += c >= '0' && c <= '9';
        points += c == '.';
    }
    return digits > 0 && digits + points == text.size() && points <= (point ? 1u : 0u);
}

bool decodes(const std::string& text) {
    std::mbstate_t state{};
    size_t at = 0;
    while (at < text.size()) {
        wchar_t code;
        size_t length = std::mbrtowc(&code, text.data() + at, text.size() - at, &state);
        if (length == static_cast<size_t>(-1) || length == static_cast<size_t>(-2) || code > 0x10FFFF)
            return false;
        at += length;
    }
    return true;
}

void check(const std::string& text) {
    velmctl::Aor aor;
    if (velmctl::parseAor(text, aor).ok())
        FUZZ_CHECK(aor.text() == text && !aor.user.empty() && !aor.domain.empty());
    velmctl::ContactArg contact;
    if (velmctl::parseContact(text, contact).ok())
        FUZZ_CHECK(!contact.uri.empty() && contact.header.find(contact.uri) != std::string::npos);

    long value = -1;
    velmctl::Outcome number = velmctl::parseNumber("--n", text, -5, 1000, value);
    FUZZ_CHECK(number.ok() != (number.status == velmctl::BAD_INPUT && !number.message.empty()));
    if (number.ok())
        FUZZ_CHECK(value >= -5 && value <= 1000 && plainDecimal(text[0] == '-' ? text.substr(1) : text, false));
    long seconds = -1;
    if (velmctl::parseSeconds("--expires", text, seconds).ok())
        FUZZ_CHECK(seconds >= 0 && seconds <= velmctl::MAX_DELTA_SECONDS && plainDecimal(text, false));
    std::string qvalue;
    if (velmctl::parseQvalue(text, qvalue).ok()) {
        double q = std::strtod(qvalue.c_str(), nullptr);
        FUZZ_CHECK(q >= 0 && q <= 1 && qvalue == text && plainDecimal(text, true));
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<std::string> texts{"velmctl", ""};
    for (size_t at = 0; at < size; ++at) {
        if (data[at] == '\0')
            texts.emplace_back();
        else
            texts.back() += static_cast<char>(data[at]);
    }
    std::vector<char*> argv;
    for (std::string& text : texts)
        argv.push_back(&text[0]);
    argv.push_back(nullptr);

    velmctl::Arguments arguments;
    velmctl::Outcome parsed = arguments.parse(static_cast<int>(texts.size()), argv.data());
    bool allDecode = true;
    for (const std::string& text : texts) {
        FUZZ_CHECK(velmctl::isUtf8(text) == decodes(text));
        allDecode = allDecode && decodes(text);
    }
    if (!allDecode)
        FUZZ_CHECK(!parsed.ok() && parsed.status == velmctl::BAD_INPUT);
    if (!parsed.ok())
        return 0;
    for (const std::string& word : arguments.words())
        check(word);
    return 0;
}
