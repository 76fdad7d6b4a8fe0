// A primary and its synchronous streaming standby of the test's own, for failover tests.
#ifndef VELM_TEST_STANDBYPAIR_H
#define VELM_TEST_STANDBYPAIR_H

#include <string>

namespace velmtest {

// Two servers started by scripts/pg-failover-pair: a primary with the schema
// in database velm, and a standby whose flush every COMMIT waits for. Their
// sockets are in the run's socket directory, so AdminConnection reaches
// either by port. Both stop, and their files go, on destruction.
class StandbyPair {
public:
    StandbyPair();
    ~StandbyPair();
    StandbyPair(const StandbyPair&) = delete;
    StandbyPair& operator=(const StandbyPair&) = delete;

    std::string primaryPort() const { return std::to_string(m_port); }
    std::string standbyPort() const { return std::to_string(m_port + 1); }
    // Both servers, primary first, for sessions that want to write: as a
    // URI (the library's location) and as keywords and values (for libpq).
    std::string location() const;
    std::string conninfo() const;
    // The primary dies (immediate stop) and the standby is promoted.
    void fail();

private:
    std::string m_dir;
    int m_port;
};

} // namespace velmtest

#endif
