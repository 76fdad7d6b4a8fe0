// A gSOAP visiting-profile service in a thread, answering with a subscriber id or a fault.
#include "ProfileService.h"

#include "visitingUserTestH.h"

#include "visitingUserTest.nsmap"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <stdexcept>

namespace visitingUserTest {

int ns4__getVisitingProfile(struct soap* soap, char* handle, char* domain, int& subscriberId) {
    return static_cast<velmtest::ProfileService*>(soap->user)->answer(soap, handle, domain, subscriberId);
}

} // namespace visitingUserTest

namespace velmtest {

namespace {

std::string text(const char* value) {
    return value != nullptr ? value : "";
}

} // namespace

ProfileService::ProfileService(int subscriberId, int faultVersion)
    : m_subscriberId(subscriberId), m_faultVersion(faultVersion), m_soap(soap_new()) {
    soap_set_namespaces(m_soap, visitingUserTest_namespaces);
    m_soap->user = this;
    m_soap->accept_timeout = -100000; // 100 ms, to notice the end
    m_soap->recv_timeout = 10;
    m_soap->send_timeout = 10;
    m_soap->bind_flags = SO_REUSEADDR;
    if (!soap_valid_socket(soap_bind(m_soap, "127.0.0.1", 0, 10)))
        throw std::runtime_error("ProfileService: cannot bind");
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    getsockname(m_soap->master, reinterpret_cast<sockaddr*>(&bound), &length);
    m_port = ntohs(bound.sin_port);
    m_thread = std::thread(&ProfileService::serve, this);
}

ProfileService::~ProfileService() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_thread.join();
    soap_destroy(m_soap);
    soap_end(m_soap);
    soap_free(m_soap);
}

std::string ProfileService::address() const {
    return "http://127.0.0.1:" + std::to_string(m_port);
}

void ProfileService::serve() {
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stop)
                return;
        }
        if (!soap_valid_socket(soap_accept(m_soap)))
            continue;
        visitingUserTest::visitingUserTest_serve(m_soap);
        soap_destroy(m_soap);
        soap_end(m_soap);
    }
}

int ProfileService::answer(::soap* soap, const char* handle, const char* domain, int& subscriberId) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.push_back(Request{text(soap->path), text(soap->action), text(soap->userid), text(soap->passwd),
                                     text(handle), text(domain)});
    }
    m_answered.notify_all();
    if (m_faultVersion == 0) {
        subscriberId = m_subscriberId;
        return SOAP_OK;
    }
    soap_set_version(soap, static_cast<short>(m_faultVersion));
    return soap_sender_fault(soap, "visitor unknown to its home", "<reason>no such domain</reason>");
}

bool ProfileService::waitForRequest() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_answered.wait_for(lock, std::chrono::seconds(30), [this] { return !m_requests.empty(); });
}

std::vector<ProfileService::Request> ProfileService::requests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

} // namespace velmtest
