// TempDirectory: a private directory for a test.
#ifndef VELM_TEST_TEMPDIRECTORY_H
#define VELM_TEST_TEMPDIRECTORY_H

#include <string>

namespace velmtest {

// A private directory under $TMPDIR (or /tmp), removed with its files at the end.
class TempDirectory {
public:
    TempDirectory();
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::string& path() const { return m_path; }
    // Writes `content` (bytes, as given) to the file `name` in the directory
    // and returns its path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string m_path;
};

} // namespace velmtest

#endif
