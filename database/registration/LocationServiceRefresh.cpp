// Refreshing registered contacts (updateContacts), in a transaction or with auto-commit.
#include "LocationService.h"

#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "RegistrationText.h"
#include "TransactionClosing.h"

#include <iterator>

namespace velm {

using namespace registration;

namespace {

const char* const OPERATION = "updateContacts";

// The failure points of the step-by-step form, in the order it meets them,
// and how each ends the transaction (CLOSINGS is in the same order).
enum FailurePoint {
    END_BEGIN,
    ROLLBACK_LOOKUP,
    ROLLBACK_UNKNOWN,
    ROLLBACK_UPDATE,
    ROLLBACK_REREAD,
    ROLLBACK_LOST,
    ROLLBACK_COMMIT,
    FAILURE_POINTS
};

const registration::Closing CLOSINGS[] = {
    {"END TRANSACTION;", "updateContacts BEGIN end failed try again: ", 4, "updateContacts second END failed : "},
    {"ROLLBACK TRANSACTION;", "updateContacts rollback failed try again: ", 7,
     "updateContacts second rollback failed : "},
    {"ROLLBACK TRANSACTION;", nullptr, 9, nullptr},
    {"ROLLBACK;", nullptr, 12, "updateContacts second ROLLBACK failed : "},
    {"ROLLBACK TRANSACTION;", "updateContacts rollback failed after update try again: ", 15,
     "updateContacts second rollback failed : "},
    {"ROLLBACK TRANSACTION;", nullptr, 17, nullptr},
    {"ROLLBACK;", nullptr, 20, "updateContacts ROLLBACK failed : "},
};
static_assert(std::size(CLOSINGS) == FAILURE_POINTS, "one closing for each failure point");

} // namespace

DatabaseResult LocationService::updateContacts(int key, std::vector<ContactRecord>& contacts) {
    if (m_useAutoCommit)
        return updateContactsAC(key, contacts);
    DatabaseResult result;
    if (!validQvalues(contacts, result))
        return result;
    checkConnect(result);
    if (!result.okay())
        return result;
    m_trace.prn("updateContacts invoked for key=%d", key);
    std::string script = "BEGIN TRANSACTION; ";
    for (const ContactRecord& contact : contacts)
        script += registration::updateContact(contact, byCsidAndAddress(contact, csidSelect(key), true));
    script += "COMMIT TRANSACTION;";
    result = m_exec->execute(script);
    if (!result.okay()) {
        m_exec->execute("ROLLBACK;");
        alarmStep(OPERATION, 1, result);
    }
    return result;
}

DatabaseResult LocationService::updateContacts(int key, std::vector<ContactRecord>& contacts,
                                               std::vector<ContactRecord>& addedContacts,
                                               std::vector<ContactRecord>& deletedContacts,
                                               std::vector<ContactRecord>& changedContacts) {
    if (m_useAutoCommit)
        return updateContactsAC(key, contacts);
    DatabaseResult result = readyForSteps(addedContacts, deletedContacts, changedContacts);
    if (!result.okay() || !validQvalues(contacts, result))
        return result;
    m_trace.prn("updateContacts invoked for key=%d", key);

    result = m_exec->execute("BEGIN TRANSACTION;");
    if (!result.okay())
        return failStep(result, OPERATION, 2, "updateContacts BEGIN failed: ", CLOSINGS[END_BEGIN]);

    ContactRecord set = contacts.empty() ? ContactRecord() : contacts.front();
    std::vector<ContactRecord> existing;
    result = m_exec->execute(lockSet(csidSelect(key)));
    if (result.okay())
        result = m_exec->lookupContacts(key, set, existing);
    if (result.okay() && existing.empty()) {
        result.setBadParameter();
        result.setErrorMessage("ExistingContacts empty");
    }
    if (!result.okay())
        return failStep(result, OPERATION, 5, "updateContacts lookupContacts failed: ", CLOSINGS[ROLLBACK_LOOKUP]);

    for (const ContactRecord& contact : contacts) {
        int index = matchStored(contact, existing, false);
        if (index < 0) {
            result.setBadParameter();
            result.setErrorMessage("re-reg address not found");
            return failStep(
                result, OPERATION, 0,
                "updateContacts lookupContacts failed to find re-reg contact address: ", CLOSINGS[ROLLBACK_UNKNOWN]);
        }
        // A refresh keeps the stored level, so the set keeps its one active
        // contact whatever qvalue the REGISTER carried.
        ContactRecord refreshed = contact;
        refreshed.setQvalue(existing[index].qvalue());
        std::string selector = " WHERE contact_id = " + std::to_string(existing[index].contactId()) + " ;";
        result = m_exec->execute(registration::updateContact(refreshed, selector));
        if (!result.okay())
            return failStep(result, OPERATION, 10,
                            "updateContacts commit failed rollback: ", CLOSINGS[ROLLBACK_UPDATE]);
    }

    std::vector<ContactRecord> reread;
    result = m_exec->lookupContacts(key, set, reread);
    if (!result.okay())
        return failStep(result, OPERATION, 13, "updateContacts lookupContacts failed: after update ",
                        CLOSINGS[ROLLBACK_REREAD]);
    std::vector<ContactRecord> changed;
    for (const ContactRecord& contact : contacts) {
        int index = matchStored(contact, reread, false);
        if (index < 0) {
            result.setBadParameter();
            result.setErrorMessage("re-reg address not found");
            return failStep(
                result, OPERATION, 0,
                "updateContacts lookupContacts failed to find re-reg contact address: ", CLOSINGS[ROLLBACK_LOST]);
        }
        changed.push_back(reread[index]);
    }

    result = m_exec->execute("COMMIT TRANSACTION;");
    if (!result.okay())
        return failStep(result, OPERATION, 18, "updateContacts commit failed : ", CLOSINGS[ROLLBACK_COMMIT]);
    changedContacts.insert(changedContacts.end(), changed.begin(), changed.end());
    return result;
}

DatabaseResult LocationService::updateContactsAC(int key, std::vector<ContactRecord>& contacts) {
    DatabaseResult result;
    if (!validQvalues(contacts, result))
        return result;
    checkConnect(result);
    if (!result.okay())
        return result;
    for (const ContactRecord& contact : contacts) {
        result =
            m_exec->execute(registration::updateContact(contact, byCsidAndAddress(contact, csidSelect(key), true)));
        if (!result.okay()) {
            alarmOnFatal("updateContactsAC", result);
            m_trace.prn("update contacts failed");
            return result;
        }
    }
    m_trace.prn("udpate contacts OKAY");
    return result;
}

} // namespace velm
