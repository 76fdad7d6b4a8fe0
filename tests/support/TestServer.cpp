// The run's private PostgreSQL server: its address, admin connections, a fresh database per test and scratch servers.
#include "TestServer.h"

#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace velmtest {

namespace {

std::string readSetting(const std::string& file, const std::string& key) {
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line))
        if (line.compare(0, key.size() + 1, key + "=") == 0)
            return line.substr(key.size() + 1);
    return std::string();
}

ServerAddress loadServer() {
    const char* file = std::getenv("VELM_TEST_ENV");
    if (file == nullptr)
        throw std::runtime_error("VELM_TEST_ENV is not set: run the tests through ctest");
    ServerAddress address{readSetting(file, "PGHOST"), readSetting(file, "PGPORT"), readSetting(file, "PGDIR")};
    if (address.host.empty())
        throw std::runtime_error(std::string("no test server described in ") + file);
    setenv("PGHOST", address.host.c_str(), 1);
    setenv("PGPORT", address.port.c_str(), 1);
    return address;
}

} // namespace

const ServerAddress& server() {
    static const ServerAddress address = loadServer();
    return address;
}

AdminConnection::AdminConnection(const std::string& database, const std::string& port) {
    std::string conninfo = "host=" + server().host + " port=" + (port.empty() ? server().port : port) +
                           " user=velm dbname=" + database;
    m_conn = PQconnectdb(conninfo.c_str());
    if (PQstatus(m_conn) != CONNECTION_OK)
        throw std::runtime_error(std::string("admin connection failed: ") + PQerrorMessage(m_conn));
    PQsetNoticeProcessor(m_conn, [](void*, const char*) {}, nullptr);
}

AdminConnection::~AdminConnection() {
    PQfinish(m_conn);
}

void AdminConnection::exec(const std::string& sql) {
    query(sql);
}

Rows AdminConnection::query(const std::string& sql) {
    PGresult* result = PQexec(m_conn, sql.c_str());
    ExecStatusType status = PQresultStatus(result);
    Rows rows;
    if (status != PGRES_TUPLES_OK && status != PGRES_COMMAND_OK) {
        ADD_FAILURE() << "admin statement failed: " << sql << "\n" << PQresultErrorMessage(result);
    } else {
        for (int row = 0; row < PQntuples(result); ++row) {
            rows.emplace_back();
            for (int column = 0; column < PQnfields(result); ++column)
                rows.back().push_back(PQgetvalue(result, row, column));
        }
    }
    PQclear(result);
    return rows;
}

std::string AdminConnection::value(const std::string& sql) {
    Rows rows = query(sql);
    if (rows.empty() || rows[0].empty()) {
        ADD_FAILURE() << "no value from: " << sql;
        return std::string();
    }
    return rows[0][0];
}

TestDatabase::TestDatabase() {
    static std::atomic<int> counter{0};
    m_name = "t" + std::to_string(getpid()) + "_" + std::to_string(counter++);
    AdminConnection("postgres").exec("CREATE DATABASE " + m_name + " TEMPLATE velm_template");
    m_admin = std::make_unique<AdminConnection>(m_name);
}

TestDatabase::~TestDatabase() {
    m_admin.reset();
    AdminConnection("postgres").exec("DROP DATABASE " + m_name + " WITH (FORCE)");
}

void TestDatabase::terminateBackend(int pid) {
    EXPECT_EQ("t", m_admin->value("SELECT pg_terminate_backend(" + std::to_string(pid) + ")"));
}

ScratchServer::ScratchServer(bool withSchema) : m_port(20000 + getpid() % 40000), m_withSchema(withSchema) {
    m_stateFile = "/tmp/velm-scratch-" + std::to_string(getpid()) + ".env";
    std::string command = "VELM_PG_SOCKDIR=" + server().host + " VELM_PG_PORT=" + std::to_string(m_port) + " " +
                          VELM_PG_SCRIPT + " start " + m_stateFile + (withSchema ? " " VELM_SCHEMA_FILE : "") +
                          " >/dev/null";
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error("cannot start a scratch server: " + command);
    m_running = true;
}

ScratchServer::~ScratchServer() {
    stop();
}

std::string ScratchServer::database() const {
    return "postgresql://:" + std::to_string(m_port) + (m_withSchema ? "/velm_template" : "/postgres");
}

void ScratchServer::restart() {
    std::string command = std::string(VELM_PG_SCRIPT) + " restart " + m_stateFile + " >/dev/null";
    if (std::system(command.c_str()) != 0)
        ADD_FAILURE() << "cannot restart the scratch server";
}

void ScratchServer::stop() {
    if (!m_running)
        return;
    m_running = false;
    std::string command = std::string(VELM_PG_SCRIPT) + " stop " + m_stateFile + " >/dev/null";
    if (std::system(command.c_str()) != 0)
        ADD_FAILURE() << "cannot stop the scratch server";
}

} // namespace velmtest
