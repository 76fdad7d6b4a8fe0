// Digest authentication of REGISTER: challenges, checking credentials and the ownership of the address of record.
#include "DigestAuthenticator.h"

#include "AppProperties.h"
#include "Bindings.h"
#include "Crypt.h"
#include "LocationService.h"
#include "SipRequest.h"
#include "SubscriberRecord.h"

#include <osipparser2/osip_md5.h>
#include <sodium.h>
#include <strings.h>

#include <cctype>
#include <cstdlib>
#include <ctime>
#include <sstream>

namespace registrar {

namespace {

const char* const DIGEST_ALGORITHMS[] = {"SHA-256", "MD5"};

// The supported algorithm named `name` in its usual spelling; empty when
// not supported.
std::string algorithmNamed(const std::string& name) {
    for (const char* algorithm : DIGEST_ALGORITHMS)
        if (strcasecmp(name.c_str(), algorithm) == 0)
            return algorithm;
    return std::string();
}

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    return first == std::string::npos ? std::string() : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// A parameter's value without the quotes and escapes of a quoted string.
std::string unquoted(const char* value) {
    if (value == nullptr)
        return std::string();
    std::string text(value);
    if (text.size() < 2 || text.front() != '"' || text.back() != '"')
        return text;
    std::string result;
    for (size_t i = 1; i + 1 < text.size(); ++i) {
        if (text[i] == '\\' && i + 2 < text.size())
            ++i;
        result += text[i];
    }
    return result;
}

// Lower-case hex of the digest of `text`.
std::string hashed(const std::string& algorithm, const std::string& text) {
    std::vector<unsigned char> bytes(text.begin(), text.end());
    std::vector<unsigned char> hash;
    if (algorithm == "MD5") {
        osip_MD5_CTX context;
        osip_MD5Init(&context);
        osip_MD5Update(&context, bytes.data(), static_cast<unsigned>(bytes.size()));
        hash.resize(16);
        osip_MD5Final(hash.data(), &context);
    } else {
        hash.resize(crypto_hash_sha256_BYTES);
        crypto_hash_sha256(hash.data(), bytes.data(), bytes.size());
    }
    sodium_memzero(bytes.data(), bytes.size());
    std::string hex(hash.size() * 2 + 1, '\0');
    sodium_bin2hex(&hex[0], hex.size(), hash.data(), hash.size());
    hex.pop_back();
    return hex;
}

// What an Authorization header says, unquoted.
struct Credentials {
    std::string username;
    std::string realm;
    std::string nonce;
    std::string uri;
    std::string response;
    std::string algorithm;
    std::string qop;
    std::string nc;
    std::string cnonce;

    explicit Credentials(const osip_authorization_t& header)
        : username(unquoted(header.username)), realm(unquoted(header.realm)), nonce(unquoted(header.nonce)),
          uri(unquoted(header.uri)), response(unquoted(header.response)), algorithm(unquoted(header.algorithm)),
          qop(unquoted(header.message_qop)), nc(unquoted(header.nonce_count)), cnonce(unquoted(header.cnonce)) {
        if (algorithm.empty())
            algorithm = "MD5";
        for (char& c : response)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }

    bool complete() const { return !username.empty() && !nonce.empty() && !uri.empty() && !response.empty(); }

    // The nonce count as a number; false unless 1 to 8 hex digits.
    bool count(unsigned long& value) const {
        char* end = nullptr;
        value = std::strtoul(nc.c_str(), &end, 16);
        return !nc.empty() && nc.size() <= 8 && *end == '\0' && std::isxdigit(static_cast<unsigned char>(nc[0]));
    }

