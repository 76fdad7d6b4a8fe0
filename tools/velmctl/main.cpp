// velmctl: provisions subscribers, registers and lists contacts through the
// velmdb library, and runs a private PostgreSQL server to try it out.
#include "Arguments.h"
#include "CommandRegistry.h"
#include "Output.h"

int main(int argc, char** argv) {
    velmctl::Arguments arguments;
    velmctl::Outcome outcome = arguments.parse(argc, argv);
    velmctl::Output output(arguments.json());
    if (outcome.ok())
        outcome = velmctl::runCommand(arguments, output);
    output.finish(outcome);
    return outcome.status;
}
