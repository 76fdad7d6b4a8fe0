// NonceSigner: digest nonces that the registrar signs and checks without keeping them.
#ifndef VELM_REGISTRAR_NONCESIGNER_H
#define VELM_REGISTRAR_NONCESIGNER_H

#include <sodium.h>

#include <array>
#include <string>

namespace registrar {

// Issues nonces carrying their own expiry and a random part, signed with
// HMAC (libsodium's crypto_auth) under a key made when the signer is made,
// so that any worker thread can check a nonce another one issued and a
// restart invalidates every earlier nonce. Immutable once made: safe to
// share between threads.
class NonceSigner {
public:
    enum class Verdict { valid, stale, forged };

    // Nonces issued now expire `lifetime` seconds later.
    explicit NonceSigner(long lifetime);

    std::string issue(long now) const;
    // `expiry` is set for a nonce that is not forged.
    Verdict check(const std::string& nonce, long now, long& expiry) const;

private:
    long m_lifetime;
    std::array<unsigned char, crypto_auth_KEYBYTES> m_key;
};

} // namespace registrar

#endif
