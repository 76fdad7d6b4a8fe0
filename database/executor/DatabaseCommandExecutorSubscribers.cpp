// Subscribers, contact sets and the creation of public addresses.
#include "DatabaseCommandExecutor.h"

#include "ColumnText.h"
#include "ContactSetRecord.h"
#include "Crypt.h"
#include "EscapedString.h"
#include "PublicAddressRecord.h"
#include "QueryResultPtr.h"
#include "SubscriberRecord.h"
#include "ValueString.h"

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

namespace velm {

namespace {

// Another node may still be provisioning the subscriber: wait this long in
// all before answering "not found".
const int subscriberAttempts = 10;
const std::chrono::seconds subscriberAttemptPause(1);

} // namespace

int DatabaseCommandExecutor::addSubscriber(const SubscriberRecord& subscriber) {
    if (!checkConnect())
        return -1;
    ValueString list;
    list.add(columns::subscriberInsert, subscriber);
    std::string sql = std::string("INSERT INTO subscriber ") + list.names() + " VALUES" + list.values();
    QueryResultPtr result;
    if (!run(sql, result))
        return -1;
    return result.updateCount();
}

int DatabaseCommandExecutor::lookupSubscriber(const char* handle, const char* domain, SubscriberRecord& subscriber,
                                              bool retry) {
    if (!checkConnect())
        return -1;
    if (handle == nullptr || domain == nullptr) {
        error("invalid parameters passed to lookupSubscriber");
        return -2;
    }
    std::string sql = std::string("SELECT subscriber.sid, subscriber.auth_user_id, subscriber.s_type, "
                                  "subscriber.auth_type, subscriber.s_password, subscriber.active") +
                      " FROM public_address,contact_set,subscriber WHERE " +
                      " subscriber.sid = contact_set.sid AND contact_set.csid = public_address.csid " +
                      " AND public_address.handle = '" + EscapedString(handle).value() +
                      "' AND public_address.sip_domain = '" + EscapedString(domain).value() + "'";
    m_trace.prn("%s", sql.c_str());

    QueryResultPtr result;
    if (retry) {
        int counter = 0;
        for (; counter < subscriberAttempts; ++counter) {
            std::this_thread::sleep_for(subscriberAttemptPause);
            if (!run(sql, result))
                return -1;
            if (result.rows() > 0)
                break;
        }
        m_trace.prn("lookupSubscriber loop counter=%d", counter);
    } else if (!run(sql, result)) {
        return -1;
    }
    if (result.rows() == 0) {
        m_trace.prn("lookupSubscriber found 0 rows");
        return 0;
    }

    const char* active = result.getValue(0, 5);
    if (hasValue(active))
        subscriber.setActive(isTrue(active[0]) ? 't' : 'f');
    m_trace.prn("active = %s\n", hasValue(active) ? active : "not set");
    const char* sid = result.getValue(0, 0);
    if (hasValue(sid)) {
        subscriber.setId(std::atoi(sid));
        subscriber.setUserId(result.getValue(0, 1));
        subscriber.setType(result.getValue(0, 2));
        subscriber.setAuthType(result.getValue(0, 3));
    }
    // Passwords are kept enciphered in the database.
    const char* password = result.getValue(0, 4);
    if (hasValue(password))
        subscriber.setPassword(Crypt::decrypt(password));
    return 1;
}

int DatabaseCommandExecutor::changeSubscriberPassword(int sid, const char* password) {
    if (!checkConnect())
        return -1;
    if (sid == 0 || password == nullptr) {
        error("missing parameters");
        return -1;
    }
    std::string sql = std::string("UPDATE subscriber SET s_password='") + EscapedString(password).value() +
                      "' WHERE sid='" +
                      std::to_string(sid) + "';";
    int count = 0;
    if (!executeUpdate(sql, count))
        return -1;
    return count;
}

DatabaseResult DatabaseCommandExecutor::addContactSet(const ContactSetRecord& contactSet) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    ValueString list;
    list.add(columns::contactSetInsert, contactSet);
    return execute(std::string("INSERT INTO contact_set") + list.names() + " VALUES" + list.values());
}

int DatabaseCommandExecutor::createPublicAddress(int sid, const char* handle, const char* domain) {
    if (!checkConnect())
        return -1;
    ValueString list;
    list.add("sid", std::to_string(sid).c_str());
    list.addEscaped("handle", handle);
    list.addEscaped("sip_domain", domain);
    return callFunction(std::string("SELECT create_public_address") + list.values());
}

int DatabaseCommandExecutor::aliasPublicAddress(const char* handle, const char* domain, const char* alias) {
    if (!checkConnect())
        return -1;
    ValueString list;
    list.addEscaped("handle", handle);
    list.addEscaped("sip_domain", domain);
    list.addEscaped("alias", alias);
    return callFunction(std::string("SELECT create_public_address_alias") + list.values());
}

int DatabaseCommandExecutor::importPublicAddress(const char* sid, const char* handle, const char* domain,
                                                 const char* contact) {
    if (!checkConnect())
        return -1;
    ValueString list;
    list.addEscaped("sid", sid);
    list.addEscaped("handle", handle);
    list.addEscaped("sip_domain", domain);
    list.addEscaped("contact", contact);
    return callFunction(std::string("SELECT import_public_address") + list.values());
}

int DatabaseCommandExecutor::addPublicAddress(const PublicAddressRecord& address) {
    if (!checkConnect())
        return -1;
    if (address.handle().empty() || address.domain().empty() || address.csid() <= 0) {
        error("addPublicAddress: missing one or more parameters\n");
        return -1;
    }
    ValueString list;
    list.add(columns::publicAddressInsert, address);
    std::string sql = std::string("INSERT INTO public_address") + list.names() + " VALUES" + list.values();
    QueryResultPtr result;
    return run(sql, result) ? 0 : -1;
}

} // namespace velm
