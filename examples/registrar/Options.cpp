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
    "usage: velm-registrar --domain DOMAIN [--address IPV4] [--port N] [--threads N] [--config FILE] [--no-auth]\n"
    "  --domain    the primary SIP domain (routing composes the conference server's URI from it)\n"
    "  --address   address to listen on (default 127.0.0.1)\n"
    "  --port      UDP and TCP port (default 5060; 0 picks a free one)\n"
    "  --threads   worker threads, each with its own database connection (default: the number of cores)\n"
    "  --config    velm.conf to read (default: VELM_CONFIG, else /etc/velm/velm.conf)\n"
    "  --no-auth   accept REGISTER without digest credentials: for load tests only\n"
    "  --help      print this and exit\n"
    "  --version   print the version and exit\n";

const char VERSION[] = "velm-registrar " VELM_REGISTRAR_VERSION "\n";

bool parseOptions(int argc, char** argv, Options& options, std::string& error) {
    unsigned cores = std::thread::hardware_concurrency();
    options.server.threads = cores > 0 ? static_cast<int>(cores) : 1;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "--no-auth") {
            options.noAuth = true;
            continue;
        }
        options.help = options.help || name == "--help";
        options.version = options.version || name == "--version";
        if (options.help || options.version)
            return true;
        if (i + 1 >= argc) {
            error = "missing value of " + name;
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

bool loadConfiguration(Options& options, std::string& error) {
    if (!options.config.empty() && !velm::AppProperties::load(options.config.c_str())) {
        error = "cannot read configuration " + options.config;
        return false;
    }
    // The registrar sends a few statement shapes over and over: prepared
    // unless the configuration says otherwise.
    if (velm::AppProperties::get("Database", "PreparedStatements") == nullptr)
        velm::AppProperties::set("Database", "PreparedStatements", "true");
    int maxContacts = static_cast<int>(options.server.policy.maxContacts);
    if (const char* text = velm::AppProperties::get("Registrar", "MaxContacts")) {
        if (!readCount(text, 1, 1000, maxContacts)) {
            error = std::string("invalid [Registrar] MaxContacts: ") + text;
            return false;
        }
    }
    options.server.policy.maxContacts = static_cast<size_t>(maxContacts);
    return true;
}

} // namespace registrar
