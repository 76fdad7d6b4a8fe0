// One visiting-profile request in a context of its own, so that threads share
// nothing of the SOAP layer.
#include "VisitingProfileRequest.h"

#include "SigPipeHandler.h"
#include "VisitingProfileService.h"
#include "visitingUser_soapH.h"

#include "visitingUser.nsmap"

#include <csignal>
#include <memory>
#include <vector>

namespace velm {

namespace {

const int CONNECT_TIMEOUT = 15;
const int RECEIVE_TIMEOUT = 5;
// The receive time-out holds for each read only: a peer that sends a byte
// now and then would keep the caller's thread for ever. This bounds sending
// the whole request, and receiving the whole answer, each; with the connect
// time-out a call ends within 15 + 10 + 10 seconds.
const int TRANSFER_TIMEOUT = 10;

// gSOAP allocates its contexts with new: soap_free, never free(), ends one.
struct ContextRelease {
    void operator()(struct soap* soap) const {
        soap_delete(soap, nullptr);
        soap_end(soap);
        soap_done(soap);
        soap_free(soap);
    }
};

std::vector<char> writable(const std::string& text) {
    std::vector<char> copy(text.begin(), text.end());
    copy.push_back('\0');
    return copy;
}

} // namespace

const char* visitingProfilePath() {
    return VELM_VISITING_PATH;
}

int requestVisitingProfile(const std::string& endpoint, const std::string& user, const std::string& password,
                           const std::string& handle, const std::string& domain, int& subscriberId) {
    std::unique_ptr<struct soap, ContextRelease> soap(soap_new());
    if (!soap)
        return SOAP_EOM;
    soap_set_namespaces(soap.get(), namespaces);
    soap->connect_timeout = CONNECT_TIMEOUT;
    soap->recv_timeout = RECEIVE_TIMEOUT;
    soap->transfer_timeout = TRANSFER_TIMEOUT;
    soap->userid = user.c_str();
    soap->passwd = password.c_str();
    std::signal(SIGPIPE, sigPipeHandler);
    // The generated call takes the texts as char*.
    std::vector<char> handleText = writable(handle);
    std::vector<char> domainText = writable(domain);
    return visitingUser_soap::soap_call_ns4__getVisitingProfile(soap.get(), endpoint.c_str(), nullptr,
                                                                handleText.data(), domainText.data(), subscriberId);
}

} // namespace velm
