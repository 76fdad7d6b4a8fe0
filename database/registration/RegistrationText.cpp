// The qvalue levels and the contact statement texts that registration builds.
#include "RegistrationText.h"

#include "ContactRecord.h"
#include "EscapedString.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velm {
namespace registration {

const char* const ACTIVE = "0.800000";
const char* const INACTIVE = "0.000000";

namespace {

bool isLevel(const std::string& qvalue, double level) {
    double value = 0;
    return parseQvalue(qvalue, value) && std::fabs(value - level) < 1e-6;
}

using columns::Column;
using columns::Quoting;

const Column<Registering> INSERTED[] = {
    {"address", Quoting::Escaped, [](const Registering& r) { return r.contact.address(); }},
    {"csid", Quoting::Bare, [](const Registering& r) { return r.csid; }},
    {"qvalue", Quoting::Escaped, [](const Registering& r) { return r.contact.qvalue(); }},
    {"expires", Quoting::Bare, [](const Registering& r) { return std::to_string(r.contact.expires()); }},
    {"permanent", Quoting::Escaped, [](const Registering& r) { return r.contact.permanent(); }},
    {"capabilities", Quoting::Escaped, [](const Registering& r) { return r.contact.capabilities(); }},
    {"contact_header", Quoting::Escaped, [](const Registering& r) { return r.contact.contactHeader(); }},
    {"call_id", Quoting::Escaped, [](const Registering& r) { return r.contact.callId(); }},
    {"cseq", Quoting::Quoted, [](const Registering& r) { return std::to_string(r.contact.cseq()); }},
    {"path_vector", Quoting::Escaped, [](const Registering& r) { return r.contact.pathVector(); }},
};

const Column<ContactRecord> UPDATED[] = {
    {"contact_header", Quoting::Escaped, [](const ContactRecord& c) { return c.contactHeader(); }},
    {"expires", Quoting::Bare, [](const ContactRecord& c) { return std::to_string(c.expires()); }},
    {"call_id", Quoting::Escaped, [](const ContactRecord& c) { return c.callId(); }},
    {"cseq", Quoting::Quoted, [](const ContactRecord& c) { return std::to_string(c.cseq()); }},
    {"qvalue", Quoting::Escaped, [](const ContactRecord& c) { return c.qvalue(); }},
    {"capabilities", Quoting::Escaped, [](const ContactRecord& c) { return c.capabilities(); }},
    {"path_vector", Quoting::Escaped, [](const ContactRecord& c) { return c.pathVector(); }},
};

bool named(const char* name, const char* column) {
    return std::strcmp(name, column) == 0;
}

} // namespace

const columns::Columns<Registering> insertedColumns = columns::all(INSERTED);
const columns::Columns<ContactRecord> updatedColumns = columns::all(UPDATED);

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
    const Registering row{contact, csid};
    std::string names;
    std::string values;
    // The forms have always been sent with these blanks; the server logs and
    // the statement tests know them so.
    for (const Column<Registering>& column : insertedColumns) {
        if (!names.empty()) {
            names += named(column.name, "path_vector") && form != InsertForm::AutoCommit ? ", " : ",";
            values += named(column.name, "qvalue") || (named(column.name, "csid") && form != InsertForm::Script)
                          ? ", "
                          : ",";
        }
        names += column.name;
        values += columns::literal(column.quoting, column.value(row));
    }
    return "INSERT INTO contact(" + names + ")  VALUES(" + values + (form == InsertForm::AutoCommit ? ")" : "); ");
}

std::string updateContact(const ContactRecord& contact, const std::string& selector) {
    std::string sql = "UPDATE contact SET ";
    for (const Column<ContactRecord>& column : updatedColumns) {
        if (&column != updatedColumns.begin())
            sql += ", ";
        sql += std::string(column.name) + " = " + columns::literal(column.quoting, column.value(contact));
    }
    return sql + selector;
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
