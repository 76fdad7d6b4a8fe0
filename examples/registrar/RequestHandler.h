// RequestHandler and Origin: the answer to one received request, and where the request came from.
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

class ServerTransactions;
class SipRequest;

// Where a request came from, as the transport saw it.
struct Origin {
    std::string address;
    int port = 0;
    // TCP: no retransmissions, and no size limit on the answer.
    bool reliable = false;
};

// The largest request either transport takes, in bytes.
const size_t MAX_MESSAGE = 16384;
// The largest answer sent over UDP: a path MTU of 1500 less 200.
const size_t MAX_UDP_ANSWER = 1300;

// Answers one request: a retransmission gets the answer already sent;
// REGISTER goes to the registrar; INVITE, MESSAGE and OPTIONS to a user are
// redirected; OPTIONS to the server itself is answered here; CANCEL is
// answered from the INVITE transaction it names; ACK gets no answer; other
// methods are not allowed.
class RequestHandler {
public:
    // Without an authenticator every REGISTER is applied.
    RequestHandler(velm::LocationService& service, const ExpiryPolicy& policy, ServerTransactions& transactions,
                   DigestAuthenticator* authenticator);

    // The response text; empty when there is nothing to send.
    std::string handle(const char* message, size_t length, const Origin& origin);

private:
    SipResponse answer(const SipRequest& request, const std::string& method, const char* message, size_t length);

    Registrar m_registrar;
    Redirector m_redirector;
    ServerTransactions& m_transactions;
    velm::Trace m_trace;
};

} // namespace registrar

#endif
