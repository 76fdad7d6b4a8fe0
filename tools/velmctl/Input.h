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

// Each check answers BAD_INPUT with a message that says what is wrong.
Outcome parseAor(const std::string& text, Aor& aor);
Outcome parseContact(const std::string& text, ContactArg& contact);
Outcome parseSeconds(const std::string& option, const std::string& text, long& seconds);
Outcome parseQvalue(const std::string& text, std::string& qvalue);

} // namespace velmctl

#endif
