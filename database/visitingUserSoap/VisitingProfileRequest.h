// Asking the remote administration service for a visiting subscriber's profile.
#ifndef VELM_VISITINGPROFILEREQUEST_H
#define VELM_VISITINGPROFILEREQUEST_H

#include <string>

namespace velm {

// The path of the visiting-profile service below the administration
// server's address (system_parameters top_url).
const char* visitingProfilePath();

// Asks the service at `endpoint` (an http: URL) for the subscriber id of
// handle@domain, with HTTP basic authentication, a 15 s connect and a 5 s
// receive time-out, and the SIGPIPE handler installed. Answers the gSOAP
// error code, 0 when the service answered; `subscriberId` is then its
// answer (0: unknown there).
int requestVisitingProfile(const std::string& endpoint, const std::string& user, const std::string& password,
                           const std::string& handle, const std::string& domain, int& subscriberId);

} // namespace velm

#endif
