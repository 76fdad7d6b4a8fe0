// TcpServer: velm-registrar's TCP transport, one thread that polls every connection.
#ifndef VELM_REGISTRAR_TCPSERVER_H
#define VELM_REGISTRAR_TCPSERVER_H

#include "RegisterRequest.h"
#include "Trace.h"

#include <netinet/in.h>

#include <chrono>
#include <list>
#include <string>
#include <thread>

namespace registrar {

class DigestAuthenticator;
class RequestHandler;
class ServerTransactions;

// Accepts TCP connections and answers the requests on them, on one thread
// with its own LocationService: several messages per connection and messages
// split across reads are framed by Content-Length, and each answer goes back
// on its request's connection. Connections idle for a minute are closed, and
// beyond a cap new ones are closed at once.
class TcpServer {
public:
    // Without an authenticator every REGISTER is applied.
    TcpServer(ServerTransactions& transactions, const ExpiryPolicy& policy, DigestAuthenticator* authenticator);
    ~TcpServer();
    TcpServer(const TcpServer&) = delete;
    TcpServer& operator=(const TcpServer&) = delete;

    // Listens on `local`; false with the reason in `error`.
    bool open(const sockaddr_in& local, std::string& error);
    void start();
    // Wakes the thread, waits for it and closes every socket.
    void stop();

private:
    struct Connection {
        Connection(int socket, const std::string& address, int port);
        ~Connection();
        Connection(const Connection&) = delete;
        Connection& operator=(const Connection&) = delete;

        const int socket;
        const std::string address;
        const int port;
        std::string input;
        std::string output;
        std::chrono::steady_clock::time_point lastUsed;
    };

    void run();
    void accept();
    // False when the connection is to be closed.
    bool receive(Connection& connection, RequestHandler& handler);
    bool flush(Connection& connection);

    ServerTransactions& m_transactions;
    ExpiryPolicy m_policy;
    DigestAuthenticator* m_authenticator;
    int m_listener = -1;
    int m_wake[2] = {-1, -1};
    std::list<Connection> m_connections;
    std::thread m_thread;
    velm::Trace m_trace;
};

} // namespace registrar

#endif
