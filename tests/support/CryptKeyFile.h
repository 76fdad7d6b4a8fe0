// CryptKeyFile: a fresh password key configured for a test.
#ifndef VELM_TEST_CRYPTKEYFILE_H
#define VELM_TEST_CRYPTKEYFILE_H

#include "TempDirectory.h"

#include <string>

namespace velmtest {

// A fresh random password key, written to a key file and configured as
// [Crypt] KeyFile for as long as the object lives. Stored subscriber
// passwords for a test are made with Crypt::encrypt while it is in place.
class CryptKeyFile {
public:
    CryptKeyFile();
    ~CryptKeyFile();
    CryptKeyFile(const CryptKeyFile&) = delete;
    CryptKeyFile& operator=(const CryptKeyFile&) = delete;

    const std::string& path() const { return m_path; }

private:
    TempDirectory m_directory;
    std::string m_path;
};

} // namespace velmtest

#endif
