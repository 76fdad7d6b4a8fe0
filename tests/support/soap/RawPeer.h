// RawPeer: a misbehaving SOAP peer for tests.
#ifndef VELM_TEST_RAWPEER_H
#define VELM_TEST_RAWPEER_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace velmtest {

// A socket server on 127.0.0.1 at a port of its own that plays a misbehaving
// SOAP service: it reads one HTTP request and sends `response` verbatim,
// then closes the connection. SILENT never answers and holds the connection
// until the peer is destroyed; DRIP sends `response` a byte a second and then
// its last byte again and again, until the peer is destroyed or the client
// has gone.
class RawPeer {
public:
    enum Mode { ANSWER, SILENT, DRIP };

    explicit RawPeer(std::string response, Mode mode = ANSWER);
    ~RawPeer();
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    // "http://127.0.0.1:<port>"
    std::string address() const;
    // The request as received (head and body); empty when none came.
    std::string request() const;
    // The value of header `name` (any letter case) in the request.
    std::string header(const std::string& name) const;
    // The request body.
    std::string body() const;

private:
    void serve();
    void drip(int connection) const;
    bool stopping() const;
    static std::string headerOf(const std::string& request, const std::string& name);

    std::string m_response;
    Mode m_mode;
    int m_listener;
    int m_port = 0;
    bool m_stop = false;
    mutable std::mutex m_mutex;
    std::string m_request;
    std::thread m_thread;
};

} // namespace velmtest

#endif
