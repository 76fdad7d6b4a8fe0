// Enciphering and deciphering stored passwords with libsodium's secretbox.
#include "Crypt.h"

#include "AppProperties.h"
#include "Trace.h"

#include <sodium.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

namespace {

const velm::Trace& trace() {
    static const velm::Trace channel("Crypt");
    return channel;
}

bool sodiumReady() {
    static const bool ready = sodium_init() >= 0;
    if (!ready)
        trace().log("libsodium cannot be initialised");
    return ready;
}

// The key lives only as long as one call and is wiped when it goes.
class Key {
public:
    Key() { m_loaded = sodiumReady() && load(); }
    ~Key() { sodium_memzero(m_bytes.data(), m_bytes.size()); }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    bool loaded() const { return m_loaded; }
    const unsigned char* bytes() const { return m_bytes.data(); }

private:
    bool load() {
        const char* path = velm::AppProperties::get("Crypt", "KeyFile");
        if (path == nullptr) {
            trace().log("no key file configured ([Crypt] KeyFile)");
            return false;
        }
        std::ifstream in(path, std::ios::binary);
        if (!in) {
            trace().log("cannot read key file %s: %s", path, std::strerror(errno));
            return false;
        }
        // One byte more than a key, to tell a long file from a good one.
        std::array<char, crypto_secretbox_KEYBYTES + 1> buffer{};
        in.read(buffer.data(), buffer.size());
        size_t length = static_cast<size_t>(in.gcount());
        bool good = length == crypto_secretbox_KEYBYTES;
        if (good)
            std::memcpy(m_bytes.data(), buffer.data(), m_bytes.size());
        else
            trace().log("key file %s must hold exactly %d bytes", path, static_cast<int>(crypto_secretbox_KEYBYTES));
        sodium_memzero(buffer.data(), buffer.size());
        return good;
    }

    std::array<unsigned char, crypto_secretbox_KEYBYTES> m_bytes{};
    bool m_loaded = false;
};

std::string toBase64(const std::vector<unsigned char>& bytes) {
    std::string text(sodium_base64_ENCODED_LEN(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(&text[0], text.size(), bytes.data(), bytes.size(), sodium_base64_VARIANT_ORIGINAL);
    text.resize(std::strlen(text.c_str()));
    return text;
}

bool fromBase64(const std::string& text, std::vector<unsigned char>& bytes) {
    bytes.clear();
    if (text.empty())
        return true;
    bytes.resize(text.size());
    size_t length = 0;
    const char* end = nullptr;
    if (sodium_base642bin(bytes.data(), bytes.size(), text.data(), text.size(), nullptr, &length, &end,
                          sodium_base64_VARIANT_ORIGINAL) != 0 ||
        end != text.data() + text.size())
        return false;
    bytes.resize(length);
    return true;
}

} // namespace

std::string Crypt::encrypt(const std::string& clearText) {
    Key key;
    if (!key.loaded())
        return std::string();
    std::vector<unsigned char> sealed(crypto_secretbox_NONCEBYTES + crypto_secretbox_MACBYTES + clearText.size());
    unsigned char* nonce = sealed.data();
    randombytes_buf(nonce, crypto_secretbox_NONCEBYTES);
    crypto_secretbox_easy(nonce + crypto_secretbox_NONCEBYTES, reinterpret_cast<const unsigned char*>(clearText.data()),
                          clearText.size(), nonce, key.bytes());
    return toBase64(sealed);
}

std::string Crypt::decrypt(const std::string& storedText) {
    Key key;
    if (!key.loaded())
        return std::string();
    std::vector<unsigned char> sealed;
    if (!fromBase64(storedText, sealed)) {
        trace().log("stored password is not base64 text");
        return std::string();
    }
    if (sealed.size() < crypto_secretbox_NONCEBYTES + crypto_secretbox_MACBYTES) {
        trace().log("stored password is too short to be enciphered");
        return std::string();
    }
    const unsigned char* nonce = sealed.data();
    const unsigned char* cipher = nonce + crypto_secretbox_NONCEBYTES;
    size_t cipherLength = sealed.size() - crypto_secretbox_NONCEBYTES;
    std::string clear(cipherLength - crypto_secretbox_MACBYTES, '\0');
    if (crypto_secretbox_open_easy(reinterpret_cast<unsigned char*>(&clear[0]), cipher, cipherLength, nonce,
                                   key.bytes()) != 0) {
        trace().log("stored password fails authentication (altered, or enciphered under another key)");
        return std::string();
    }
    return clear;
}
