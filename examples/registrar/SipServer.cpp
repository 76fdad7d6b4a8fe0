// The UDP socket and the worker threads that read requests and answer them; TCP starts beside it.
#include "SipServer.h"

#include "LocationService.h"
#include "LocationServicePool.h"
#include "RequestHandler.h"
#include "SipRequest.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace registrar {

namespace {

// Enough for every retransmission of 32 s at thousands of requests a second.
const size_t TRANSACTIONS = 100000;

} // namespace

SipServer::SipServer(const ServerSettings& settings)
    : m_settings(settings), m_transactions(TRANSACTIONS), m_tcp(m_transactions, settings.policy, settings.authenticator),
      m_trace("Registrar") {}

SipServer::~SipServer() {
    stop();
}

bool SipServer::open(std::string& error) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<uint16_t>(m_settings.port));
    if (inet_pton(AF_INET, m_settings.address.c_str(), &local.sin_addr) != 1) {
        error = "not an IPv4 address: " + m_settings.address;
        return false;
    }
    m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (m_socket < 0 || bind(m_socket, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 ||
        pipe2(m_wake, O_CLOEXEC) != 0) {
        error = std::string("cannot listen on ") + m_settings.address + ":" + std::to_string(m_settings.port) + ": " +
                std::strerror(errno);
        return false;
    }
    socklen_t length = sizeof local;
    getsockname(m_socket, reinterpret_cast<sockaddr*>(&local), &length);
    m_port = ntohs(local.sin_port);
    return m_tcp.open(local, error);
}

void SipServer::start() {
    for (int i = 0; i < m_settings.threads; ++i)
        m_workers.emplace_back(&SipServer::work, this);
    m_tcp.start();
}

void SipServer::stop() {
    m_tcp.stop();
    if (m_wake[1] >= 0) {
        // Never read: every worker's poll sees it.
        char byte = 0;
        if (write(m_wake[1], &byte, 1) != 1)
            m_trace.log("cannot wake the workers: %s", std::strerror(errno));
    }
    for (std::thread& worker : m_workers)
        worker.join();
    m_workers.clear();
    for (int* fd : {&m_socket, &m_wake[0], &m_wake[1]}) {
        if (*fd >= 0)
            close(*fd);
        *fd = -1;
    }
}

void SipServer::work() {
    velm::LocationService* service = velm::LocationServicePool::Instance()->getConnection();
    if (service == nullptr) {
        m_trace.log("worker without a location service: it answers nothing");
        return;
    }
    RequestHandler handler(*service, m_settings.policy, m_transactions, m_settings.authenticator);
    std::vector<char> buffer(MAX_MESSAGE);
    pollfd watched[2] = {{m_socket, POLLIN, 0}, {m_wake[0], POLLIN, 0}};
    for (;;) {
        if (poll(watched, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            m_trace.log("poll failed: %s", std::strerror(errno));
            return;
        }
        if (watched[1].revents != 0)
            return;
        sockaddr_in peer{};
        socklen_t peerLength = sizeof peer;
        // MSG_TRUNC: the datagram's whole length, even beyond the buffer.
        ssize_t received = recvfrom(m_socket, buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC,
                                    reinterpret_cast<sockaddr*>(&peer), &peerLength);
        // Another worker took the datagram.
        if (received <= 0)
            continue;
        char address[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &peer.sin_addr, address, sizeof address);
        const Origin origin{address, ntohs(peer.sin_port), false};
        if (static_cast<size_t>(received) > buffer.size()) {
            m_trace.prn("refused a datagram of %zd bytes from %s:%d: more than %zu", received, address, origin.port,
                        buffer.size());
            continue;
        }
        // The answer goes back where the request came from, as with rport.
        std::string reply = handler.handle(buffer.data(), static_cast<size_t>(received), origin);
        if (!reply.empty() &&
            sendto(m_socket, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&peer), peerLength) < 0)
            m_trace.log("cannot answer: %s", std::strerror(errno));
    }
}

} // namespace registrar
