// Creating, starting, stopping and asking after velmctl's private PostgreSQL server.
#include "EmbeddedServer.h"

#include "AppProperties.h"
#include "DatabaseCommandExecutor.h"
#include "QueryResultPtr.h"
#include "Session.h"

#include <fcntl.h>
#include <glob.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <vector>

namespace velmctl {

namespace {

const char* const PORT = "5432";

bool exists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

bool isRoot() {
    return geteuid() == 0;
}

// The newest installed PostgreSQL server's programs.
std::string serverBin() {
    glob_t found;
    std::string bin;
    if (glob("/usr/lib/postgresql/*/bin/initdb", 0, nullptr, &found) == 0) {
        int best = -1;
        for (size_t i = 0; i < found.gl_pathc; ++i) {
            std::string path = found.gl_pathv[i];
            int version = std::atoi(path.c_str() + std::string("/usr/lib/postgresql/").size());
            if (version > best) {
                best = version;
                bin = path.substr(0, path.size() - std::string("/initdb").size());
            }
        }
    }
    globfree(&found);
    return bin;
}

// Runs a program, as the postgres user when we are root, with its output
// appended to `log`; its exit status, or -1 when it could not run.
int runProgram(std::vector<std::string> argv, const std::string& log) {
    if (isRoot())
        argv.insert(argv.begin(), {"runuser", "-u", "postgres", "--"});
    pid_t child = fork();
    if (child < 0)
        return -1;
    if (child == 0) {
        int out = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (out >= 0) {
            dup2(out, STDOUT_FILENO);
            dup2(out, STDERR_FILENO);
            close(out);
        }
        std::vector<char*> args;
        for (auto& arg : argv)
            args.push_back(&arg[0]);
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    int status = 0;
    if (waitpid(child, &status, 0) < 0)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string lastLines(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    std::string tail;
    for (size_t i = lines.size() > 5 ? lines.size() - 5 : 0; i < lines.size(); ++i)
        tail += "\n  " + lines[i];
    return tail;
}

// The URL of database `name` on the server listening in `directory`: the
// socket directory is the host, escaped, so the library and libpq both read it.
std::string location(const std::string& directory, const std::string& name) {
    static const char HEX[] = "0123456789ABCDEF";
    std::string host;
    for (unsigned char c : directory) {
        if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~')
            host += static_cast<char>(c);
        else
            host += {'%', HEX[c >> 4], HEX[c & 15]};
    }
    return "postgresql://" + host + ":" + PORT + "/" + name;
}

bool makeDirectory(const std::string& path) {
    std::string partial;
    for (size_t at = 0; at != std::string::npos;) {
        at = path.find('/', at + 1);
        partial = path.substr(0, at);
        if (!partial.empty() && !exists(partial) && mkdir(partial.c_str(), 0755) != 0)
            return false;
    }
    return true;
}

} // namespace

EmbeddedServer::EmbeddedServer(std::string directory) : m_directory(std::move(directory)), m_bin(serverBin()) {}

std::string EmbeddedServer::defaultDirectory() {
    if (isRoot())
        return "/var/lib/velmdb";
    if (const char* data = std::getenv("XDG_DATA_HOME"))
        if (*data != '\0')
            return std::string(data) + "/velmdb";
    const char* home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') {
        const passwd* user = getpwuid(geteuid());
        home = user != nullptr ? user->pw_dir : "/tmp";
    }
    return std::string(home) + "/.local/share/velmdb";
}

bool EmbeddedServer::running() const {
    return !m_bin.empty() && exists(m_directory + "/data/PG_VERSION") &&
           runProgram({m_bin + "/pg_ctl", "-D", m_directory + "/data", "status"}, "/dev/null") == 0;
}

const char* EmbeddedServer::port() {
    return PORT;
}

Outcome EmbeddedServer::start() {
    if (m_bin.empty())
        return Outcome::failure(DATABASE_ERROR, "no PostgreSQL server installed (/usr/lib/postgresql/*/bin)");
    if (!makeDirectory(m_directory))
        return Outcome::failure(BAD_INPUT, "cannot create " + m_directory);
    if (isRoot()) {
        const passwd* postgres = getpwnam("postgres");
        if (postgres == nullptr || chown(m_directory.c_str(), postgres->pw_uid, postgres->pw_gid) != 0)
            return Outcome::failure(DATABASE_ERROR, "cannot hand " + m_directory + " to the postgres user");
    }
    // The server writes its own log; the programs that set it up write theirs.
    const std::string log = m_directory + "/velmctl.log";
    const std::string serverLog = m_directory + "/server.log";
    if (!exists(m_directory + "/data/PG_VERSION") &&
        runProgram({m_bin + "/initdb", "-D", m_directory + "/data", "-A", "trust", "-U", "velm", "-E", "UTF8"}, log) != 0)
        return Outcome::failure(DATABASE_ERROR, "initdb failed:" + lastLines(log));
    if (!running() &&
        runProgram({m_bin + "/pg_ctl", "-D", m_directory + "/data", "-l", serverLog, "-w", "-t", "60", "-o",
                    "-k " + m_directory + " -p " + PORT + " -c listen_addresses=", "start"},
                   log) != 0)
        return Outcome::failure(DATABASE_ERROR, "the server did not start:" + lastLines(serverLog));
    Outcome written = writeConfiguration();
    if (!written.ok())
        return written;
    Outcome created = createDatabase();
    if (!created.ok())
        return created;
    return Outcome::failure(SUCCESS, "running in " + m_directory + "; configuration " + configFile());
}

Outcome EmbeddedServer::stop() {
    if (!running())
        return Outcome::failure(SUCCESS, "not running (" + m_directory + ")");
    const std::string log = m_directory + "/velmctl.log";
    if (runProgram({m_bin + "/pg_ctl", "-D", m_directory + "/data", "-m", "fast", "-w", "stop"}, log) != 0)
        return Outcome::failure(DATABASE_ERROR, "the server did not stop:" + lastLines(log));
    return Outcome::failure(SUCCESS, "stopped (" + m_directory + ")");
}

Outcome EmbeddedServer::writeConfiguration() {
    const std::string key = m_directory + "/crypt.key";
    if (!exists(key)) {
        std::ifstream random("/dev/urandom", std::ios::binary);
        char bytes[32];
        int file = open(key.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
        if (!random.read(bytes, sizeof bytes) || file < 0 || write(file, bytes, sizeof bytes) != sizeof bytes) {
            if (file >= 0)
                close(file);
            return Outcome::failure(DATABASE_ERROR, "cannot write the password key " + key);
        }
        close(file);
    }
    std::ofstream config(configFile());
    config << "# Written by velmctl db start: the library's settings for the private server in\n"
           << "# " << m_directory << ", whose socket directory the database location names.\n"
           << "[Database]\nProxyDatabaseUser = velm\n"
           << "# Prepared: a statement shape is planned once per connection, not at every call.\n"
           << "PreparedStatements = true\n\n"
           << "[Services]\nvelm.sip.db = " << location(m_directory, "velm") << "\n\n"
           << "[Crypt]\nKeyFile = " << key << "\n";
    if (!config)
        return Outcome::failure(DATABASE_ERROR, "cannot write " + configFile());
    return Outcome();
}

Outcome EmbeddedServer::createDatabase() {
    velm::DatabaseCommandExecutor server;
    if (!server.connect(location(m_directory, "postgres").c_str(), "velm", ""))
        return Outcome::failure(DATABASE_ERROR, "cannot connect: " + server.getErrorMessage());
    velm::QueryResultPtr rows;
    velm::DatabaseResult result = server.execute("SELECT 1 FROM pg_database WHERE datname = 'velm'", rows);
    if (result.okay() && rows.rows() == 1)
        return Outcome();
    if (result.okay())
        result = server.execute("CREATE DATABASE velm");
    if (!result.okay())
        return Outcome::failure(DATABASE_ERROR, "cannot create database velm: " + result.getErrorMessage());

    std::string schema = findSchema();
    if (schema.empty())
        return Outcome::failure(DATABASE_ERROR, "schema velm.sql not found (set VELM_SCHEMA)");
    if (!velm::AppProperties::load(configFile().c_str()))
        return Outcome::failure(DATABASE_ERROR, "cannot read " + configFile());
    Session session;
    Outcome opened = session.open();
    return opened.ok() ? session.loadSchema(schema) : opened;
}

std::string findSchema() {
    if (const char* path = std::getenv("VELM_SCHEMA"))
        return exists(path) ? path : "";
    char self[4096];
    ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length > 0) {
        std::string program(self, static_cast<size_t>(length));
        std::string prefix = program.substr(0, program.rfind('/'));
        prefix = prefix.substr(0, prefix.rfind('/'));
        std::string installed = prefix + "/" + VELMCTL_INSTALLED_SCHEMA;
        if (exists(installed))
            return installed;
    }
    return exists(VELMCTL_SOURCE_SCHEMA) ? VELMCTL_SOURCE_SCHEMA : "";
}

} // namespace velmctl
