// DigestAuthenticator: HTTP digest authentication of REGISTER requests.
#ifndef VELM_REGISTRAR_DIGESTAUTHENTICATOR_H
#define VELM_REGISTRAR_DIGESTAUTHENTICATOR_H

#include "NonceCounts.h"
#include "NonceSigner.h"
#include "SipResponse.h"
#include "Trace.h"

#include <string>
#include <vector>

namespace velm {
class LocationService;
}

namespace registrar {

class SipRequest;

// The registrar's authentication settings ([Registrar] in the configuration).
struct DigestSettings {
    // Authenticate: false lets every REGISTER through.
    bool enabled = true;
    // NonceLifetime: seconds a nonce may be used.
    long nonceLifetime = 300;
    // DigestAlgorithms: those offered, one challenge each, in this order.
    std::vector<std::string> algorithms{"SHA-256", "MD5"};
    // Nonces whose counts are remembered at once.
    size_t nonceCapacity = 65536;
};

// Reads DigestSettings from the loaded configuration (`disabled`: turned
// off on the command line). False with the reason in `error` for a value
// that cannot be used, or when authentication is on without a usable
// password key ([Crypt] KeyFile) to decipher the subscribers' passwords.
bool readDigestSettings(bool disabled, DigestSettings& settings, std::string& error);

// Checks the digest credentials of a REGISTER (qop=auth, MD5 and SHA-256,
// nonces signed by this process, nonce counts never reused) against the
// password of the subscriber, who must also own the address of record in
// To. Shared by the worker threads. Neither passwords nor the hashes made
// from them are traced.
class DigestAuthenticator {
public:
    // `realm`: the primary domain, where the subscribers' handles live.
    DigestAuthenticator(const std::string& realm, const DigestSettings& settings);

    // True when the request may be applied; otherwise the answer (401 with
    // fresh challenges, 403, 400 or 500) is in `refusal`.
    bool admit(const SipRequest& request, velm::LocationService& service, SipResponse& refusal);

private:
    SipResponse challenge(bool stale, long now) const;

    std::string m_realm;
    std::vector<std::string> m_algorithms;
    NonceSigner m_signer;
    NonceCounts m_counts;
    velm::Trace m_trace;
};

} // namespace registrar

#endif
