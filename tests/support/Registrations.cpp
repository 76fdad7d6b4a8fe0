// The registration tests' helpers: provisioning an address, a REGISTER's contact and the stored qvalues.
#include "Registrations.h"

#include <cstdlib>
#include <ctime>

namespace velmtest {

int provisionAddress(TestDatabase& db, int sid, const std::string& handle, const std::string& domain) {
    db.admin().exec("INSERT INTO subscriber (sid, auth_user_id) VALUES (" + std::to_string(sid) + ", '" + handle +
                    "@" + domain + "') ON CONFLICT DO NOTHING");
    return std::atoi(db.admin()
                         .value("SELECT create_public_address(" + std::to_string(sid) + ", '" + handle + "', '" +
                                domain + "')")
                         .c_str());
}

velm::ContactRecord contact(const std::string& uri, const std::string& qvalue, long expiresIn) {
    velm::ContactRecord record;
    record.setAddress(uri);
    record.setContactHeader("<" + uri + ">");
    record.setQvalue(qvalue);
    record.setExpires(static_cast<long>(time(nullptr)) + expiresIn);
    record.setCallId("call-" + uri);
    record.setCseq(1);
    return record;
}

std::vector<std::string> addresses(const std::vector<velm::ContactRecord>& contacts) {
    std::vector<std::string> found;
    for (const auto& record : contacts)
        found.push_back(record.address());
    return found;
}

} // namespace velmtest
