// Crypt: the encryption of the subscriber passwords kept in the database.
#ifndef VELM_CRYPT_H
#define VELM_CRYPT_H

#include <string>

// Enciphers the subscriber passwords kept in the database, with the secret-key
// authenticated encryption of libsodium (XSalsa20-Poly1305, crypto_secretbox).
//
// The key is the 32 bytes of the file named by [Crypt] KeyFile, read on every
// call so that a replaced key file takes effect at once. The stored form is the
// base64 text (standard alphabet, padded) of a fresh 24-byte nonce followed by
// the ciphertext. Every failure (no key file, a key that is not 32 bytes, text
// that is not base64, truncated, altered or enciphered under another key) gives
// an empty result and a line on the trace channel "Crypt"; the texts involved
// are never traced.
class Crypt {
public:
    // stored form of `clearText`; empty on failure (traced)
    static std::string encrypt(const std::string& clearText);
    // clear text of a stored password; empty on failure (traced)
    static std::string decrypt(const std::string& storedText);
};

#endif
