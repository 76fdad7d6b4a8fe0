// Aor, ContactArg and the readers of velmctl's inputs.
#ifndef VELMCTL_INPUT_H
#define VELMCTL_INPUT_H

#include "Status.h"

#include <string>

namespace velmctl {

// An address of record, user@domain.
struct Aor {
    std::string user;
    std::string domain;
    std::string text() const { return user + "@" + domain; }
};

// A contact as given on the command line: a SIP URI, bare or in angle
// brackets (a Contact header value). `uri` is the URI alone.
struct ContactArg {
    std::string uri;
    std::string header;
};

// The largest Expires and CSeq values a SIP message may carry.
const long MAX_DELTA_SECONDS = 4294967295L;
const long MAX_CSEQ = 2147483647L;

// True when `text` is well-formed UTF-8 (no overlong forms, no surrogates,
// nothing above U+10FFFF).
bool isUtf8(const std::string& text);

// Each check answers BAD_INPUT with a message that says what is wrong.
Outcome parseAor(const std::string& text, Aor& aor);
Outcome parseContact(const std::string& text, ContactArg& contact);
// A whole number from `min` to `max` in plain decimal digits (a leading '-'
// only), for the option or argument named `name`.
Outcome parseNumber(const std::string& name, const std::string& text, long min, long max, long& value);
// Seconds from 0 to MAX_DELTA_SECONDS.
Outcome parseSeconds(const std::string& option, const std::string& text, long& seconds);
// A decimal qvalue from 0 to 1, e.g. 0.5 or 1.000.
Outcome parseQvalue(const std::string& text, std::string& qvalue);

} // namespace velmctl

#endif
