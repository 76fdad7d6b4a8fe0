// Parsing and checking SIP and SIPS URIs with libosip2.
#include "Uri.h"

#include <arpa/inet.h>
#include <osipparser2/osip_port.h>
#include <osipparser2/osip_uri.h>
#include <strings.h>

#include <cctype>
#include <cstdlib>
#include <memory>

namespace osk {
namespace {

struct UriFree {
    void operator()(osip_uri_t* uri) const { osip_uri_free(uri); }
};
using OsipUri = std::unique_ptr<osip_uri_t, UriFree>;

// Takes over a text that libosip2 allocated.
std::string take(char* text) {
    if (text == nullptr)
        return std::string();
    std::string copy(text);
    osip_free(text);
    return copy;
}

// A host name (labels of letters, digits and inner hyphens, one trailing dot
// allowed) or an IPv4 address: digits and dots only can only be the latter.
bool isHostName(std::string host) {
    if (!host.empty() && host.back() == '.')
        host.pop_back();
    bool allDigits = true;
    size_t labelStart = 0;
    for (size_t i = 0; i <= host.size(); ++i) {
        if (i < host.size() && host[i] != '.') {
            unsigned char c = static_cast<unsigned char>(host[i]);
            if (!std::isalnum(c) && c != '-')
                return false;
            allDigits = allDigits && std::isdigit(c);
            continue;
        }
        if (i == labelStart || host[labelStart] == '-' || host[i - 1] == '-')
            return false;
        labelStart = i + 1;
    }
    in_addr ipv4;
    return !allDigits || inet_pton(AF_INET, host.c_str(), &ipv4) == 1;
}

bool isIpv6(const std::string& host) {
    in6_addr address;
    return inet_pton(AF_INET6, host.c_str(), &address) == 1;
}

// "name[=value]" items joined by `separator`, escaped as libosip2 writes them.
std::string joinParameters(const osip_list_t* list, char separator, char* (*escape)(char*)) {
    std::string text;
    osip_list_iterator_t it;
    for (auto* item = static_cast<osip_uri_param_t*>(osip_list_get_first(const_cast<osip_list_t*>(list), &it));
         item != nullptr; item = static_cast<osip_uri_param_t*>(osip_list_get_next(&it))) {
        if (!text.empty())
            text += separator;
        text += take(escape(item->gname));
        if (item->gvalue != nullptr)
            text += "=" + take(escape(item->gvalue));
    }
    return text;
}

// True when `piece` starts or ends with an escaped blank ("%20", "%09",
// "%0A", "%0D"): libosip2 trims what it unescapes, so such a name or value
// would not come back as it was written.
bool trimmedByOsip(const std::string& piece) {
    auto blankAt = [&piece](size_t at) {
        if (at + 3 > piece.size() || piece[at] != '%')
            return false;
        std::string code = piece.substr(at + 1, 2);
        return code == "20" || code == "09" || strcasecmp(code.c_str(), "0a") == 0 ||
               strcasecmp(code.c_str(), "0d") == 0;
    };
    return blankAt(0) || (piece.size() >= 3 && blankAt(piece.size() - 3));
}

// Whether a name or value of the parameters and headers in `tail` (the text
// from the first ';' or '?' after the host) starts or ends with an escaped blank.
bool hasTrimmedPiece(const std::string& tail) {
    size_t start = 0;
    while (start < tail.size()) {
        size_t end = tail.find_first_of(";?&=", start + 1);
        if (end == std::string::npos)
            end = tail.size();
        if (trimmedByOsip(tail.substr(start + 1, end - start - 1)))
            return true;
        start = end;
    }
    return false;
}

} // namespace

Uri::Uri(const char* text) {
    m_valid = text != nullptr ? parse(text) : fail("no URI given");
}

Uri::Uri(const std::string& text) {
    m_valid = parse(text);
}

bool Uri::fail(const std::string& message) {
    m_error = message;
    m_protocol.clear();
    m_hasUser = m_hasPassword = false;
    m_user.clear();
    m_password.clear();
    m_host.clear();
    m_port = 0;
    m_parameters.clear();
    m_headers.clear();
    return false;
}

bool Uri::parse(const std::string& text) {
    if (text.empty())
        return fail("empty URI");
    for (char c : text)
        if (std::isspace(static_cast<unsigned char>(c)) || std::iscntrl(static_cast<unsigned char>(c)))
            return fail("not a SIP URI: it contains a blank or control character");

    // libosip2 reads a broken escape, or one of NUL, as the end of the part.
    for (size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1))
        if (at + 2 >= text.size() || !std::isxdigit(static_cast<unsigned char>(text[at + 1])) ||
            !std::isxdigit(static_cast<unsigned char>(text[at + 2])) || text.compare(at + 1, 2, "00") == 0)
            return fail("not a SIP URI: '%' starts no escape of a character");

    size_t colon = text.find(':');
    if (colon == std::string::npos)
        return fail("not a SIP URI: no scheme");
    std::string scheme = text.substr(0, colon);
    if (strcasecmp(scheme.c_str(), "sip") != 0 && strcasecmp(scheme.c_str(), "sips") != 0)
        return fail("not a SIP or SIPS URI: scheme \"" + scheme + "\"");
    if (text.compare(colon + 1, 1, "@") == 0)
        return fail("not a SIP URI: empty user part before '@'");

    osip_uri_t* raw = nullptr;
    if (osip_uri_init(&raw) != 0)
        return fail("cannot parse SIP URI: out of memory");
    OsipUri uri(raw);
    if (osip_uri_parse(uri.get(), text.c_str()) != 0)
        return fail("not a SIP URI: malformed (user, host, port or parameters)");

    std::string host = uri->host != nullptr ? uri->host : "";
    if (host.empty())
        return fail("not a SIP URI: no host");
    bool bracketed = text.find("[" + host + "]") != std::string::npos;
    if (host.find(':') != std::string::npos || bracketed) {
        if (!bracketed || !isIpv6(host))
            return fail("not a SIP URI: invalid IPv6 host \"" + host + "\"");
        m_host = "[" + host + "]";
    } else if (!isHostName(host)) {
        return fail("not a SIP URI: invalid host \"" + host + "\"");
    } else {
        m_host = host;
    }

    if (uri->port != nullptr) {
        std::string port = uri->port;
        bool digits = !port.empty() && port.size() <= 5;
        for (char c : port)
            digits = digits && std::isdigit(static_cast<unsigned char>(c));
        int value = digits ? std::atoi(port.c_str()) : 0;
        if (value < 1 || value > 65535)
            return fail("not a SIP URI: invalid port \"" + port + "\"");
        m_port = value;
    }

    m_protocol = scheme;
    m_hasUser = uri->username != nullptr;
    if (m_hasUser)
        m_user = take(__osip_uri_escape_userinfo(uri->username));
    m_hasPassword = uri->password != nullptr;
    if (m_hasPassword)
        m_password = take(__osip_uri_escape_password(uri->password));
    // Userinfo cannot hold an unescaped '@'; the host part holds no ';' or '?'.
    size_t hostStart = uri->username != nullptr ? text.find('@') : colon;
    size_t tail = text.find_first_of(";?", hostStart);
    if (tail != std::string::npos && hasTrimmedPiece(text.substr(tail)))
        return fail("not a SIP URI: a parameter or header starts or ends with an escaped blank");
    m_parameters = joinParameters(&uri->url_params, ';', &__osip_uri_escape_uri_param);
    m_headers = joinParameters(&uri->url_headers, '&', &__osip_uri_escape_header_param);
    m_error.clear();
    return true;
}

} // namespace osk
