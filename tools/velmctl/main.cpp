// velmctl: provisions subscribers, registers and lists contacts through the
// velmdb library, and runs a private PostgreSQL server to try it out.
#include "Arguments.h"
#include "CommandRegistry.h"
#include "Output.h"

#include <cstdio>

int main(int argc, char** argv) {
    velmctl::Arguments arguments;
    velmctl::Outcome outcome = arguments.parse(argc, argv);
    velmctl::Output output(arguments.json());
    if (outcome.ok())
        outcome = velmctl::runCommand(arguments, output);
    output.finish();
    if (!outcome.message.empty())
        std::fprintf(stderr, "velmctl: %s\n", outcome.message.c_str());
    return outcome.status;
}
