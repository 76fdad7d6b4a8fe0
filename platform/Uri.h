// Uri: a SIP or SIPS URI, parsed and strictly checked.
#ifndef OSK_URI_H
#define OSK_URI_H

#include <string>

namespace osk {

// A SIP or SIPS URI (sip:user:password@host:port;parameters?headers), parsed
// with libosip2 and checked more strictly than libosip2 does: the scheme must
// be sip or sips (any letter case), the host a host name, an IPv4 address or
// an IPv6 address in brackets, the port 1 to 65535, and the text free of
// blanks and control characters. The user part may carry '+', ';' user
// parameters and %-escapes; every '%' starts an escape of two hex digits
// (not %00).
//
// The parts come back as the texts they form in a URI, so
// protocol ":" [user [":" password] "@"] host [":" port] [";" parameters]
// ["?" headers] rebuilds an equivalent URI. %-escapes are written back in
// libosip2's canonical form ("%61" becomes "a"); an IPv6 host keeps its
// brackets. Parts that are absent, and every part of an invalid URI, are null.
class Uri {
public:
    explicit Uri(const char* text);
    explicit Uri(const std::string& text);

    bool isValid() const { return m_valid; }
    // Why the text is not a valid SIP URI; empty when it is.
    const char* errorMessage() const { return m_error.c_str(); }

    // "sip" or "sips", in the letter case of the text.
    const char* getProtocol() const { return part(m_protocol, m_valid); }
    const char* getUser() const { return part(m_user, m_hasUser); }
    const char* getPassword() const { return part(m_password, m_hasPassword); }
    const char* getHost() const { return part(m_host, m_valid); }
    // 0 when the URI names no port.
    int getPort() const { return m_port; }
    // The URI parameters without the leading ';', e.g. "transport=tcp;lr".
    const char* getParameters() const { return part(m_parameters, !m_parameters.empty()); }
    // The headers without the leading '?', e.g. "Subject=hi%20there&Priority=urgent".
    const char* getHeaders() const { return part(m_headers, !m_headers.empty()); }

private:
    static const char* part(const std::string& text, bool present) { return present ? text.c_str() : nullptr; }
    bool parse(const std::string& text);
    bool fail(const std::string& message);

    bool m_valid = false;
    std::string m_error;
    std::string m_protocol;
    bool m_hasUser = false;
    std::string m_user;
    bool m_hasPassword = false;
    std::string m_password;
    std::string m_host;
    int m_port = 0;
    std::string m_parameters;
    std::string m_headers;
};

} // namespace osk

#endif
