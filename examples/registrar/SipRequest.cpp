// Parsing a received SIP request with libosip2 and reading its parts.
#include "SipRequest.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace registrar {

namespace {

std::string text(const char* value) {
    return value != nullptr ? std::string(value) : std::string();
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

bool osipParameter(osip_list_t* params, const char* name, std::string& value) {
    osip_generic_param_t* param = nullptr;
    if (osip_generic_param_get_byname(params, const_cast<char*>(name), &param) != 0 || param == nullptr)
        return false;
    value = text(param->gvalue);
    return true;
}

} // namespace registrar
