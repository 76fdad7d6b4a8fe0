// velm-registrar's command line and the loading of its configuration.
#include "Options.h"

#include "AppProperties.h"

#include <cstdlib>
#include <cstring>
#include <thread>

namespace registrar {

namespace {

bool readCount(const char* text, int low, int high, int& value) {
    char* end = nullptr;
    long number = std::strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || number < low || number > high)
        return false;
    value = static_cast<int>(number);
    return true;
}

} // namespace

const char USAGE[] =
    "usage: velm-registrar --domain DOMAIN [--address IPV4] [--port N] [--threads N] [--config FILE]\n"
    "  --domain    the primary SIP domain (routing composes the conference server's URI from it)\n"
    "  --address   address to listen on (default 127.0.0.1)\n"
    "  --port      UDP port (default 5060; 0 picks a free one)\n"
    "  --threads   worker threads, each with its own database connection (default: the number of cores)\n"
    "  --config    velm.conf to read (default: VELM_CONFIG, else /etc/velm/velm.conf)\n";

bool parseOptions(int argc, char** argv, Options& options, std::string& error) {
    unsigned cores = std::thread::hardware_concurrency();
    options.server.threads = cores > 0 ? static_cast<int>(cores) : 1;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (i + 1 >= argc) {
            error = name == "--help" ? "" : "missing value of " + name;
            return false;
        }
        const char* value = argv[++i];
        bool good = true;
        if (name == "--address")
            options.server.address = value;
        else if (name == "--port")
            good = readCount(value, 0, 65535, options.server.port);
        else if (name == "--threads")
            good = readCount(value, 1, 256, options.server.threads);
        else if (name == "--domain")
            options.domain = value;
        else if (name == "--config")
            options.config = value;
        else {
            error = "unknown option " + name;
            return false;
        }
        if (!good) {
            error = "invalid value of " + name + ": " + value;
            return false;
        }
    }
    if (options.domain.empty()) {
        error = "--domain is required";
        return false;
    }
    return true;
}

bool loadConfiguration(const Options& options, std::string& error) {
    if (!options.config.empty() && !velm::AppProperties::load(options.config.c_str())) {
        error = "cannot read configuration " + options.config;
        return false;
    }
    // The registrar sends a few statement shapes over and over: prepared
    // unless the configuration says otherwise.
    if (velm::AppProperties::get("Database", "PreparedStatements") == nullptr)
        velm::AppProperties::set("Database", "PreparedStatements", "true");
    if (const char* socket = velm::AppProperties::get("Embedded", "SocketDirectory")) {
        setenv("PGHOST", socket, 1);
        if (const char* port = velm::AppProperties::get("Embedded", "Port"))
            setenv("PGPORT", port, 1);
    }
    return true;
}

} // namespace registrar
