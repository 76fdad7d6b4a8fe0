// Writing a random password key and configuring it as [Crypt] KeyFile.
#include "CryptKeyFile.h"

#include "AppProperties.h"

#include <random>

namespace velmtest {

CryptKeyFile::CryptKeyFile() {
    std::random_device random;
    std::string key(32, '\0');
    for (char& byte : key)
        byte = static_cast<char>(random() & 0xff);
    m_path = m_directory.write("password.key", key);
    velm::AppProperties::set("Crypt", "KeyFile", m_path.c_str());
}

CryptKeyFile::~CryptKeyFile() {
    velm::AppProperties::set("Crypt", "KeyFile", nullptr);
}

} // namespace velmtest
