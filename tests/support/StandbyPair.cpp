// Starting, failing over and removing a primary/standby pair through scripts/pg-failover-pair.
#include "StandbyPair.h"

#include "TestServer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

namespace velmtest {
namespace {

bool pairScript(const std::string& arguments) {
    const std::string command =
        "VELM_PG_SOCKDIR=" + server().host + " " + VELM_PAIR_SCRIPT + " " + arguments + " >/dev/null";
    return std::system(command.c_str()) == 0;
}

} // namespace

// Ports of a range of their own: scratch servers take 20000-59999.
StandbyPair::StandbyPair() : m_dir("/tmp/velm-pair-" + std::to_string(getpid())), m_port(60000 + getpid() % 2700 * 2) {
    if (!pairScript("start " + m_dir + " " + primaryPort() + " " VELM_SCHEMA_FILE " sync"))
        throw std::runtime_error("cannot start a primary and its standby in " + m_dir);
}

StandbyPair::~StandbyPair() {
    if (!pairScript("stop " + m_dir))
        ADD_FAILURE() << "cannot stop the servers in " + m_dir;
}

std::string StandbyPair::location() const {
    std::string socket;
    for (char c : server().host)
        socket += c == '/' ? std::string("%2F") : std::string(1, c);
    return "postgresql://" + socket + ":" + primaryPort() + "," + socket + ":" + standbyPort() +
           "/velm?target_session_attrs=read-write";
}

std::string StandbyPair::conninfo() const {
    return "host=" + server().host + "," + server().host + " port=" + primaryPort() + "," + standbyPort() +
           " dbname=velm user=velm target_session_attrs=read-write";
}

void StandbyPair::fail() {
    if (!pairScript("fail " + m_dir))
        ADD_FAILURE() << "cannot fail over in " + m_dir;
}

} // namespace velmtest
