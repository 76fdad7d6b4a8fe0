// Removing registered contacts (unregisterContacts), in a transaction or with auto-commit.
#include "LocationService.h"

#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "RegistrationText.h"
#include "TransactionClosing.h"

#include <iterator>

#include <algorithm>

namespace velm {

using namespace registration;

namespace {

const char* const OPERATION = "unregisterContacts";

// The failure points of the step-by-step form, in the order it meets them,
// and how each ends the transaction (CLOSINGS is in the same order).
enum FailurePoint {
    END_BEGIN,
    ROLLBACK_LOOKUP,
    ROLLBACK_EMPTY,
    ROLLBACK_UNKNOWN,
    ROLLBACK_DELETE,
    ROLLBACK_PROMOTION,
    ROLLBACK_COMMIT,
    FAILURE_POINTS
};

const registration::Closing CLOSINGS[] = {
    {"END TRANSACTION;", "unregisterContacts BEGIN end failed try again: ", 4,
     "unregisterContacts second END failed : "},
    {"ROLLBACK;", "unregisterContacts ROLLBACK failed try again: ", 7, "unregisterContacts second ROLLBACK failed : "},
    {"ROLLBACK TRANSACTION;", nullptr, 9, nullptr},
    {"ROLLBACK TRANSACTION;", nullptr, 11, nullptr},
    {"ROLLBACK TRANSACTION;", nullptr, 14, nullptr},
    {"ROLLBACK;", nullptr, 16, "unregisterContacts second ROLLBACK failed after updateContacts "},
    {"ROLLBACK;", nullptr, 19, "unregisterContacts second ROLLBACK failed after commit failed: "},
};
static_assert(std::size(CLOSINGS) == FAILURE_POINTS, "one closing for each failure point");

} // namespace

DatabaseResult LocationService::unregisterContacts(int key, std::vector<ContactRecord>& contacts) {
    if (m_useAutoCommit)
        return unregisterContactsAC(key, contacts);
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay())
        return result;
    m_trace.prn("unregistering contacts for key=%d", key);
    std::string script = "BEGIN TRANSACTION; ";
    for (const ContactRecord& contact : contacts)
        script += deleteContact(contact, key, true);
    script += "COMMIT TRANSACTION;";
    result = m_exec->execute(script);
    if (!result.okay()) {
        alarmStep(OPERATION, 1, result);
        m_trace.prn("execute failed");
        m_exec->execute("ROLLBACK");
    } else {
        m_trace.prn("execute okay");
    }
    return result;
}

