// Writing subscribers, contact sets, public addresses and contacts for a test, outside the library.
#include "Provisioning.h"

#include "TestServer.h"

#include <cstdlib>

namespace velmtest {

namespace {

const char* boolean(bool value) {
    return value ? "true" : "false";
}

// A text literal, quotes doubled.
std::string text(const std::string& value) {
    std::string literal = "'";
    for (char c : value)
        literal += c == '\'' ? std::string("''") : std::string(1, c);
    return literal + "'";
}

} // namespace

void Provisioning::subscriber(int sid, bool active) {
    m_admin.exec("INSERT INTO subscriber (sid, auth_user_id, s_type, auth_type, active) VALUES (" +
                 std::to_string(sid) + ", 'user" + std::to_string(sid) + "', 'home', 'digest', " + boolean(active) +
                 ")");
}

void Provisioning::contactSet(int csid, int sid, const std::string& ordering, bool replaceUri) {
    m_admin.exec("INSERT INTO contact_set (csid, sid, ordering, replace_uri) VALUES (" + std::to_string(csid) +
                 ", " + std::to_string(sid) + ", " + text(ordering) + ", " + boolean(replaceUri) + ")");
}

void Provisioning::publicAddress(int id, const std::string& handle, const std::string& domain, int csid,
                                 bool primary) {
    m_admin.exec("INSERT INTO public_address (public_address_id, handle, sip_domain, csid, primary_handle) VALUES (" +
                 std::to_string(id) + ", " + text(handle) + ", " + text(domain) + ", " + std::to_string(csid) + ", " +
                 boolean(primary) + ")");
}

int Provisioning::contact(int csid, const std::string& address, const std::string& qvalue, long expires) {
    return std::atoi(m_admin
                         .value("INSERT INTO contact (csid, address, qvalue, expires, permanent, contact_header, "
                                "call_id, cseq, c_type) VALUES (" +
                                std::to_string(csid) + ", " + text(address) + ", " + text(qvalue) + ", " +
                                std::to_string(expires) + ", false, " + text("<" + address + ">") + ", " +
                                text("call-" + address) + ", 1, 'sip') RETURNING contact_id")
                         .c_str());
}

int Provisioning::permanentContact(int csid, const std::string& address) {
    return std::atoi(m_admin
                         .value("INSERT INTO contact (csid, address, qvalue, permanent) VALUES (" +
                                std::to_string(csid) + ", " + text(address) + ", '0.800000', true) RETURNING contact_id")
                         .c_str());
}

} // namespace velmtest
