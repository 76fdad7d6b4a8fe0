// SipServer and ServerSettings: velm-registrar's UDP transport, with TCP beside it.
#ifndef VELM_REGISTRAR_SIPSERVER_H
#define VELM_REGISTRAR_SIPSERVER_H

#include "RegisterRequest.h"
#include "ServerTransactions.h"
#include "TcpServer.h"
#include "Trace.h"

#include <string>
#include <thread>
#include <vector>

namespace registrar {

class DigestAuthenticator;

struct ServerSettings {
    std::string address = "127.0.0.1";
    // 0: any free port (see SipServer::port()).
    int port = 5060;
    int threads = 1;
    ExpiryPolicy policy;
    // Null: REGISTER is not authenticated.
    DigestAuthenticator* authenticator = nullptr;
};

// The UDP transport: one socket that every worker thread reads from and
// answers on, and the TCP transport on the same address and port. Each
// worker takes its own LocationService from the pool; all share the server
// transactions.
class SipServer {
public:
    explicit SipServer(const ServerSettings& settings);
    ~SipServer();
    SipServer(const SipServer&) = delete;
    SipServer& operator=(const SipServer&) = delete;

    // Binds both sockets; false with the reason in `error`.
    bool open(std::string& error);
    // The bound port, once open.
    int port() const { return m_port; }
    void start();
    // Wakes every worker, waits for them and closes the sockets.
    void stop();

private:
    void work();

    ServerSettings m_settings;
    ServerTransactions m_transactions;
    TcpServer m_tcp;
    int m_socket = -1;
    int m_wake[2] = {-1, -1};
    int m_port = 0;
    std::vector<std::thread> m_workers;
    velm::Trace m_trace;
};

} // namespace registrar

#endif
