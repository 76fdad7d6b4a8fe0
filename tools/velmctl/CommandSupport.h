// The steps velmctl's commands share.
#ifndef VELMCTL_COMMANDSUPPORT_H
#define VELMCTL_COMMANDSUPPORT_H

#include "Arguments.h"
#include "Input.h"
#include "Output.h"
#include "Session.h"
#include "Status.h"

#include <string>
#include <vector>

namespace velmctl {

// The private server's directory: --dir, or the default.
std::string directory(const Arguments& arguments);
// Loads the configuration and, for the private server, points libpq at its
// socket.
Outcome configure(const Arguments& arguments);
// The same for the configuration file `path`; with none, the one the
// library finds itself (VELM_CONFIG).
Outcome configureFile(const std::string& path);
// configure(), then the session's connection; a failed argument check is
// passed on as it is, without touching the configuration or the database.
Outcome openSession(const Outcome& checked, const Arguments& arguments, Session& session);
// The word at `index`, or a usage error naming what is missing.
Outcome word(const Arguments& arguments, size_t index, const char* what, std::string& value);
// A usage error when more than `count` words were given.
Outcome expectWords(const Arguments& arguments, size_t count);
// Exactly the words `what` names after the command word, and only the listed
// options; the words go to `values` in order.
Outcome expectArguments(const Arguments& arguments, const std::vector<const char*>& what,
                        const std::vector<std::string>& options, std::vector<std::string>& values);
// Lists the contacts of `aor` under `title`.
Outcome showContacts(Session& session, const Aor& aor, const std::string& title, Output& output);

} // namespace velmctl

#endif