    // The response a holder of `password` would give (qop=auth).
    std::string expected(const std::string& method, const std::string& password) const {
        const std::string name = algorithmNamed(algorithm);
        std::string secret = username + ":" + realm + ":" + password;
        std::string ha1 = hashed(name, secret);
        const std::string result = hashed(name, ha1 + ":" + nonce + ":" + nc + ":" + cnonce + ":" + qop + ":" +
                                                    hashed(name, method + ":" + uri));
        sodium_memzero(&secret[0], secret.size());
        sodium_memzero(&ha1[0], ha1.size());
        return result;
    }
};

bool sameDigest(const std::string& given, const std::string& expected) {
    return given.size() == expected.size() && sodium_memcmp(given.data(), expected.data(), given.size()) == 0;
}

SipResponse forbidden(const std::string& why) {
    SipResponse response(403, "Forbidden");
    response.addWarning(why);
    return response;
}

} // namespace

bool readDigestSettings(bool disabled, DigestSettings& settings, std::string& error) {
    if (const char* value = velm::AppProperties::get("Registrar", "Authenticate")) {
        const std::string text = trimmed(value);
        settings.enabled =
            !(strcasecmp(text.c_str(), "false") == 0 || strcasecmp(text.c_str(), "no") == 0 || text == "0");
    }
    if (const char* value = velm::AppProperties::get("Registrar", "NonceLifetime")) {
        char* end = nullptr;
        settings.nonceLifetime = std::strtol(value, &end, 10);
        if (*value == '\0' || *end != '\0' || settings.nonceLifetime < 1 || settings.nonceLifetime > 86400) {
            error = std::string("[Registrar] NonceLifetime is not 1 to 86400 seconds: ") + value;
            return false;
        }
    }
    if (const char* value = velm::AppProperties::get("Registrar", "DigestAlgorithms")) {
        settings.algorithms.clear();
        std::istringstream list(value);
        for (std::string name; std::getline(list, name, ',');) {
            const std::string algorithm = algorithmNamed(trimmed(name));
            if (algorithm.empty()) {
                error = "[Registrar] DigestAlgorithms: unsupported algorithm '" + trimmed(name) + "'";
                return false;
            }
            settings.algorithms.push_back(algorithm);
        }
        if (settings.algorithms.empty()) {
            error = "[Registrar] DigestAlgorithms is empty";
            return false;
        }
    }
    settings.enabled = settings.enabled && !disabled;
    const std::string probe = "probe";
    if (settings.enabled && Crypt::decrypt(Crypt::encrypt(probe)) != probe) {
        error = "authentication needs the password key of the subscribers ([Crypt] KeyFile)";
        return false;
    }
    return true;
}

DigestAuthenticator::DigestAuthenticator(const std::string& realm, const DigestSettings& settings)
    : m_realm(realm), m_algorithms(settings.algorithms), m_signer(settings.nonceLifetime),
      m_counts(settings.nonceCapacity), m_trace("Registrar") {}

bool DigestAuthenticator::admit(const SipRequest& request, velm::LocationService& service, SipResponse& refusal) {
    const long now = static_cast<long>(time(nullptr));
    const osip_authorization_t* header = nullptr;
    for (size_t i = 0; const osip_authorization_t* candidate = request.authorization(i); ++i) {
        if (candidate->auth_type != nullptr && strcasecmp(candidate->auth_type, "Digest") == 0 &&
            unquoted(candidate->realm) == m_realm) {
            header = candidate;
            break;
        }
    }
    if (header == nullptr) {
        refusal = challenge(false, now);
        return false;
    }
    const Credentials credentials(*header);
    unsigned long count = 0;
    if (!credentials.complete() || !credentials.count(count) || credentials.cnonce.empty()) {
        refusal = SipResponse::badRequest("incomplete digest credentials (qop=auth needs nc and cnonce)");
        return false;
    }
    const std::string algorithm = algorithmNamed(credentials.algorithm);
    bool offered = false;
    for (const std::string& name : m_algorithms)
        offered = offered || name == algorithm;
    long expiry = 0;
    const NonceSigner::Verdict verdict = m_signer.check(credentials.nonce, now, expiry);
    if (!offered || credentials.qop != "auth" || verdict == NonceSigner::Verdict::forged) {
        m_trace.prn("credentials of %s: algorithm %s, qop %s or nonce not ours", credentials.username.c_str(),
                    credentials.algorithm.c_str(), credentials.qop.c_str());
        refusal = challenge(false, now);
        return false;
    }

    velm::SubscriberRecord subscriber;
    velm::DatabaseResult result =
        service.lookupSubscriberPassword(credentials.username.c_str(), m_realm.c_str(), subscriber);
    if (result.notFound()) {
        m_trace.prn("credentials of unknown user %s", credentials.username.c_str());
        refusal = challenge(false, now);
        return false;
    }
    if (!result.okay()) {
        refusal = databaseFailure("subscriber " + credentials.username, result);
        return false;
    }
    if (subscriber.password().empty()) {
        refusal = forbidden("no password is set for " + credentials.username);
        return false;
    }
    if (!sameDigest(credentials.response, credentials.expected(request.method(), subscriber.password()))) {
        m_trace.prn("wrong credentials of %s", credentials.username.c_str());
        refusal = challenge(false, now);
        return false;
    }
    if (verdict == NonceSigner::Verdict::stale) {
        refusal = challenge(true, now);
        return false;
    }
    if (!m_counts.accept(credentials.nonce, count, expiry, now)) {
        m_trace.prn("nonce count %s of %s already used", credentials.nc.c_str(), credentials.username.c_str());
        refusal = challenge(false, now);
        return false;
    }

    // The usual case, a phone registering its own address, was just looked
    // up: handles and domains are compared without case.
    if (strcasecmp(request.toUser().c_str(), credentials.username.c_str()) == 0 &&
        strcasecmp(request.toHost().c_str(), m_realm.c_str()) == 0)
        return true;
    velm::SubscriberRecord owner;
    result = service.lookupSubscriber(request.toUser().c_str(), request.toHost().c_str(), owner);
    if (!result.okay() && !result.notFound()) {
        refusal = databaseFailure("owner of the address of record", result);
        return false;
    }
    if (result.notFound() || owner.sid() != subscriber.sid()) {
        refusal = forbidden(credentials.username + " may not register " + request.toUser() + "@" + request.toHost());
        return false;
    }
    return true;
}

SipResponse DigestAuthenticator::challenge(bool stale, long now) const {
    SipResponse response(401, "Unauthorized");
    const std::string nonce = m_signer.issue(now);
    for (const std::string& algorithm : m_algorithms)
        response.addHeader("WWW-Authenticate", "Digest realm=\"" + m_realm + "\", nonce=\"" + nonce + "\", algorithm=" +
                                                   algorithm + ", qop=\"auth\"" + (stale ? ", stale=true" : ""));
    return response;
}

} // namespace registrar
