// Options: velm-registrar's settings from its command line.
#ifndef VELM_REGISTRAR_OPTIONS_H
#define VELM_REGISTRAR_OPTIONS_H

#include "SipServer.h"

#include <string>

namespace registrar {

struct Options {
    ServerSettings server;
    std::string domain;
    // Empty: VELM_CONFIG, else /etc/velm/velm.conf.
    std::string config;
    // --no-auth: REGISTER is applied without credentials (load tests only).
    bool noAuth = false;
    // --help or --version: print it and exit.
    bool help = false;
    bool version = false;
};

// Reads the command line; false with the reason in `error`.
bool parseOptions(int argc, char** argv, Options& options, std::string& error);
extern const char USAGE[];
// "velm-registrar <version>" and a line end.
extern const char VERSION[];

// Loads the configuration file when one was named; reads [Registrar]
// MaxContacts.
bool loadConfiguration(Options& options, std::string& error);

} // namespace registrar

#endif
