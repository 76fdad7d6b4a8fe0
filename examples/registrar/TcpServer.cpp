// The TCP transport: accepting, framing by Content-Length, answering on the connection, closing idle ones.
#include "TcpServer.h"

#include "LocationServicePool.h"
#include "RequestHandler.h"
#include "ServerTransactions.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <vector>

namespace registrar {

namespace {

using Clock = std::chrono::steady_clock;

const size_t MAX_CONNECTIONS = 256;
const std::chrono::seconds IDLE(60);
// How often the thread wakes to close idle connections.
const int SWEEP_MS = 1000;

// The value of the Content-Length header (or its compact form "l") in the
// header lines `head`; false when there is none or it is not a number.
bool contentLength(const std::string& head, size_t& length) {
    size_t start = head.find("\r\n");
    while (start != std::string::npos && start < head.size()) {
        start += 2;
        const size_t end = std::min(head.find("\r\n", start), head.size());
        const size_t colon = head.find(':', start);
        if (colon < end) {
            std::string name = head.substr(start, colon - start);
            while (!name.empty() && (name.back() == ' ' || name.back() == '\t'))
                name.pop_back();
            for (char& c : name)
                c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            if (name == "content-length" || name == "l") {
                const size_t first = head.find_first_not_of(" \t", colon + 1);
                const size_t last = head.find_last_not_of(" \t", end - 1);
                const std::string value = first < end ? head.substr(first, last - first + 1) : std::string();
                if (value.empty() || value.size() > 9 || value.find_first_not_of("0123456789") != std::string::npos)
                    return false;
                length = std::stoul(value);
                return true;
            }
        }
        start = end;
    }
    return false;
}

// The length of the whole message at the start of `input`: 0 while more
// bytes are needed, -1 when it cannot be framed (no Content-Length, or
// longer than MAX_MESSAGE).
long frameLength(const std::string& input) {
    const size_t headEnd = input.find("\r\n\r\n");
    if (headEnd == std::string::npos)
        return input.size() > MAX_MESSAGE ? -1 : 0;
    size_t body = 0;
    if (!contentLength(input.substr(0, headEnd), body) || body > MAX_MESSAGE || headEnd + 4 + body > MAX_MESSAGE)
        return -1;
    return input.size() < headEnd + 4 + body ? 0 : static_cast<long>(headEnd + 4 + body);
}

} // namespace

TcpServer::Connection::Connection(int socket, const std::string& address, int port)
    : socket(socket), address(address), port(port), lastUsed(Clock::now()) {}

TcpServer::Connection::~Connection() {
    close(socket);
}

TcpServer::TcpServer(ServerTransactions& transactions, const ExpiryPolicy& policy,
                     DigestAuthenticator* authenticator)
    : m_transactions(transactions), m_policy(policy), m_authenticator(authenticator), m_trace("Registrar") {}

TcpServer::~TcpServer() {
    stop();
}

bool TcpServer::open(const sockaddr_in& local, std::string& error) {
    m_listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    int reuse = 1;
    if (m_listener < 0 || setsockopt(m_listener, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) != 0 ||
        bind(m_listener, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0 ||
        listen(m_listener, SOMAXCONN) != 0 || pipe2(m_wake, O_CLOEXEC) != 0) {
        char address[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &local.sin_addr, address, sizeof address);
        error = std::string("cannot listen on TCP ") + address + ":" + std::to_string(ntohs(local.sin_port)) + ": " +
                std::strerror(errno);
        return false;
    }
    return true;
}

void TcpServer::start() {
    m_thread = std::thread(&TcpServer::run, this);
}

void TcpServer::stop() {
    if (m_thread.joinable()) {
        char byte = 0;
        if (write(m_wake[1], &byte, 1) != 1)
            m_trace.log("cannot wake the TCP thread: %s", std::strerror(errno));
        m_thread.join();
    }
    m_connections.clear();
    for (int* fd : {&m_listener, &m_wake[0], &m_wake[1]}) {
        if (*fd >= 0)
            close(*fd);
        *fd = -1;
    }
}

void TcpServer::run() {
    velm::LocationService* service = velm::LocationServicePool::Instance()->getConnection();
    if (service == nullptr) {
        m_trace.log("TCP without a location service: it answers nothing");
        return;
    }
    RequestHandler handler(*service, m_policy, m_transactions, m_authenticator);
    std::vector<pollfd> watched;
    std::vector<std::list<Connection>::iterator> polled;
    for (;;) {
        watched.assign({{m_wake[0], POLLIN, 0}, {m_listener, POLLIN, 0}});
        polled.clear();
        for (auto connection = m_connections.begin(); connection != m_connections.end(); ++connection) {
            const short events = static_cast<short>(POLLIN | (connection->output.empty() ? 0 : POLLOUT));
            watched.push_back({connection->socket, events, 0});
            polled.push_back(connection);
        }
        if (poll(watched.data(), watched.size(), SWEEP_MS) < 0) {
            if (errno == EINTR)
                continue;
            m_trace.log("TCP poll failed: %s", std::strerror(errno));
            return;
        }
        if (watched[0].revents != 0)
            return;
        if (watched[1].revents != 0)
            accept();
        const Clock::time_point now = Clock::now();
        for (size_t i = 0; i < polled.size(); ++i) {
            Connection& connection = *polled[i];
            const short events = watched[i + 2].revents;
            bool open = true;
            if ((events & (POLLIN | POLLHUP | POLLERR)) != 0)
                open = receive(connection, handler);
            if (open && (events & POLLOUT) != 0)
                open = flush(connection);
            if (open && now - connection.lastUsed > IDLE) {
                m_trace.prn("closing the idle TCP connection of %s:%d", connection.address.c_str(), connection.port);
                open = false;
            }
            if (!open)
                m_connections.erase(polled[i]);
        }
    }
}

void TcpServer::accept() {
    for (;;) {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        const int socket =
            accept4(m_listener, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (socket < 0)
            return;
        char address[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &peer.sin_addr, address, sizeof address);
        if (m_connections.size() >= MAX_CONNECTIONS) {
            m_trace.prn("refused a TCP connection from %s: %zu are open", address, m_connections.size());
            close(socket);
            continue;
        }
        m_connections.emplace_back(socket, address, ntohs(peer.sin_port));
    }
}

bool TcpServer::receive(Connection& connection, RequestHandler& handler) {
    char buffer[4096];
    // The peer may send its last requests and close at once: they are
    // answered before the connection goes.
    bool ended = false;
    for (;;) {
        const ssize_t received = recv(connection.socket, buffer, sizeof buffer, MSG_DONTWAIT);
        if (received < 0 && errno == EINTR)
            continue;
        if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        if (received <= 0) {
            ended = true;
            break;
        }
        connection.input.append(buffer, static_cast<size_t>(received));
        if (connection.input.size() > 2 * MAX_MESSAGE)
            break;
    }
    connection.lastUsed = Clock::now();
    const Origin origin{connection.address, connection.port, true};
    for (;;) {
        // Blank lines between messages are keep-alives.
        const size_t start = connection.input.find_first_not_of("\r\n");
        connection.input.erase(0, start == std::string::npos ? connection.input.size() : start);
        const long length = frameLength(connection.input);
        if (length < 0) {
            m_trace.prn("closing the TCP connection of %s:%d: a message without Content-Length or beyond %zu bytes",
                        connection.address.c_str(), connection.port, MAX_MESSAGE);
            return false;
        }
        if (length == 0)
            return !ended;
        connection.output += handler.handle(connection.input.data(), static_cast<size_t>(length), origin);
        connection.input.erase(0, static_cast<size_t>(length));
        if (!flush(connection))
            return false;
    }
}

bool TcpServer::flush(Connection& connection) {
    while (!connection.output.empty()) {
        const ssize_t sent =
            send(connection.socket, connection.output.data(), connection.output.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0)
            return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
        connection.output.erase(0, static_cast<size_t>(sent));
    }
    return true;
}

} // namespace registrar
