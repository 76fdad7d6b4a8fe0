// OdbcDataSource: an ODBC data source for one test database.
#ifndef VELM_TEST_ODBCDATASOURCE_H
#define VELM_TEST_ODBCDATASOURCE_H

#include <string>

namespace velmtest {

// An ODBC data source for one database of the run's server, reached through
// the installed psqlODBC driver. Its odbcinst.ini and odbc.ini live in a
// private directory that the driver manager is pointed at (ODBCSYSINI,
// ODBCINI), so make it before the first ODBC call of the process: the driver
// manager reads its configuration once.
class OdbcDataSource {
public:
    // `port` defaults to the run's server; the socket directory is the run's.
    explicit OdbcDataSource(const std::string& database, const std::string& port = std::string());
    ~OdbcDataSource();
    OdbcDataSource(const OdbcDataSource&) = delete;
    OdbcDataSource& operator=(const OdbcDataSource&) = delete;

    // The data source name to connect to.
    const std::string& name() const { return m_name; }

private:
    std::string m_name;
    std::string m_directory;
};

} // namespace velmtest

#endif
