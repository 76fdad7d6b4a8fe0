// velmctl's calls into the library: subscribers, registrations, contacts, expiry and the schema.
#include "Session.h"

#include "Crypt.h"
#include "DatabaseCommandExecutor.h"
#include "LibraryMessages.h"
#include "LocationService.h"
#include "LocationServicePool.h"
#include "PublicAddressRecord.h"
#include "QueryResultPtr.h"
#include "SubscriberRecord.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace velmctl {

Outcome fromResult(const velm::DatabaseResult& result, const std::string& context) {
    if (result.okay())
        return Outcome();
    if (result.notFound())
        return Outcome::failure(NOT_FOUND, context + ": not found");
    Status status = result.badParameter() ? BAD_INPUT : DATABASE_ERROR;
    return Outcome::failure(status, context + ": " + operatorWords(result.getErrorMessage()));
}

namespace {

std::string firstLine(const std::string& text) {
    std::string line = text.substr(0, text.find('\n'));
    return line.empty() ? "unknown error" : line;
}

} // namespace

Session::Session() : m_service(nullptr) {
    velm::LocationServicePool::Instance();
}

Session::~Session() {
    velm::LocationServicePool::destroy();
}

Outcome Session::open() {
    m_service = velm::LocationServicePool::Instance()->getConnection();
    if (m_service == nullptr || m_service->m_exec == nullptr)
        return Outcome::failure(DATABASE_ERROR, "no database configured: run 'velmctl db start', or name a "
                                                "configuration with --config or VELM_CONFIG");
    if (!m_service->m_exec->checkConnect())
        return Outcome::failure(DATABASE_ERROR, "cannot connect: " + firstLine(m_service->m_exec->getErrorMessage()));
    return Outcome();
}

Outcome Session::key(const Aor& aor, int& key) {
    velm::PublicAddressRecord address;
    velm::DatabaseResult result = m_service->m_exec->lookupPublicAddress(aor.user.c_str(), aor.domain.c_str(), address);
    if (result.notFound())
        return Outcome::failure(NOT_FOUND, "no public address " + aor.text());
    if (!result.okay())
        return fromResult(result, aor.text());
    key = address.public_address_id();
    return Outcome();
}

Outcome Session::addSubscriber(const Aor& aor, const std::string& password) {
    int existing = 0;
    if (key(aor, existing).ok())
        return Outcome::failure(BAD_INPUT, aor.text() + " already exists");
    std::string stored;
    if (!password.empty()) {
        stored = Crypt::encrypt(password);
        if (stored.empty())
            return Outcome::failure(DATABASE_ERROR, "cannot encipher the password: no usable key ([Crypt] KeyFile)");
    }
    velm::DatabaseCommandExecutor& exec = *m_service->m_exec;
    velm::DatabaseResult result = m_service->executeCmd("BEGIN");
    velm::QueryResultPtr rows;
    if (result.okay())
        result = exec.execute("SELECT coalesce(max(sid), 0) + 1 FROM subscriber", rows);
    if (!result.okay())
        return fromResult(result, "adding " + aor.text());

    int sid = std::atoi(rows.getValue(0, 0));
    velm::SubscriberRecord subscriber;
    subscriber.setId(sid);
    subscriber.setUserId(aor.text());
    subscriber.setType("home");
    subscriber.setAuthType("digest");
    subscriber.setPassword(stored);
    subscriber.setActive('t');
    subscriber.setIsLocal(true);
    if (exec.addSubscriber(subscriber) < 0 || exec.createPublicAddress(sid, aor.user.c_str(), aor.domain.c_str()) < 0) {
        std::string message = firstLine(exec.getErrorMessage());
        m_service->executeCmd("ROLLBACK");
        return Outcome::failure(DATABASE_ERROR, "adding " + aor.text() + ": " + message);
    }
    return fromResult(m_service->executeCmd("COMMIT"), "adding " + aor.text());
}

Outcome Session::registerContact(const Aor& aor, velm::ContactRecord contact, Changes& changes) {
    int paid = 0;
    Outcome found = key(aor, paid);
    if (!found.ok())
        return found;
    contact.setUser(aor.user);
    contact.setDomain(aor.domain);
    velm::ContactRecord stored;
    velm::DatabaseResult result = m_service->m_exec->lookupMatchingContact(0, paid, contact, stored);
    if (!result.okay())
        return fromResult(result, "registering for " + aor.text());
    std::vector<velm::ContactRecord> contacts{contact};
    result = stored.contactId() > 0
                 ? m_service->updateContacts(paid, contacts, changes.added, changes.deleted, changes.changed)
                 : m_service->registerContacts(paid, contacts, changes.added, changes.deleted, changes.changed);
    return fromResult(result, "registering for " + aor.text());
}

Outcome Session::unregisterContact(const Aor& aor, const ContactArg& contact, Changes& changes) {
    int paid = 0;
    Outcome found = key(aor, paid);
    if (!found.ok())
        return found;
    velm::ContactRecord record;
    record.setAddress(contact.uri);
    record.setContactHeader(contact.header);
    std::vector<velm::ContactRecord> contacts{record};
    velm::DatabaseResult result =
        m_service->unregisterContacts(paid, contacts, changes.added, changes.deleted, changes.changed);
    if (result.badParameter())
        return Outcome::failure(NOT_FOUND, aor.text() + ": " + operatorWords(result.getErrorMessage()));
    return fromResult(result, "unregistering for " + aor.text());
}

Outcome Session::contacts(const Aor& aor, std::vector<velm::ContactRecord>& contacts) {
    int paid = 0;
    Outcome found = key(aor, paid);
    if (!found.ok())
        return found;
    std::string ordering;
    bool replaceUri = true;
    velm::DatabaseResult result = m_service->m_exec->lookupContacts(paid, ordering, replaceUri, contacts, false);
    // Not found with contacts means an inactive subscriber: still listed.
    if (result.notFound())
        return Outcome();
    return fromResult(result, "listing " + aor.text());
}

Outcome Session::expire(Changes& changes) {
    for (;;) {
        Changes one;
        velm::DatabaseResult result = m_service->removeExpiredContacts(one.added, one.deleted, one.changed);
        if (!result.okay())
            return fromResult(result, "removing expired contacts");
        if (one.deleted.empty())
            return Outcome();
        changes.deleted.insert(changes.deleted.end(), one.deleted.begin(), one.deleted.end());
        changes.changed.insert(changes.changed.end(), one.changed.begin(), one.changed.end());
    }
}

Outcome Session::loadSchema(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        return Outcome::failure(BAD_INPUT, "cannot read schema " + path);
    std::ostringstream text;
    text << file.rdbuf();
    velm::DatabaseResult result = m_service->executeCmd(text.str());
    if (!result.okay())
        return Outcome::failure(DATABASE_ERROR, "loading " + path + ": " + firstLine(result.getErrorMessage()));
    return Outcome();
}

} // namespace velmctl
