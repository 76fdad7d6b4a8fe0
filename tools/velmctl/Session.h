// Session: velmctl's LocationService, and the library results as velmctl outcomes.
#ifndef VELMCTL_SESSION_H
#define VELMCTL_SESSION_H

#include "ContactRecord.h"
#include "Input.h"
#include "Status.h"

#include <string>
#include <vector>

namespace velm {
class DatabaseResult;
class LocationService;
}

namespace velmctl {

// The exit status and message of a library result; `context` starts the message.
Outcome fromResult(const velm::DatabaseResult& result, const std::string& context);

// What one registration changed.
struct Changes {
    std::vector<velm::ContactRecord> added;
    std::vector<velm::ContactRecord> deleted;
    std::vector<velm::ContactRecord> changed;
};

// The library as velmctl uses it: this thread's LocationService from the
// pool, configured by the loaded configuration.
class Session {
public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    Outcome open();
    Outcome addSubscriber(const Aor& aor, const std::string& password);
    // Registers a new contact or refreshes a registered one.
    Outcome registerContact(const Aor& aor, velm::ContactRecord contact, Changes& changes);
    // `contact.uri` "*" removes every contact that is not permanent.
    Outcome unregisterContact(const Aor& aor, const ContactArg& contact, Changes& changes);
    Outcome contacts(const Aor& aor, std::vector<velm::ContactRecord>& contacts);
    // Removes expired contacts one at a time until none is left.
    Outcome expire(Changes& changes);
    // Runs the statements of a schema file.
    Outcome loadSchema(const std::string& path);
    // The opened service, for command families that call the library
    // directly; null before open().
    velm::LocationService* service() { return m_service; }

private:
    Outcome key(const Aor& aor, int& key);

    velm::LocationService* m_service;
};

} // namespace velmctl

#endif
