// Parsing a received SIP request with libosip2 and reading its parts.
#include "SipRequest.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace registrar {

namespace {

std::string text(const char* value) {
    return value != nullptr ? std::string(value) : std::string();
}

// The value of parameter `name` in `params`, empty when absent.
std::string parameter(osip_list_t* params, const char* name) {
    std::string value;
    osipParameter(params, name, value);
    return value;
}

const char MAGIC_COOKIE[] = "z9hG4bK";

// The length of the UTF-8 sequence that `lead` starts (1 to 4), or 0.
int sequenceLength(unsigned char lead) {
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    return 0;
}

} // namespace

SipRequest::SipRequest() : m_message(nullptr) {}

SipRequest::~SipRequest() {
    if (m_message != nullptr)
        osip_message_free(m_message);
}

void SipRequest::initialiseParser() {
    parser_init();
}

bool SipRequest::parse(const char* data, size_t length) {
    if (m_message != nullptr) {
        osip_message_free(m_message);
        m_message = nullptr;
    }
    if (osip_message_init(&m_message) != 0) {
        m_message = nullptr;
        return false;
    }
    if (osip_message_parse(m_message, data, length) != 0)
        return false;
    osip_via_t* via = nullptr;
    return MSG_IS_REQUEST(m_message) && m_message->sip_method != nullptr && m_message->req_uri != nullptr &&
           osip_message_get_via(m_message, 0, &via) >= 0 && m_message->from != nullptr && m_message->to != nullptr &&
           m_message->call_id != nullptr && m_message->cseq != nullptr && m_message->cseq->number != nullptr;
}

std::string SipRequest::method() const {
    return text(m_message->sip_method);
}

std::string SipRequest::requestUri() const {
    return osipText(osip_uri_to_str, m_message->req_uri);
}

std::string SipRequest::requestUser() const {
    return text(m_message->req_uri->username);
}

std::string SipRequest::requestHost() const {
    return text(m_message->req_uri->host);
}

std::string SipRequest::toUser() const {
    return m_message->to->url != nullptr ? text(m_message->to->url->username) : std::string();
}

std::string SipRequest::toHost() const {
    return m_message->to->url != nullptr ? text(m_message->to->url->host) : std::string();
}

bool SipRequest::toIsSip() const {
    const osip_uri_t* uri = m_message->to->url;
    return uri != nullptr && uri->scheme != nullptr &&
           (strcasecmp(uri->scheme, "sip") == 0 || strcasecmp(uri->scheme, "sips") == 0);
}

std::string SipRequest::callId() const {
    return osipText(osip_call_id_to_str, m_message->call_id);
}

long SipRequest::cseq() const {
    const char* number = m_message->cseq->number;
    char* end = nullptr;
    errno = 0;
    long value = std::strtol(number, &end, 10);
    if (*number == '\0' || *end != '\0' || errno != 0 || value < 0)
        return -1;
    return value;
}

bool SipRequest::expiresHeader(std::string& value) const {
    osip_header_t* header = nullptr;
    if (osip_message_get_expires(m_message, 0, &header) < 0 || header == nullptr)
        return false;
    value = text(header->hvalue);
    return true;
}

size_t SipRequest::contactCount() const {
    return static_cast<size_t>(osip_list_size(&m_message->contacts));
}

osip_contact_t* SipRequest::contact(size_t index) const {
    osip_contact_t* contact = nullptr;
    osip_message_get_contact(m_message, static_cast<int>(index), &contact);
    return contact;
}

osip_authorization_t* SipRequest::authorization(size_t index) const {
    osip_authorization_t* authorization = nullptr;
    osip_message_get_authorization(m_message, static_cast<int>(index), &authorization);
    return authorization;
}

