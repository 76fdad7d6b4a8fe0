// RegisterRequest and ExpiryPolicy: a REGISTER's contacts and the registrar's expiration limits.
#ifndef VELM_REGISTRAR_REGISTERREQUEST_H
#define VELM_REGISTRAR_REGISTERREQUEST_H

#include "SipResponse.h"

#include <string>
#include <vector>

namespace registrar {

class SipRequest;

// Limits of the registrar: expiration in seconds, and the bindings one
// address of record may have ([Registrar] MaxContacts).
struct ExpiryPolicy {
    long minimum = 60;
    long maximum = 86400;
    long fallback = 3600;
    size_t maxContacts = 10;
};

// One Contact of a REGISTER, with its expiration settled: the contact's own
// expires parameter, else the Expires header, else the default; longer than
// the maximum is shortened to it.
struct ContactBinding {
    std::string uri;
    std::string header;
    long expires = 0;
    // The q parameter as written; empty when absent.
    std::string qvalue;
};

// What a REGISTER asks for. No contacts: a query of the current bindings.
struct RegisterRequest {
    bool wildcard = false;
    std::vector<ContactBinding> contacts;
};

// Reads the Contacts of a REGISTER. False, with the answer in `rejection`,
// when the request is malformed (400; a Contact must be a sip: or sips: URI) or asks for a binding shorter than the
// minimum (423 with Min-Expires).
bool readRegister(const SipRequest& request, const ExpiryPolicy& policy, RegisterRequest& registration,
                  SipResponse& rejection);

// True for a qvalue as SIP writes it: 0 to 1 with at most three decimals.
bool validQvalue(const std::string& text);

} // namespace registrar

#endif