DatabaseResult LocationService::unregisterContacts(int key, std::vector<ContactRecord>& contacts,
                                                   std::vector<ContactRecord>& addedContacts,
                                                   std::vector<ContactRecord>& deletedContacts,
                                                   std::vector<ContactRecord>& changedContacts) {
    if (m_useAutoCommit)
        return unregisterContactsAC(key, contacts);
    DatabaseResult result = readyForSteps(addedContacts, deletedContacts, changedContacts);
    if (!result.okay())
        return result;

    size_t wildcards = std::count_if(contacts.begin(), contacts.end(), isWildcard);
    if (wildcards > 0 && wildcards < contacts.size()) {
        result.setBadParameter();
        result.setErrorMessage("mixed contact headers");
        return result;
    }
    const bool wildcard = wildcards > 0;
    m_trace.prn("wildcard = '%s'", wildcard ? "TRUE" : "FALSE");
    m_trace.prn("unregistering contacts for key=%d", key);

    result = m_exec->execute("BEGIN TRANSACTION; ");
    if (!result.okay())
        return failStep(result, OPERATION, 2, "unregisterContacts BEGIN failed: ", CLOSINGS[END_BEGIN]);

    ContactRecord set = contacts.empty() ? ContactRecord() : contacts.front();
    std::vector<ContactRecord> existing;
    result = m_exec->execute(lockSet(csidSelect(key)));
    if (result.okay())
        result = m_exec->lookupContacts(key, set, existing);
    if (!result.okay())
        return failStep(result, OPERATION, 5, "unregisterContacts lookupContacts failed: ", CLOSINGS[ROLLBACK_LOOKUP]);
    if (existing.empty()) {
        m_trace.prn("unregisterContacts: no contacts registered ");
        result.setBadParameter();
        result.setErrorMessage("unregisteringContacts: no contacts");
        return failStep(result, OPERATION, 0, nullptr, CLOSINGS[ROLLBACK_EMPTY]);
    }

    // Which stored contacts go, and whether the one inactive contact left
    // must become the active one.
    std::vector<bool> removed(existing.size(), wildcard);
    int promoted = -1;
    if (!wildcard) {
        for (const ContactRecord& contact : contacts) {
            int index = matchStored(contact, existing, true);
            if (index < 0) {
                m_trace.prn("unregisterContacts: contact not registered ");
                result.setBadParameter();
                result.setErrorMessage("unregistering contact not registered");
                return failStep(result, OPERATION, 0, nullptr, CLOSINGS[ROLLBACK_UNKNOWN]);
            }
            removed[index] = true;
        }
        Remaining remaining;
        for (size_t index = 0; index < existing.size(); ++index)
            if (!removed[index])
                remaining.count(existing[index], static_cast<int>(index));
        if (remaining.promote())
            promoted = remaining.firstInactive();
    }

    int csid = set.csid() != -1 ? set.csid() : existing.front().csid();
    std::vector<ContactRecord> deleted;
    if (wildcard) {
        std::string sql = "DELETE FROM contact WHERE permanent='f' AND contact_header != '' AND csid = ";
        if (csid != -1) {
            m_trace.prn("Deleting all contacts (wildcard) with csid=%s", std::to_string(csid).c_str());
            sql += std::to_string(csid);
        } else {
            m_trace.prn("Deleting all contacts (wildcard + csid lookup)");
            sql += csidSelect(key);
        }
        result = m_exec->execute(sql);
        if (!result.okay())
            return failStep(result, OPERATION, 12, "unregisterContacts execute failed", CLOSINGS[ROLLBACK_DELETE]);
        for (const ContactRecord& contact : existing)
            if (contact.permanent() == "f")
                deleted.push_back(contact);
    } else {
        for (size_t index = 0; index < existing.size(); ++index) {
            if (!removed[index])
                continue;
            m_trace.prn("Deleting contact with contact_id=%d", existing[index].contactId());
            result = m_exec->execute("DELETE FROM contact WHERE contact_id = " +
                                     std::to_string(existing[index].contactId()) + "; ");
            if (!result.okay())
                return failStep(result, OPERATION, 12, "unregisterContacts execute failed", CLOSINGS[ROLLBACK_DELETE]);
            deleted.push_back(existing[index]);
        }
    }

    if (promoted >= 0) {
        m_trace.prn("unregister execute okay now try to updateContact q value");
        existing[promoted].setQvalue(ACTIVE);
        result = updateContact(key, existing[promoted]);
        if (!result.okay())
            return failStep(result, OPERATION, 0, "unregisterContacts updateContact failed rollback: ",
                            CLOSINGS[ROLLBACK_PROMOTION]);
    }

    result = m_exec->execute("COMMIT TRANSACTION;");
    if (!result.okay())
        return failStep(result, OPERATION, 17,
                        "unregisterContacts commit failed rollback: ", CLOSINGS[ROLLBACK_COMMIT]);

    if (promoted >= 0)
        changedContacts.push_back(existing[promoted]);
    deletedContacts = deleted;
    m_trace.prn("unregisterContacts deletedContacts.size()=%d", static_cast<int>(deletedContacts.size()));
    return result;
}

DatabaseResult LocationService::unregisterContactsAC(int key, std::vector<ContactRecord>& contacts) {
    DatabaseResult result;
    checkConnect(result);
    if (!result.okay())
        return result;
    for (const ContactRecord& contact : contacts) {
        std::string sql = deleteContact(contact, key, false);
        if (sql.empty())
            continue;
        result = m_exec->execute(sql);
        if (!result.okay()) {
            alarmOnFatal("unregisterContactsAC", result);
            m_trace.prn("unregister contacts failed");
            return result;
        }
    }
    m_trace.prn("unregister contacts okay");
    return result;
}

} // namespace velm
