// Arguments: velmctl's command line.
#ifndef VELMCTL_ARGUMENTS_H
#define VELMCTL_ARGUMENTS_H

#include "Status.h"

#include <map>
#include <string>
#include <vector>

namespace velmctl {

// The command line: words in order, and --name value options anywhere.
// Switches take no value: --json, --help (-h), --version, and the commands'
// own (--internal, --expired).
class Arguments {
public:
    Outcome parse(int argc, char** argv);

    const std::vector<std::string>& words() const { return m_words; }
    bool json() const { return m_json; }
    bool help() const { return m_help; }
    bool version() const { return m_version; }
    // The option's value, or `fallback` when it was not given.
    std::string option(const std::string& name, const std::string& fallback = "") const;
    bool has(const std::string& name) const { return m_options.count(name) > 0; }
    // BAD_INPUT naming the first option not among `allowed`.
    Outcome only(const std::vector<std::string>& allowed) const;

private:
    std::vector<std::string> m_words;
    std::map<std::string, std::string> m_options;
    bool m_json = false;
    bool m_help = false;
    bool m_version = false;
};

} // namespace velmctl

#endif
