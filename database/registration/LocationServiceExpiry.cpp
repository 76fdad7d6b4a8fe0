// Finding and removing expired contacts, promoting an inactive contact where the active one expired.
#include "LocationService.h"

#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "RegistrationText.h"
#include "TransactionClosing.h"

#include <ctime>
#include <iterator>

namespace velm {

using namespace registration;

namespace {

const char* const OPERATION = "removeExpiredContacts";

// The failure points of the step-by-step form, in the order it meets them,
// and how each ends the transaction (CLOSINGS is in the same order).
enum FailurePoint {
    END_BEGIN,
    END_LOOKUP,
    END_NOTHING,
    ROLLBACK_DELETE,
    ROLLBACK_PROMOTION,
    ROLLBACK_COMMIT,
    FAILURE_POINTS
};

const registration::Closing CLOSINGS[] = {
    {"END TRANSACTION;", "removeExpiredContacts BEGIN end failed try again: ", 4,
     "removeExpiredContacts second END failed : "},
    {"END TRANSACTION;", "removeExpiredContacts lookup/row lock END failed try again: ", 7,
     "removeExpiredContacts second lookup/row lock END failed : "},
    {"END TRANSACTION;", "removeExpiredContacts END failed after retrievedContacts empty so try again: ", 9,
     "removeExpiredContacts second END after retrievedContacts empty so ailed : "},
    {"ROLLBACK;", "removeExpiredContacts getExpiredContacts rollback failed try again: ", 12,
     "removeExpiredContacts getExpiredContacts second rollback failed : "},
    {"ROLLBACK;", "removeExpiredContacts lookupContacts rollback failed try again: ", 15,
     "removeExpiredContacts lookupContacts second rollback failed : "},
    {"ROLLBACK;", nullptr, 18, "removeExpiredContacts ROLLBACK failed : "},
};
static_assert(std::size(CLOSINGS) == FAILURE_POINTS, "one closing for each failure point");

} // namespace

DatabaseResult LocationService::getExpiredContacts(std::vector<ContactRecord>& contacts, bool flag) {
    return guarded("getExpiredContacts",
                   [&](DatabaseCommandExecutor& exec) { return exec.getExpiredContacts(contacts, flag); });
}

DatabaseResult LocationService::removeExpiredContacts() {
    return guarded("removeExpiredContacts_1", [&](DatabaseCommandExecutor& exec) {
        m_trace.prn("removing expired contacts");
        return exec.execute("DELETE FROM contact WHERE expires < " + std::to_string(static_cast<long>(time(nullptr))) +
                            " AND permanent ='f';");
    });
}

DatabaseResult LocationService::removeExpiredContacts(std::vector<ContactRecord>& addedContacts,
                                                      std::vector<ContactRecord>& deletedContacts,
                                                      std::vector<ContactRecord>& changedContacts) {
    DatabaseResult result = readyForSteps(addedContacts, deletedContacts, changedContacts);
    if (!result.okay())
        return result;

    result = m_exec->execute("BEGIN TRANSACTION;");
    if (!result.okay())
        return failStep(result, OPERATION, 2, "removeExpiredContacts BEGIN failed: ", CLOSINGS[END_BEGIN]);

    std::vector<ContactRecord> expired;
    result = getExpiredContacts(expired, true);
    if (!result.okay())
        return failStep(result, OPERATION, 5, "removeExpiredContacts lookup/row lock failed: ", CLOSINGS[END_LOOKUP]);
    if (expired.empty()) {
        closeTransaction(OPERATION, CLOSINGS[END_NOTHING]);
        return result;
    }
    ContactRecord victim = expired.front();
    std::vector<ContactRecord> existing;
    result = m_exec->execute(lockSet(std::to_string(victim.csid())));
    if (result.okay())
        result = m_exec->lookupContacts(0, victim, existing);
    if (!result.okay())
        return failStep(result, OPERATION, 5, "removeExpiredContacts lookup/row lock failed: ", CLOSINGS[END_LOOKUP]);

    // The lock is ours now; another registrar may have refreshed or removed
    // the contact between the two reads.
    int index = -1;
    for (size_t at = 0; at < existing.size(); ++at)
        if (existing[at].contactId() == victim.contactId())
            index = static_cast<int>(at);
    int promoted = -1;
    if (index >= 0) {
        m_trace.prn("removing one expired contact");
        result = m_exec->execute("DELETE FROM contact WHERE  contact.contact_id=" + std::to_string(victim.contactId()));
        if (!result.okay())
            return failStep(result, OPERATION, 10, nullptr, CLOSINGS[ROLLBACK_DELETE]);
        Remaining remaining;
        for (size_t at = 0; at < existing.size(); ++at)
            if (static_cast<int>(at) != index)
                remaining.count(existing[at], static_cast<int>(at));
        if (remaining.promote()) {
            promoted = remaining.firstInactive();
            existing[promoted].setQvalue(ACTIVE);
            result = m_exec->execute("UPDATE contact SET qvalue=" + std::string(ACTIVE) + " WHERE contact_id='" +
                                     std::to_string(existing[promoted].contactId()) + "';");
            if (!result.okay())
                return failStep(result, OPERATION, 13, nullptr, CLOSINGS[ROLLBACK_PROMOTION]);
        }
    } else {
        m_trace.prn("removeExpiredContacts : contact not deleted - already removed or updated!");
    }

    result = m_exec->execute("COMMIT TRANSACTION;");
    if (!result.okay())
        return failStep(result, OPERATION, 16, "removeExpiredContacts commit failed : ", CLOSINGS[ROLLBACK_COMMIT]);
    if (index >= 0)
        deletedContacts.push_back(existing[index]);
    if (promoted >= 0)
        changedContacts.push_back(existing[promoted]);
    return result;
}

} // namespace velm
