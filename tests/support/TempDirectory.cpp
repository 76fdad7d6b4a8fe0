// Making and removing a test's private directory and writing files into it.
#include "TempDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace velmtest {

TempDirectory::TempDirectory() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/velmtest-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr)
        ADD_FAILURE() << "cannot make a temporary directory from " << pattern;
    else
        m_path = pattern;
}

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    if (!m_path.empty())
        std::filesystem::remove_all(m_path, ignored);
}

std::string TempDirectory::write(const std::string& name, const std::string& content) const {
    std::string file = m_path + "/" + name;
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!out)
        ADD_FAILURE() << "cannot write " << file;
    return file;
}

} // namespace velmtest
