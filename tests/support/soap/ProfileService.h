// ProfileService: a visiting-profile service for tests.
#ifndef VELM_TEST_PROFILESERVICE_H
#define VELM_TEST_PROFILESERVICE_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct soap;

namespace velmtest {

// A visiting-profile service made by gSOAP from the library's own header,
// serving on 127.0.0.1 at a port of its own in a thread of its own. It
// answers every request with `subscriberId`, or with a SOAP fault of the
// given version.
class ProfileService {
public:
    struct Request {
        std::string path;
        std::string action;
        std::string user;
        std::string password;
        std::string handle;
        std::string domain;
    };

    explicit ProfileService(int subscriberId, int faultVersion = 0);
    ~ProfileService();
    ProfileService(const ProfileService&) = delete;
    ProfileService& operator=(const ProfileService&) = delete;

    // "http://127.0.0.1:<port>"
    std::string address() const;
    // Waits up to 30 s for the first answered request; false when none came.
    bool waitForRequest();
    std::vector<Request> requests() const;

    // Called by the generated dispatcher.
    int answer(::soap* soap, const char* handle, const char* domain, int& subscriberId);

private:
    void serve();

    int m_subscriberId;
    int m_faultVersion;
    ::soap* m_soap;
    int m_port = 0;
    bool m_stop = false;
    mutable std::mutex m_mutex;
    std::condition_variable m_answered;
    std::vector<Request> m_requests;
    std::thread m_thread;
};

} // namespace velmtest

#endif
