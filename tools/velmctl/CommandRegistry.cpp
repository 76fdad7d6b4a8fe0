// The table of velmctl's command words, its usage text and the dispatch of a command.
#include "CommandRegistry.h"

#include <map>

namespace velmctl {

namespace {

struct Command {
    const char* usage;
    CommandHandler handler;
};

// Filled during static initialisation, before main; ordered by word so the
// usage text does not depend on the link order.
std::map<std::string, Command>& commands() {
    static std::map<std::string, Command> table;
    return table;
}

std::string usageText() {
    std::string text = "usage: velmctl [--json] [--config FILE] [--dir DIR] COMMAND\n";
    for (const auto& entry : commands())
        text += entry.second.usage;
    text += "The configuration is --config, else VELM_CONFIG, else the one 'db start' wrote in DIR.\n"
            "Exit status: 0 success, 1 not found, 2 bad input, 3 database error.";
    return text;
}

} // namespace

CommandRegistration::CommandRegistration(const char* word, const char* usage, CommandHandler handler) {
    commands()[word] = Command{usage, handler};
}

Outcome usage(const std::string& problem) {
    return Outcome::failure(BAD_INPUT, problem + "\n" + usageText());
}

Outcome runCommand(const Arguments& arguments, Output& output) {
    if (arguments.words().empty())
        return usage("no command given");
    const std::string& word = arguments.words()[0];
    if (word == "help") {
        output.note(usageText());
        return Outcome();
    }
    auto command = commands().find(word);
    if (command == commands().end())
        return usage("unknown command '" + word + "'");
    return command->second.handler(arguments, output);
}

} // namespace velmctl
