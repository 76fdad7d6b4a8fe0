// Registering contacts (registerContacts), in a transaction or with auto-commit, and updating one contact.
#include "LocationService.h"

#include "AppProperties.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "QueryResultPtr.h"
#include "RegistrationText.h"
#include "TransactionClosing.h"

#include <iterator>

namespace velm {

using namespace registration;

namespace {

const char* const OPERATION = "registerContacts";

// The failure points of the step-by-step form, in the order it meets them,
// and how each ends the transaction (CLOSINGS is in the same order).
enum FailurePoint {
    END_BEGIN,
    END_CONVERT,
    END_LOOKUP,
    ROLLBACK_DEMOTION,
    ROLLBACK_INSERT,
    ROLLBACK_READ_BACK,
    ROLLBACK_COMMIT,
    FAILURE_POINTS
};

const registration::Closing CLOSINGS[] = {
    {"END TRANSACTION;", "registerContacts BEGIN end failed try again: ", 6, "registerContacts second END failed : "},
    {"END TRANSACTION;", "registerContacts qValue convert end failed try again: ", 8,
     "registerContacts second qValue convert END failed : "},
    {"END TRANSACTION;", "registerContacts END failed try again: ", 9, "registerContacts second END failed : "},
    {"ROLLBACK;", nullptr, 11, "registerContacts second ROLLBACK failed : "},
    {"ROLLBACK;", nullptr, 14, "registerContacts second rollback failed : "},
    {"ROLLBACK;", "activeContacts lookupContacts rollback failed try again: ", 17,
     "removeExpiredContacts lookupContacts second rollback failed : "},
    {"ROLLBACK;", nullptr, 20, "registerContacts second completion failed : "},
};
static_assert(std::size(CLOSINGS) == FAILURE_POINTS, "one closing for each failure point");

} // namespace

DatabaseResult LocationService::registerContacts(int key, std::vector<ContactRecord>& contacts) {
    if (m_useAutoCommit)
        return registerContactsAC(key, contacts);
    DatabaseResult result;
    if (!validQvalues(contacts, result))
        return result;
    checkConnect(result);
    if (!result.okay())
        return result;
    m_trace.prn("registering contacts for key=%d", key);
    std::string script = "BEGIN TRANSACTION; ";
    for (const ContactRecord& contact : contacts)
        script += insertContact(contact, csidSelect(key), InsertForm::Script);
    script += "COMMIT TRANSACTION;";
    result = m_exec->execute(script);
    if (!result.okay()) {
        alarmStep(OPERATION, 2, result);
        m_trace.log("registerContacts failed: %s", result.getErrorMessage().c_str());
        m_exec->execute("ROLLBACK");
    }
    return result;
}

DatabaseResult LocationService::registerContacts(int key, std::vector<ContactRecord>& contacts,
                                                 std::vector<ContactRecord>& addedContacts,
                                                 std::vector<ContactRecord>& deletedContacts,
                                                 std::vector<ContactRecord>& changedContacts) {
    if (m_useAutoCommit)
        return registerContactsAC(key, contacts);
    DatabaseResult result = readyForSteps(addedContacts, deletedContacts, changedContacts);
    if (!result.okay())
        return result;
    m_trace.prn("registering contacts for key=%d", key);

    result = m_exec->execute("BEGIN TRANSACTION; ");
    if (!result.okay())
        return failStep(result, OPERATION, 4, "registerContacts BEGIN failed: ", CLOSINGS[END_BEGIN]);

    DatabaseResult invalid;
    if (!validQvalues(contacts, invalid))
        return failStep(invalid, OPERATION, 0, "registerContacts qValue convert failed: ", CLOSINGS[END_CONVERT]);

    // The first contact of the REGISTER decides whether the new contacts
    // become the set's active contact.
    ContactRecord registering = contacts.empty() ? ContactRecord() : contacts.front();
    double level = 0.8;
    double parsed = level;
    if (registering.qvalue().empty()) {
        const char* treatment = AppProperties::get("Registrar", "QValueNotPresentRegisterTreatment");
        bool inactive = treatment != nullptr && std::string(treatment) == "inactive";
        level = parsed = inactive ? 0.0 : 0.8;
        m_trace.prn("%s", inactive ? "No conversion for registering contact qvalue - set to inactive "
                                   : "No conversion for registering contact qvalue - set to active ");
    } else {
        parseQvalue(registering.qvalue(), parsed);
        level = parsed != 0.0 ? 0.8 : 0.0;
        m_trace.prn("conversion for registering contact: qvalue=%f", level);
    }
    m_trace.prn("registering contact qvalue (%f) not = qvalue zero (%f), so set to 0.8", parsed, 0.0);

    std::vector<ContactRecord> existing;
    result = m_exec->execute(lockSet(csidSelect(key)));
    if (result.okay())
        result = m_exec->lookupContacts(key, registering, existing);
    if (!result.okay())
        return failStep(result, OPERATION, 7, "registerContacts lookupContacts failed: ", CLOSINGS[END_LOOKUP]);

    int csid = -1;
    for (const ContactRecord& contact : existing)
        if (contact.csid() != -1) {
            csid = contact.csid();
            break;
        }

    std::vector<ContactRecord> demoted;
    if (level != 0.0) {
        for (ContactRecord contact : existing) {
            if (!isActive(contact.qvalue()))
                continue;
            contact.setQvalue(INACTIVE);
            result = updateContact(key, contact);
            if (!result.okay())
                return failStep(result, OPERATION, 0, "registerContacts updateContact failed rollback: ",
                                CLOSINGS[ROLLBACK_DEMOTION]);
            demoted.push_back(contact);
        }
    } else {
        m_trace.prn("registering contact  qvalue (%f) is not changed.", level);
    }

    const std::string csidText = csid != -1 ? std::to_string(csid) : csidSelect(key);
    std::vector<ContactRecord> inserted;
    for (ContactRecord contact : contacts) {
        contact.setQvalue(levelText(level));
        result = m_exec->execute(insertContact(contact, csidText, InsertForm::Step));
        if (!result.okay())
            return failStep(result, OPERATION, 12, "registerContacts failed rollback: ", CLOSINGS[ROLLBACK_INSERT]);
        ContactRecord stored;
        result = m_exec->lookupMatchingContact(csid > 0 ? csid : 0, key, contact, stored);
        if (result.okay() && stored.contactId() < 1) {
            result.setNotFound();
            result.setErrorMessage("contact_id < 1");
        }
        if (!result.okay())
            return failStep(result, OPERATION, 15, nullptr, CLOSINGS[ROLLBACK_READ_BACK]);
        contact.setContactid(stored.contactId());
        contact.setCsid(stored.csid());
        inserted.push_back(contact);
    }

    result = m_exec->execute("COMMIT TRANSACTION;");
    if (!result.okay())
        return failStep(result, OPERATION, 18,
                        "registerContacts COMMIT failed so rollback: ", CLOSINGS[ROLLBACK_COMMIT]);

    changedContacts.insert(changedContacts.end(), demoted.begin(), demoted.end());
    for (const ContactRecord& contact : inserted) {
        addedContacts.push_back(contact);
        m_trace.prn("registerContacts: activeContact contact_id=%d", contact.contactId());
    }
    m_trace.prn("registerContacts addedContacts.size()=%d", static_cast<int>(addedContacts.size()));
    return result;
}

DatabaseResult LocationService::registerContactsAC(int key, std::vector<ContactRecord>& contacts) {
    DatabaseResult result;
    if (!validQvalues(contacts, result))
        return result;
    checkConnect(result);
    if (!result.okay())
        return result;
    m_trace.prn("registering contacts for key=%d", key);
    for (const ContactRecord& contact : contacts) {
        result = m_exec->execute(insertContact(contact, csidSelect(key), InsertForm::AutoCommit));
        if (!result.okay()) {
            alarmStep("registerContactsAC", 2, result);
            m_trace.log("registerContactsAC failed: %s", result.getErrorMessage().c_str());
            return result;
        }
    }
    m_trace.prn("registerContactsAC okay");
    return result;
}

DatabaseResult LocationService::updateContact(int key, ContactRecord& contact) {
    DatabaseResult invalid;
    if (!validQvalues({contact}, invalid))
        return invalid;
    return guarded("updateContact", [&](DatabaseCommandExecutor& exec) {
        m_trace.prn("updateContact invoked for key=%d", key);
        std::string csid = contact.csid() != -1 ? std::to_string(contact.csid()) : csidSelect(key);
        return exec.execute(registration::updateContact(contact, byCsidAndAddress(contact, csid, false)));
    });
}

DatabaseResult LocationService::getContactId(std::string& contactId) {
    QueryResultPtr rows;
    DatabaseResult result = guarded("getContactId", [&](DatabaseCommandExecutor& exec) {
        return exec.execute("SELECT cid_seq.nextval", rows);
    });
    if (!result.okay()) {
        m_trace.prn("failed to generate unique contact id");
        return result;
    }
    const char* value = rows.getValue(0, 0);
    if (value == nullptr) {
        result.setNotFound();
        result.setErrorMessage("failed to retrieve unique contact id");
        return result;
    }
    contactId = value;
    m_trace.prn("generated unique contactId='%s'", contactId.c_str());
    return result;
}

std::string LocationService::dumpToString(const ContactRecord& contact) {
    return "user=" + contact.user() + "\n" + "domain=" + contact.domain() + "\n" + "address=" + contact.address() +
           "\n" + "csid=" + std::to_string(contact.csid()) + "\n" + "qvalue=" + contact.qvalue() + "\n" +
           "capabilities=" + contact.capabilities() + "\n" + "contactHeader=" + contact.contactHeader() + "\n" +
           "callId=" + contact.callId() + "\n" + "type=" + contact.type() + "\n";
}

} // namespace velm
