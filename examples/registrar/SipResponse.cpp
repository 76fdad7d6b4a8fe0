// Building and rendering a final SIP response, with its To tag.
#include "SipResponse.h"

#include "SipRequest.h"

#include <atomic>
#include <unistd.h>

#include <cstdio>

namespace registrar {

namespace {

// A To tag unique within this process run: the process id and a counter.
std::string newTag() {
    static std::atomic<unsigned long> counter{0};
    char tag[48];
    std::snprintf(tag, sizeof tag, "vr%lx.%lx", static_cast<unsigned long>(getpid()), ++counter);
    return tag;
}

} // namespace

void SipResponse::addHeader(const std::string& name, const std::string& value) {
    m_headers.push_back(name + ": " + value);
}

SipResponse SipResponse::badRequest(const std::string& why) {
    SipResponse response(400, "Bad Request");
    response.addWarning(why);
    return response;
}

void SipResponse::addWarning(const std::string& text) {
    std::string quoted;
    for (char c : text) {
        if (c == '\r' || c == '\n' || c == '\t')
            c = ' ';
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    addHeader("Warning", "399 velm-registrar \"" + quoted + "\"");
}

std::string SipResponse::render(const SipRequest& request) const {
    std::string text = "SIP/2.0 " + std::to_string(m_code) + " " + m_reason + "\r\n";
    for (const std::string& line : request.responseHeaders(newTag()))
        text += line + "\r\n";
    for (const std::string& line : m_headers)
        text += line + "\r\n";
    text += "Server: velm-registrar\r\nContent-Length: 0\r\n\r\n";
    return text;
}

} // namespace registrar
