// Dispatching one request by method, behind the server transactions that answer its retransmissions.
#include "RequestHandler.h"

#include "ServerTransactions.h"
#include "SipRequest.h"

namespace registrar {

namespace {

const char ALLOWED_METHODS[] = "REGISTER, INVITE, MESSAGE, OPTIONS, ACK, CANCEL";

std::string joined(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items)
        text += (text.empty() ? "" : ", ") + item;
    return text;
}

} // namespace

RequestHandler::RequestHandler(velm::LocationService& service, const ExpiryPolicy& policy,
                               ServerTransactions& transactions, DigestAuthenticator* authenticator)
    : m_registrar(service, policy, authenticator), m_redirector(service), m_transactions(transactions),
      m_trace("Registrar") {}

std::string RequestHandler::handle(const char* message, size_t length, const Origin& origin) {
    SipRequest request;
    if (!request.parse(message, length)) {
        m_trace.prn("dropped %zu bytes from %s:%d that are not an answerable request", length, origin.address.c_str(),
                    origin.port);
        return std::string();
    }
    const std::string method = request.method();
    const ServerTransactions::Clock::time_point now = ServerTransactions::Clock::now();
    if (method == "ACK") {
        if (m_transactions.acknowledge(request.transactionKey("INVITE"), origin.reliable, now))
            m_trace.prn("ACK %s: acknowledges an answered INVITE", request.requestUri().c_str());
        return std::string();
    }
    const std::string key = request.transactionKey(method);
    std::string sent;
    switch (m_transactions.begin(key, now, sent)) {
    case TransactionState::Proceeding:
        m_trace.prn("%s %s: retransmitted while in work", method.c_str(), request.requestUri().c_str());
        return std::string();
    case TransactionState::Completed:
        m_trace.prn("%s %s: retransmitted, answered again", method.c_str(), request.requestUri().c_str());
        return sent;
    case TransactionState::New:
        break;
    }

    request.setReceived(origin.address, origin.port);
    SipResponse response = answer(request, method, message, length);
    if (m_trace.enabled())
        m_trace.prn("%s %s: %d %s", method.c_str(), request.requestUri().c_str(), response.code(),
                    response.reason().c_str());
    std::string text = response.render(request);
    if (!origin.reliable && text.size() > MAX_UDP_ANSWER) {
        m_trace.log("%s %s: the %d answer of %zu bytes does not fit a UDP datagram", method.c_str(),
                    request.requestUri().c_str(), response.code(), text.size());
        text = SipResponse(500, "Response Too Large").render(request);
    }
    m_transactions.complete(key, text, method == "INVITE", origin.reliable, ServerTransactions::Clock::now());
    return text;
}

SipResponse RequestHandler::answer(const SipRequest& request, const std::string& method, const char* message,
                                   size_t length) {
    if (!headIsUtf8(message, length))
        return SipResponse::badRequest("the request is not valid UTF-8");
    const std::vector<std::string> unsupported = request.required();
    if (!unsupported.empty() && method != "CANCEL") {
        SipResponse response(420, "Bad Extension");
        response.addHeader("Unsupported", joined(unsupported));
        return response;
    }
    if (method == "CANCEL") {
        // A redirect server answers an INVITE at once: the one a CANCEL names
        // has its final answer already, and only the CANCEL is answered.
        if (m_transactions.contains(request.transactionKey("INVITE"), ServerTransactions::Clock::now()))
            return SipResponse(200, "OK");
        return SipResponse(481, "Call/Transaction Does Not Exist");
    }
    if (method == "REGISTER")
        return m_registrar.handle(request);
    if (method == "OPTIONS" && !request.requestUriHasUser()) {
        SipResponse response(200, "OK");
        response.addHeader("Allow", ALLOWED_METHODS);
        return response;
    }
    if (method == "INVITE" || method == "MESSAGE" || method == "OPTIONS")
        return m_redirector.handle(request);
    SipResponse response(405, "Method Not Allowed");
    response.addHeader("Allow", ALLOWED_METHODS);
    return response;
}

} // namespace registrar
