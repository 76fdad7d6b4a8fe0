// Splitting velmctl's command line into words and options.
#include "Arguments.h"

#include "Input.h"

#include <algorithm>

namespace velmctl {

Outcome Arguments::parse(int argc, char** argv) {
    // Known before anything can fail, so that a failure is answered in JSON too.
    for (int at = 1; at < argc; ++at)
        m_json = m_json || std::string(argv[at]) == "--json";
    for (int at = 1; at < argc; ++at)
        if (!isUtf8(argv[at]))
            return Outcome::failure(BAD_INPUT, "argument " + std::to_string(at) + " is not UTF-8 text");
    for (int at = 1; at < argc; ++at) {
        std::string word = argv[at];
        if (word == "--json") {
            continue;
        } else if (word == "--help" || word == "-h") {
            m_help = true;
        } else if (word == "--version") {
            m_version = true;
        } else if (word == "--internal" || word == "--expired") {
            m_options[word] = "";
        } else if (word.size() > 2 && word.compare(0, 2, "--") == 0) {
            if (at + 1 >= argc)
                return Outcome::failure(BAD_INPUT, "option " + word + " needs a value");
            m_options[word] = argv[++at];
        } else {
            m_words.push_back(word);
        }
    }
    return Outcome();
}

std::string Arguments::option(const std::string& name, const std::string& fallback) const {
    auto found = m_options.find(name);
    return found != m_options.end() ? found->second : fallback;
}

Outcome Arguments::only(const std::vector<std::string>& allowed) const {
    for (const auto& option : m_options)
        if (option.first != "--config" && option.first != "--dir" &&
            std::find(allowed.begin(), allowed.end(), option.first) == allowed.end())
            return Outcome::failure(BAD_INPUT, "unknown option " + option.first + " for this command");
    return Outcome();
}

} // namespace velmctl
