// Writing the driver manager's files for an ODBC data source of the run's server.
#include "OdbcDataSource.h"

#include "TestServer.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace velmtest {

namespace {

// The Unicode driver as the odbc-postgresql package installed it, wherever
// the architecture puts it.
std::string driverLibrary() {
    std::unique_ptr<FILE, int (*)(FILE*)> files(popen("dpkg -L odbc-postgresql 2>/dev/null", "r"), &pclose);
    if (!files)
        throw std::runtime_error("cannot list the files of odbc-postgresql");
    const std::string suffix = "/psqlodbcw.so";
    char line[4096];
    while (std::fgets(line, sizeof line, files.get()) != nullptr) {
        std::string path(line);
        while (!path.empty() && (path.back() == '\n' || path.back() == '\r'))
            path.pop_back();
        if (path.size() > suffix.size() && path.compare(path.size() - suffix.size(), suffix.size(), suffix) == 0)
            return path;
    }
    throw std::runtime_error("psqlodbcw.so not found: is odbc-postgresql installed?");
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::trunc);
    out << content;
    if (!out)
        throw std::runtime_error("cannot write " + path);
}

} // namespace

OdbcDataSource::OdbcDataSource(const std::string& database, const std::string& port) : m_name("velmtest") {
    std::string pattern = (std::filesystem::temp_directory_path() / "velm-odbc-XXXXXX").string();
    if (mkdtemp(&pattern[0]) == nullptr)
        throw std::runtime_error("cannot make a directory from " + pattern);
    m_directory = pattern;

    writeFile(m_directory + "/odbcinst.ini", "[VelmTestPostgreSQL]\n"
                                             "Description=PostgreSQL Unicode\n"
                                             "Driver=" + driverLibrary() + "\n");
    // psqlODBC hands the server name to libpq, so the socket directory works.
    writeFile(m_directory + "/odbc.ini", "[" + m_name + "]\n"
                                         "Driver=VelmTestPostgreSQL\n"
                                         "Servername=" + server().host + "\n"
                                         "Port=" + (port.empty() ? server().port : port) + "\n"
                                         "Database=" + database + "\n");
    setenv("ODBCSYSINI", m_directory.c_str(), 1);
    setenv("ODBCINI", (m_directory + "/odbc.ini").c_str(), 1);
}

OdbcDataSource::~OdbcDataSource() {
    std::error_code ignored;
    std::filesystem::remove_all(m_directory, ignored);
}

} // namespace velmtest
