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
};

// Reads the command line; false with the reason in `error` (empty for
// --help).
bool parseOptions(int argc, char** argv, Options& options, std::string& error);
extern const char USAGE[];

// Loads the configuration file when one was named.
bool loadConfiguration(const Options& options, std::string& error);

} // namespace registrar

#endif
