// Issuing and checking the registrar's signed digest nonces.
#include "NonceSigner.h"

#include <cstdint>
#include <stdexcept>

namespace registrar {

namespace {

// expiry (8 bytes, big-endian), random (8 bytes), then the signature of both
const size_t SIGNED = 16;
const size_t RAW = SIGNED + crypto_auth_BYTES;
const int VARIANT = sodium_base64_VARIANT_URLSAFE_NO_PADDING;

} // namespace

NonceSigner::NonceSigner(long lifetime) : m_lifetime(lifetime), m_key() {
    // Safe to call again; makes the random source ready.
    if (sodium_init() < 0)
        throw std::runtime_error("libsodium cannot start");
    crypto_auth_keygen(m_key.data());
}

std::string NonceSigner::issue(long now) const {
    std::array<unsigned char, RAW> raw{};
    const auto expiry = static_cast<uint64_t>(now + m_lifetime);
    for (size_t i = 0; i < 8; ++i)
        raw[i] = static_cast<unsigned char>(expiry >> (56 - 8 * i));
    randombytes_buf(raw.data() + 8, 8);
    crypto_auth(raw.data() + SIGNED, raw.data(), SIGNED, m_key.data());
    std::array<char, sodium_base64_ENCODED_LEN(RAW, VARIANT)> text{};
    sodium_bin2base64(text.data(), text.size(), raw.data(), raw.size(), VARIANT);
    return text.data();
}

NonceSigner::Verdict NonceSigner::check(const std::string& nonce, long now, long& expiry) const {
    std::array<unsigned char, RAW> raw{};
    size_t length = 0;
    if (sodium_base642bin(raw.data(), raw.size(), nonce.data(), nonce.size(), nullptr, &length, nullptr, VARIANT) !=
            0 ||
        length != RAW || crypto_auth_verify(raw.data() + SIGNED, raw.data(), SIGNED, m_key.data()) != 0)
        return Verdict::forged;
    uint64_t value = 0;
    for (size_t i = 0; i < 8; ++i)
        value = value << 8 | raw[i];
    expiry = static_cast<long>(value);
    return now > expiry ? Verdict::stale : Verdict::valid;
}

} // namespace registrar
