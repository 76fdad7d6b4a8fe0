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

// The usage of every command, or of `word` alone.
std::string usageText(const std::string& word = "") {
    std::string text = "usage: velmctl [--json] [--config FILE] [--dir DIR] COMMAND\n"
                       "       velmctl --version | help [COMMAND] | COMMAND --help\n";
    for (const auto& entry : commands())
        if (word.empty() || entry.first == word)
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
    if (arguments.version()) {
        output.note("velmctl " VELMCTL_VERSION);
        return Outcome();
    }
    const std::vector<std::string>& words = arguments.words();
    bool help = arguments.help() || (!words.empty() && words[0] == "help");
    // "help COMMAND" and "COMMAND --help" both name the command.
    size_t named = !words.empty() && words[0] == "help" ? 1 : 0;
    if (help && words.size() <= named) {
        output.note(usageText());
        return Outcome();
    }
    if (words.empty())
        return usage("no command given");
    const std::string& word = words[named];
    auto command = commands().find(word);
    if (command == commands().end())
        return usage("unknown command '" + word + "'");
    if (help) {
        output.note(usageText(word));
        return Outcome();
    }
    return command->second.handler(arguments, output);
}

} // namespace velmctl
