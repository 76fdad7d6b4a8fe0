// RequestHandler: the answer to one received datagram.
#ifndef VELM_REGISTRAR_REQUESTHANDLER_H
#define VELM_REGISTRAR_REQUESTHANDLER_H

#include "Redirector.h"
#include "Registrar.h"
#include "Trace.h"

#include <string>

namespace velm {
class LocationService;
}

namespace registrar {

// Answers one datagram: REGISTER goes to the registrar; INVITE, MESSAGE and
// OPTIONS to a user are redirected; OPTIONS to the server itself is answered
// here; ACK gets no answer; other methods are not allowed.
class RequestHandler {
public:
    // Without an authenticator every REGISTER is applied.
    RequestHandler(velm::LocationService& service, const ExpiryPolicy& policy, DigestAuthenticator* authenticator);

    // The response text; empty when there is nothing to send.
    std::string handle(const char* datagram, size_t length);

private:
    Registrar m_registrar;
    Redirector m_redirector;
    velm::Trace m_trace;
};

} // namespace registrar

#endif
