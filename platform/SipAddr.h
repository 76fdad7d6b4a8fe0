// SipAddr: whether two Contact header values name the same contact.
#ifndef VELM_SIPADDR_H
#define VELM_SIPADDR_H

#include <string>

namespace velm {

// Contact header values of SIP requests.
class SipAddr {
public:
    // True when two Contact header values name the same contact. Each value is
    // a name-addr ("Alice" <sip:alice@host>;expires=60;q=0.8) or a bare
    // addr-spec; the display name and the header parameters (expires, q, ...)
    // play no part. The URIs are equivalent by the rules of RFC 3261 19.1.4:
    // scheme and user (after %-unescaping) exact, host without regard to letter
    // case, an absent port differs from any explicit one, the parameters
    // transport, user, ttl, method and maddr must agree when either URI has
    // them, any other parameter only when both have it (names and values
    // without regard to case; a repeated one as often, with the same values
    // in the same order), and the headers must agree in any order. The answer
    // is the same whichever value comes first.
    //
    // `detail`: empty when the two texts are equal as they stand. Otherwise,
    // on a match, a "; "-separated list of what was treated as equivalent
    // (such as "display name ignored", "header parameters ignored: expires",
    // "host letter case", "parameter in one URI only: lr"); on a mismatch, the
    // reason, such as "ports differ" or "not a SIP address: ...".
    static bool addressMatches(const std::string& unregistering, const std::string& stored, std::string& detail);
};

} // namespace velm

#endif
