// Dispatching one datagram to the registrar or the redirect server by method.
#include "RequestHandler.h"

#include "SipRequest.h"

namespace registrar {

namespace {

const char ALLOWED_METHODS[] = "REGISTER, INVITE, MESSAGE, OPTIONS, ACK";

} // namespace

RequestHandler::RequestHandler(velm::LocationService& service, const ExpiryPolicy& policy,
                               DigestAuthenticator* authenticator)
    : m_registrar(service, policy, authenticator), m_redirector(service), m_trace("Registrar") {}

std::string RequestHandler::handle(const char* datagram, size_t length) {
    SipRequest request;
    if (!request.parse(datagram, length)) {
        m_trace.prn("dropped a datagram of %zu bytes that is not an answerable request", length);
        return std::string();
    }
    const std::string method = request.method();
    SipResponse response;
    if (method == "ACK") {
        return std::string();
    } else if (method == "REGISTER") {
        response = m_registrar.handle(request);
    } else if (method == "OPTIONS" && !request.requestUriHasUser()) {
        response = SipResponse(200, "OK");
        response.addHeader("Allow", ALLOWED_METHODS);
    } else if (method == "INVITE" || method == "MESSAGE" || method == "OPTIONS") {
        response = m_redirector.handle(request);
    } else {
        response = SipResponse(405, "Method Not Allowed");
        response.addHeader("Allow", ALLOWED_METHODS);
    }
    if (m_trace.enabled())
        m_trace.prn("%s %s: %d %s", method.c_str(), request.requestUri().c_str(), response.code(),
                    response.reason().c_str());
    return response.render(request);
}

} // namespace registrar
