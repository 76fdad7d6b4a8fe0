// The qvalue levels and the contact statement texts that registration builds.
#include "RegistrationText.h"

#include "ContactRecord.h"
#include "EscapedString.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace velm {
namespace registration {

const char* const ACTIVE = "0.800000";
const char* const INACTIVE = "0.000000";

namespace {

bool isLevel(const std::string& qvalue, double level) {
    double value = 0;
    return parseQvalue(qvalue, value) && std::fabs(value - level) < 1e-6;
}

std::string number(long value) {
    char text[32];
    std::snprintf(text, sizeof text, "%ld", value);
    return text;
}

} // namespace

std::string levelText(double level) {
    char text[32];
    std::snprintf(text, sizeof text, "%f", level);
    return text;
}

bool isActive(const std::string& qvalue) {
    return isLevel(qvalue, 0.8);
}

bool isInactive(const std::string& qvalue) {
    return isLevel(qvalue, 0.0);
}

bool parseQvalue(const std::string& text, double& value) {
    size_t end = text.find_last_not_of(' ');
    if (end == std::string::npos)
        return false;
    const std::string number = text.substr(0, end + 1);
    size_t integral = number.find_first_not_of("0123456789");
    if (integral == 0)
        return false;
    if (integral != std::string::npos &&
        (number[integral] != '.' || number.find_first_not_of("0123456789", integral + 1) != std::string::npos))
        return false;
    double parsed = std::strtod(number.c_str(), nullptr);
    if (parsed > 1.0)
        return false;
    value = parsed;
    return true;
}

bool validQvalues(const std::vector<ContactRecord>& contacts, DatabaseResult& result) {
    double value = 0;
    for (const ContactRecord& contact : contacts)
        if (!contact.qvalue().empty() && !parseQvalue(contact.qvalue(), value)) {
            result.setBadParameter();
            result.setErrorMessage("invalid qvalue '" + contact.qvalue() + "'");
            return false;
        }
    return true;
}

std::string csidSelect(int key) {
    return "(SELECT csid FROM public_address where public_address_id = " + std::to_string(key) + ")";
}

std::string insertContact(const ContactRecord& contact, const std::string& csid, InsertForm form) {
    EscapedString address(contact.address());
    EscapedString header(contact.contactHeader());
    EscapedString callId(contact.callId());
    EscapedString path(contact.pathVector());
    EscapedString qvalue(contact.qvalue());
    EscapedString permanent(contact.permanent());
    EscapedString capabilities(contact.capabilities());
    std::string sql = form == InsertForm::AutoCommit
                          ? "INSERT INTO contact(address,csid,qvalue,expires,permanent,capabilities,contact_header,"
                            "call_id,cseq,path_vector)  VALUES('"
                          : "INSERT INTO contact(address,csid,qvalue,expires,permanent,capabilities,contact_header,"
                            "call_id,cseq, path_vector)  VALUES('";
    sql += address.value();
    sql += form == InsertForm::Script ? "'," : "', ";
    sql += csid + ", '" + qvalue.value() + "'," + number(contact.expires()) + ",'" + permanent.value() + "','" +
           capabilities.value() + "','" + header.value() + "','" + callId.value() + "','" + number(contact.cseq()) +
           "','" + path.value();
    sql += form == InsertForm::AutoCommit ? "')" : "'); ";
    return sql;
}

std::string updateContact(const ContactRecord& contact, const std::string& selector) {
    EscapedString header(contact.contactHeader());
    EscapedString callId(contact.callId());
    EscapedString path(contact.pathVector());
    EscapedString qvalue(contact.qvalue());
    EscapedString capabilities(contact.capabilities());
    return std::string("UPDATE contact SET contact_header = '") + header.value() +
           "', expires = " + number(contact.expires()) + ", call_id = '" + callId.value() + "', cseq = '" +
           number(contact.cseq()) + "', qvalue = '" + qvalue.value() + "', capabilities = '" + capabilities.value() +
           "', path_vector = '" + path.value() + "'" + selector;
}

std::string byCsidAndAddress(const ContactRecord& contact, const std::string& csid, bool blankAfterEquals) {
    EscapedString address(contact.address());
    return std::string(blankAfterEquals ? " WHERE csid = " : " WHERE csid =") + csid + " AND address = '" +
           address.value() + "' ;";
}

bool isWildcard(const ContactRecord& contact) {
    return contact.address() == "*";
}

std::string deleteContact(const ContactRecord& contact, int key, bool terminate) {
    std::string sql;
    if (!isWildcard(contact)) {
        EscapedString address(contact.address());
        sql = std::string("DELETE FROM contact WHERE address = '") + address.value() + "' AND csid = " + csidSelect(key);
    } else if (!contact.contactHeader().empty()) {
        EscapedString header(contact.contactHeader());
        sql = std::string("DELETE FROM contact WHERE contact_header = '") + header.value() +
              "' AND csid = " + csidSelect(key);
    } else {
        return sql;
    }
    if (terminate)
        sql += "; ";
    return sql;
}

std::string lockSet(const std::string& csid) {
    return "SELECT csid FROM contact_set WHERE csid = " + csid + " FOR UPDATE;";
}

void Remaining::count(const ContactRecord& contact, int index) {
    if (isActive(contact.qvalue())) {
        m_otherActive = true;
    } else if (isInactive(contact.qvalue())) {
        if (m_inactive++ == 0)
            m_firstInactive = index;
    }
}

} // namespace registration
} // namespace velm
