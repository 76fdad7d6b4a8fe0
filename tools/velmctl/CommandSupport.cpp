// The steps velmctl's commands share: configuration, opening a session, argument checks and showing contacts.
#include "CommandSupport.h"

#include "AppProperties.h"
#include "CommandRegistry.h"
#include "EmbeddedServer.h"

#include <sys/stat.h>

#include <cstdlib>

namespace velmctl {

std::string directory(const Arguments& arguments) {
    return arguments.option("--dir", EmbeddedServer::defaultDirectory());
}

// Loads the configuration: the one named, else the private server's when it
// has one.
Outcome configure(const Arguments& arguments) {
    std::string path = arguments.option("--config");
    if (path.empty() && std::getenv("VELM_CONFIG") == nullptr) {
        std::string embedded = EmbeddedServer(directory(arguments)).configFile();
        struct stat info;
        if (stat(embedded.c_str(), &info) == 0)
            path = embedded;
    }
    return configureFile(path);
}

Outcome configureFile(const std::string& path) {
    if (!path.empty() && !velm::AppProperties::load(path.c_str()))
        return Outcome::failure(BAD_INPUT, "cannot read configuration " + path);
    return Outcome();
}

Outcome openSession(const Outcome& checked, const Arguments& arguments, Session& session) {
    if (!checked.ok())
        return checked;
    Outcome configured = configure(arguments);
    return configured.ok() ? session.open() : configured;
}

// The word at `index`, or a usage error naming what is missing.
Outcome word(const Arguments& arguments, size_t index, const char* what, std::string& value) {
    if (arguments.words().size() <= index)
        return usage(std::string("missing ") + what);
    value = arguments.words()[index];
    return Outcome();
}

Outcome expectWords(const Arguments& arguments, size_t count) {
    if (arguments.words().size() > count)
        return usage("unexpected argument '" + arguments.words()[count] + "'");
    return Outcome();
}

// Exactly the words `what` names after the command word, and only the listed
// options; the words go to `values` in order.
Outcome expectArguments(const Arguments& arguments, const std::vector<const char*>& what,
                        const std::vector<std::string>& options, std::vector<std::string>& values) {
    for (size_t index = 0; index < what.size(); ++index) {
        values.emplace_back();
        Outcome given = word(arguments, index + 1, what[index], values.back());
        if (!given.ok())
            return given;
    }
    Outcome outcome = expectWords(arguments, what.size() + 1);
    return outcome.ok() ? arguments.only(options) : outcome;
}

Outcome showContacts(Session& session, const Aor& aor, const std::string& title, Output& output) {
    std::vector<velm::ContactRecord> contacts;
    Outcome listed = session.contacts(aor, contacts);
    if (listed.ok())
        output.contacts(title, aor.text(), contacts);
    return listed;
}

} // namespace velmctl
