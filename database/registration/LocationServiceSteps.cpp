// What the step-by-step registration forms share: ending a transaction after
// a failed step, and finding the stored contact that a Contact header names.
#include "LocationService.h"

#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "SipAddr.h"
#include "TransactionClosing.h"

namespace velm {

void LocationService::alarmStep(const char* operation, int step, const DatabaseResult& result) {
    alarmOnFatal(std::string(operation) + "_" + std::to_string(step), result);
}

DatabaseResult LocationService::failStep(const DatabaseResult& failure, const char* operation, int step,
                                         const char* message, const Closing& closing) {
    if (step > 0)
        alarmStep(operation, step, failure);
    if (message != nullptr)
        m_trace.log("%s%s", message, failure.getErrorMessage().c_str());
    closeTransaction(operation, closing);
    return failure;
}

void LocationService::closeTransaction(const char* operation, const Closing& closing) {
    DatabaseResult closed = m_exec->execute(closing.statement);
    if (!closed.okay()) {
        if (closing.retryMessage != nullptr)
            m_trace.log("%s%s", closing.retryMessage, closed.getErrorMessage().c_str());
        closed = m_exec->execute(closing.statement);
        if (!closed.okay()) {
            alarmStep(operation, closing.step, closed);
            if (closing.secondMessage != nullptr)
                m_trace.log("%s%s", closing.secondMessage, closed.getErrorMessage().c_str());
        }
    }
}

DatabaseResult LocationService::readyForSteps(const std::vector<ContactRecord>& addedContacts,
                                              const std::vector<ContactRecord>& deletedContacts,
                                              const std::vector<ContactRecord>& changedContacts) {
    DatabaseResult result;
    const char* message = !addedContacts.empty()     ? "addedContacts not empty"
                          : !deletedContacts.empty() ? "deletedContacts not empty"
                          : !changedContacts.empty() ? "changedContacts not empty"
                                                     : nullptr;
    if (message != nullptr) {
        result.setBadParameter();
        result.setErrorMessage(message);
        return result;
    }
    checkConnect(result);
    return result;
}

int LocationService::matchStored(const ContactRecord& contact, const std::vector<ContactRecord>& stored,
                                 bool unregistering) {
    const char* label = unregistering ? "unregister" : "update";
    for (size_t index = 0; index < stored.size(); ++index) {
        m_trace.prn("%s contHdr Match: %s=%s", label, unregistering ? "unregContHdr" : "updateContHdr",
                    contact.contactHeader().c_str());
        m_trace.prn("%s contHdr Match: existContHdr=%s", label, stored[index].contactHeader().c_str());
        std::string detail;
        if (!SipAddr::addressMatches(contact.contactHeader(), stored[index].contactHeader(), detail))
            continue;
        m_trace.prn("%s contHdr Match: addresses Match!", label);
        if (unregistering && detail.empty())
            m_trace.prn("unregisterContacts address match:partial match - csid");
        else
            m_trace.prn("%s address match:  %s", unregistering ? "unregisterContacts" : "updateContacts",
                        detail.c_str());
        return static_cast<int>(index);
    }
    return -1;
}

} // namespace velm
