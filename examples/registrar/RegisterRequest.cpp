// Reading a REGISTER's contacts and settling each contact's expiration.
#include "RegisterRequest.h"

#include "SipRequest.h"

#include <strings.h>

#include <cctype>

namespace registrar {

namespace {

// delta-seconds: digits only. Values beyond `cap` are read as `cap`.
bool readSeconds(const std::string& text, long cap, long& seconds) {
    if (text.empty())
        return false;
    long value = 0;
    for (char c : text) {
        if (!std::isdigit(static_cast<unsigned char>(c)))
            return false;
        if (value <= cap)
            value = value * 10 + (c - '0');
    }
    seconds = value > cap ? cap : value;
    return true;
}

bool reject(SipResponse& rejection, const std::string& why) {
    rejection = SipResponse::badRequest(why);
    return false;
}

} // namespace

bool validQvalue(const std::string& text) {
    if (text.empty() || (text[0] != '0' && text[0] != '1'))
        return false;
    if (text.size() == 1)
        return true;
    if (text[1] != '.' || text.size() > 5)
        return false;
    for (size_t i = 2; i < text.size(); ++i)
        if (!std::isdigit(static_cast<unsigned char>(text[i])) || (text[0] == '1' && text[i] != '0'))
            return false;
    return true;
}

bool readRegister(const SipRequest& request, const ExpiryPolicy& policy, RegisterRequest& registration,
                  SipResponse& rejection) {
    long headerExpires = policy.fallback;
    std::string expiresText;
    if (request.expiresHeader(expiresText) && !readSeconds(expiresText, policy.maximum, headerExpires))
        return reject(rejection, "invalid Expires header");

    for (size_t index = 0; index < request.contactCount(); ++index) {
        osip_contact_t* contact = request.contact(index);
        if (contact == nullptr)
            return reject(rejection, "unreadable Contact");
        if (contact->url == nullptr) {
            // libosip2 reads "Contact: *" as a contact without URI.
            if (contact->displayname == nullptr || std::string(contact->displayname) != "*")
                return reject(rejection, "Contact without URI");
            registration.wildcard = true;
            continue;
        }
        const char* scheme = contact->url->scheme;
        if (scheme == nullptr || (strcasecmp(scheme, "sip") != 0 && strcasecmp(scheme, "sips") != 0))
            return reject(rejection, "Contact is not a sip: or sips: URI");
        ContactBinding binding;
        binding.uri = osipText(osip_uri_to_str, contact->url);
        binding.header = osipText(osip_contact_to_str, contact);
        binding.expires = headerExpires;
        std::string text;
        if (osipParameter(&contact->gen_params, "expires", text) && !readSeconds(text, policy.maximum, binding.expires))
            return reject(rejection, "invalid expires parameter in " + binding.uri);
        if (osipParameter(&contact->gen_params, "q", binding.qvalue) && !validQvalue(binding.qvalue))
            return reject(rejection, "invalid q parameter in " + binding.uri);
        if (binding.expires != 0 && binding.expires < policy.minimum) {
            rejection = SipResponse(423, "Interval Too Brief");
            rejection.addHeader("Min-Expires", std::to_string(policy.minimum));
            return false;
        }
        registration.contacts.push_back(binding);
    }
    if (registration.wildcard && (!registration.contacts.empty() || headerExpires != 0 || expiresText.empty()))
        return reject(rejection, "Contact: * needs Expires: 0 and no other Contact");
    return true;
}

} // namespace registrar
