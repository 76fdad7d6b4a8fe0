// CommandRegistration and runCommand: how velmctl's commands are declared and run.
#ifndef VELMCTL_COMMANDREGISTRY_H
#define VELMCTL_COMMANDREGISTRY_H

#include "Arguments.h"
#include "Output.h"
#include "Status.h"

#include <string>

namespace velmctl {

using CommandHandler = Outcome (*)(const Arguments& arguments, Output& output);

// Declares a command word, its usage lines and its handler. Each family of
// commands registers its words in its own file with a namespace-scope object.
struct CommandRegistration {
    CommandRegistration(const char* word, const char* usage, CommandHandler handler);
};

// Runs the command that the arguments name and reports on `output`.
Outcome runCommand(const Arguments& arguments, Output& output);

// BAD_INPUT with `problem` and the usage text.
Outcome usage(const std::string& problem);

} // namespace velmctl

#endif
