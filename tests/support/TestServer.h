// The run's private PostgreSQL server and the per-test databases on it.
#ifndef VELM_TEST_TESTSERVER_H
#define VELM_TEST_TESTSERVER_H

#include <memory>
#include <string>
#include <vector>

typedef struct pg_conn PGconn;

namespace velmtest {

using Rows = std::vector<std::vector<std::string>>;

// The private PostgreSQL server of the test run, as the fixture that started
// it described it (VELM_TEST_ENV). Also points libpq's PGHOST/PGPORT at it,
// so the library reaches it with a plain database name.
struct ServerAddress {
    std::string host;
    std::string port;
    // The server's directory; its log (every statement, log_statement=all)
    // is server.log there.
    std::string dir;
};
const ServerAddress& server();

// Runs SQL on the server outside the library, with libpq directly: to set up
// rows, inspect what the library wrote, or kill its backend. Fails the
// current test on any error.
class AdminConnection {
public:
    // `port` picks a server of the run's socket directory other than the
    // run's own (a ScratchServer's).
    explicit AdminConnection(const std::string& database, const std::string& port = std::string());
    ~AdminConnection();
    AdminConnection(const AdminConnection&) = delete;
    AdminConnection& operator=(const AdminConnection&) = delete;

    void exec(const std::string& sql);
    Rows query(const std::string& sql);
    // The first column of the first row.
    std::string value(const std::string& sql);

private:
    PGconn* m_conn;
};

// A fresh database made from the schema template; dropped on destruction.
class TestDatabase {
public:
    TestDatabase();
    ~TestDatabase();
    TestDatabase(const TestDatabase&) = delete;
    TestDatabase& operator=(const TestDatabase&) = delete;

    const std::string& name() const { return m_name; }
    AdminConnection& admin() { return *m_admin; }
    // Ends the server session of the given backend process id.
    void terminateBackend(int pid);

private:
    std::string m_name;
    std::unique_ptr<AdminConnection> m_admin;
};

// A second server of the test's own, for tests that stop or restart a
// server: empty, or `withSchema` with the schema in database velm_template.
class ScratchServer {
public:
    explicit ScratchServer(bool withSchema = false);
    ~ScratchServer();
    ScratchServer(const ScratchServer&) = delete;
    ScratchServer& operator=(const ScratchServer&) = delete;

    // The database argument that reaches it: a URL with its own port and no
    // host, so libpq finds it in the run's socket directory.
    std::string database() const;
    std::string port() const { return std::to_string(m_port); }
    void stop();
    // A fast shutdown (sessions end, committed work stays) and a start on the
    // same data.
    void restart();

private:
    std::string m_stateFile;
    int m_port;
    bool m_withSchema;
    bool m_running = false;
};

} // namespace velmtest

#endif
