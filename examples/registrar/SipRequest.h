// SipRequest: one received SIP request.
#ifndef VELM_REGISTRAR_SIPREQUEST_H
#define VELM_REGISTRAR_SIPREQUEST_H

#include <osipparser2/osip_parser.h>

#include <string>
#include <vector>

namespace registrar {

// One received SIP request, parsed by libosip2. Owns the parsed message.
class SipRequest {
public:
    SipRequest();
    ~SipRequest();
    SipRequest(const SipRequest&) = delete;
    SipRequest& operator=(const SipRequest&) = delete;

    // Call once per process before the first parse.
    static void initialiseParser();

    // False for a datagram that is not a request we can answer: unparsable,
    // a response, or without the Via, From, To, Call-ID or CSeq a reply needs.
    bool parse(const char* text, size_t length);

    std::string method() const;
    std::string requestUri() const;
    // The Request-URI's user part and host; empty when absent.
    std::string requestUser() const;
    std::string requestHost() const;
    bool requestUriHasUser() const { return !requestUser().empty(); }
    // The To URI's user part and host, as the phone wrote them.
    std::string toUser() const;
    std::string toHost() const;
    // Whether the To header carries a SIP or SIPS URI.
    bool toIsSip() const;
    std::string callId() const;
    // The CSeq number, or -1 when it is not a number.
    long cseq() const;
    // The value of the first Expires header; false when there is none.
    bool expiresHeader(std::string& value) const;
    size_t contactCount() const;
    osip_contact_t* contact(size_t index) const;
    // The Authorization header at `index`; null past the last.
    osip_authorization_t* authorization(size_t index) const;
    // The header lines a response copies from the request, each without its
    // line end: the Vias in order, From, To (with `toTag` added when the
    // request has none), Call-ID and CSeq.
    std::vector<std::string> responseHeaders(const std::string& toTag) const;
    // The key of the server transaction this request belongs to, as a request
    // of `method` (ACK and CANCEL look up their INVITE's): the top Via's
    // branch, sent-by and the method; for a branch from before RFC 3261, the
    // Request-URI, the From and To tags, Call-ID, CSeq and the top Via. An
    // ACK leaves its To tag out, as the INVITE it acknowledges had none.
    std::string transactionKey(const std::string& method) const;
    // Records in the top Via where the request came from: received (when it
    // is not the sent-by host, or rport asks) and the rport value.
    void setReceived(const std::string& address, int port);
    // The option tags of every Require header.
    std::vector<std::string> required() const;

private:
    osip_message_t* m_message;
};

// Whether the start line and headers of `text` (up to the first empty line)
// are valid UTF-8.
bool headIsUtf8(const char* text, size_t length);

// The text of a parsed header element (libosip2's *_to_str), or empty.
template <class Element>
std::string osipText(int (*toString)(const Element*, char**), const Element* element) {
    char* text = nullptr;
    if (element == nullptr || toString(element, &text) != 0 || text == nullptr)
        return std::string();
    std::string result(text);
    osip_free(text);
    return result;
}

// The value of a generic parameter (;name=value) in `params`; false when
// absent. A parameter without a value gives an empty text.
bool osipParameter(osip_list_t* params, const char* name, std::string& value);

} // namespace registrar

#endif
