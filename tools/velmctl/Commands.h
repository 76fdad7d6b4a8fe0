#ifndef VELMCTL_COMMANDS_H
#define VELMCTL_COMMANDS_H

#include "Arguments.h"
#include "Output.h"
#include "Status.h"

namespace velmctl {

// Runs the command that the arguments name and reports on `output`.
Outcome runCommand(const Arguments& arguments, Output& output);

} // namespace velmctl

#endif