std::vector<std::string> SipRequest::responseHeaders(const std::string& toTag) const {
    std::vector<std::string> lines;
    osip_via_t* via = nullptr;
    for (int position = 0; osip_message_get_via(m_message, position, &via) >= 0; ++position)
        lines.push_back("Via: " + osipText(osip_via_to_str, via));
    lines.push_back("From: " + osipText(osip_from_to_str, m_message->from));
    std::string to = "To: " + osipText(osip_to_to_str, m_message->to);
    osip_generic_param_t* tag = nullptr;
    char tagName[] = "tag"; // libosip2 takes the name as char*
    if (osip_generic_param_get_byname(&m_message->to->gen_params, tagName, &tag) != 0)
        to += ";tag=" + toTag;
    lines.push_back(to);
    lines.push_back("Call-ID: " + callId());
    lines.push_back("CSeq: " + osipText(osip_cseq_to_str, m_message->cseq));
    return lines;
}

std::string SipRequest::transactionKey(const std::string& method) const {
    osip_via_t* via = nullptr;
    osip_message_get_via(m_message, 0, &via);
    const std::string branch = parameter(&via->via_params, "branch");
    const std::string sentBy = text(via->host) + ":" + text(via->port);
    if (branch.compare(0, sizeof MAGIC_COOKIE - 1, MAGIC_COOKIE) == 0)
        return branch + '\n' + sentBy + '\n' + method;
    const std::string toTag = this->method() == "ACK" ? std::string() : parameter(&m_message->to->gen_params, "tag");
    return requestUri() + '\n' + toTag + '\n' + parameter(&m_message->from->gen_params, "tag") + '\n' + callId() +
           '\n' + text(m_message->cseq->number) + '\n' + method + '\n' + osipText(osip_via_to_str, via);
}

void SipRequest::setReceived(const std::string& address, int port) {
    osip_via_t* via = nullptr;
    osip_message_get_via(m_message, 0, &via);
    osip_generic_param_t* rport = nullptr;
    char rportName[] = "rport";
    const bool symmetric = osip_via_param_get_byname(via, rportName, &rport) == 0 && rport != nullptr;
    if (symmetric) {
        osip_free(rport->gvalue);
        rport->gvalue = osip_strdup(std::to_string(port).c_str());
    }
    std::string received;
    if ((symmetric || address != text(via->host)) && !osipParameter(&via->via_params, "received", received))
        osip_via_set_received(via, osip_strdup(address.c_str()));
}

std::vector<std::string> SipRequest::required() const {
    std::vector<std::string> tags;
    osip_header_t* header = nullptr;
    for (int position = 0; osip_message_get_require(m_message, position, &header) >= 0; ++position) {
        const std::string value = text(header->hvalue);
        size_t start = 0;
        while (start < value.size()) {
            size_t end = value.find(',', start);
            if (end == std::string::npos)
                end = value.size();
            const size_t first = value.find_first_not_of(" \t", start);
            const size_t last = value.find_last_not_of(" \t", end - 1);
            if (first < end && last != std::string::npos && last >= first)
                tags.push_back(value.substr(first, last - first + 1));
            start = end + 1;
        }
    }
    return tags;
}

bool headIsUtf8(const char* text, size_t length) {
    const char blank[] = "\r\n\r\n";
    const size_t end = static_cast<size_t>(std::search(text, text + length, blank, blank + 4) - text);
    for (size_t i = 0; i < end;) {
        const unsigned char lead = static_cast<unsigned char>(text[i]);
        const int size = sequenceLength(lead);
        if (size == 0 || i + static_cast<size_t>(size) > end)
            return false;
        for (int k = 1; k < size; ++k)
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80)
                return false;
        // Overlong three- and four-byte forms, surrogates, beyond U+10FFFF.
        const unsigned char second = static_cast<unsigned char>(size > 1 ? text[i + 1] : 0);
        if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) || (lead == 0xF0 && second < 0x90) ||
            (lead == 0xF4 && second > 0x8F))
            return false;
        i += static_cast<size_t>(size);
    }
    return true;
}

bool osipParameter(osip_list_t* params, const char* name, std::string& value) {
    osip_generic_param_t* param = nullptr;
    if (osip_generic_param_get_byname(params, const_cast<char*>(name), &param) != 0 || param == nullptr)
        return false;
    value = text(param->gvalue);
    return true;
}

} // namespace registrar
