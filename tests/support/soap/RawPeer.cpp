// A socket server that answers one HTTP request with a given text, never, or a byte at a time without end.
#include "RawPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace velmtest {

namespace {

const int POLL_MS = 100;

// Waits up to POLL_MS for `fd` to become readable.
bool readable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, POLL_MS) > 0;
}

} // namespace

RawPeer::RawPeer(std::string response, Mode mode)
    : m_response(std::move(response)), m_mode(mode), m_listener(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (m_listener < 0 || bind(m_listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        listen(m_listener, 4) != 0 || getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("RawPeer: cannot listen");
    m_port = ntohs(address.sin_port);
    m_thread = std::thread(&RawPeer::serve, this);
}

RawPeer::~RawPeer() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_thread.join();
    close(m_listener);
}

std::string RawPeer::address() const {
    return "http://127.0.0.1:" + std::to_string(m_port);
}

bool RawPeer::stopping() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_stop;
}

void RawPeer::serve() {
    int connection = -1;
    while (connection < 0) {
        if (stopping())
            return;
        if (readable(m_listener))
            connection = accept(m_listener, nullptr, nullptr);
    }
    // The head, then as much body as Content-Length announces.
    std::string received;
    size_t expected = std::string::npos;
    while (!stopping() && received.size() < expected) {
        if (!readable(connection))
            continue;
        char buffer[4096];
        ssize_t n = recv(connection, buffer, sizeof buffer, 0);
        if (n <= 0)
            break;
        received.append(buffer, static_cast<size_t>(n));
        size_t headEnd = received.find("\r\n\r\n");
        if (headEnd != std::string::npos && expected == std::string::npos)
            expected = headEnd + 4 + std::strtoul(headerOf(received, "Content-Length").c_str(), nullptr, 10);
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_request = received;
    }
    if (m_mode == SILENT) {
        while (!stopping())
            readable(connection);
    } else if (m_mode == DRIP) {
        drip(connection);
    } else {
        send(connection, m_response.data(), m_response.size(), MSG_NOSIGNAL);
    }
    close(connection);
}

void RawPeer::drip(int connection) const {
    for (size_t next = 0; !m_response.empty() && !stopping(); next = std::min(next + 1, m_response.size() - 1)) {
        if (send(connection, &m_response[next], 1, MSG_NOSIGNAL) != 1)
            return;
        for (int tick = 0; tick < 1000 / POLL_MS && !stopping(); ++tick)
            std::this_thread::sleep_for(std::chrono::milliseconds(POLL_MS));
    }
}

std::string RawPeer::request() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_request;
}

std::string RawPeer::header(const std::string& name) const {
    return headerOf(request(), name);
}

std::string RawPeer::headerOf(const std::string& request, const std::string& name) {
    size_t headEnd = request.find("\r\n\r\n");
    for (size_t line = request.find("\r\n"); line < headEnd; line = request.find("\r\n", line + 2)) {
        size_t start = line + 2;
        size_t colon = request.find(':', start);
        if (colon < headEnd && colon - start == name.size() &&
            strncasecmp(request.c_str() + start, name.c_str(), name.size()) == 0) {
            size_t value = request.find_first_not_of(' ', colon + 1);
            return request.substr(value, request.find("\r\n", value) - value);
        }
    }
    return "";
}

std::string RawPeer::body() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t headEnd = m_request.find("\r\n\r\n");
    return headEnd == std::string::npos ? "" : m_request.substr(headEnd + 4);
}

} // namespace velmtest
