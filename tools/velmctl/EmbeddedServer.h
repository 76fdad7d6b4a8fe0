// EmbeddedServer: a private PostgreSQL server for trying the library out.
#ifndef VELMCTL_EMBEDDEDSERVER_H
#define VELMCTL_EMBEDDEDSERVER_H

#include "Status.h"

#include <string>

namespace velmctl {

// A private PostgreSQL server for trying the library out: initdb into
// `directory`/data, listening only on a Unix socket in `directory`, the
// schema loaded into database "velm", and `directory`/velm.conf pointing the
// library at it (with a password key in `directory`/crypt.key). Run as the
// postgres user when velmctl runs as root.
class EmbeddedServer {
public:
    explicit EmbeddedServer(std::string directory);

    // ~/.local/share/velmdb (XDG_DATA_HOME respected); /var/lib/velmdb for root.
    static std::string defaultDirectory();

    Outcome start();
    Outcome stop();
    bool running() const;

    // The socket's directory.
    const std::string& directory() const { return m_directory; }
    std::string dataDirectory() const { return m_directory + "/data"; }
    std::string configFile() const { return m_directory + "/velm.conf"; }
    static const char* port();

private:
    Outcome createDatabase();
    Outcome writeConfiguration();

    std::string m_directory;
    std::string m_bin;
};

// The schema file: VELM_SCHEMA, else share/velm/velm.sql next to the
// installed program, else the source tree's. Empty when none exists.
std::string findSchema();

} // namespace velmctl

#endif
