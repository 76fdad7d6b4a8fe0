// The column tables of the executor's INSERT statements.
#include "Columns.h"

#include "ContactRecord.h"
#include "ContactSetRecord.h"
#include "EscapedString.h"
#include "PublicAddressRecord.h"
#include "SubscriberRecord.h"

namespace velm {
namespace columns {

bool isEscaped(Quoting quoting) {
    return quoting == Quoting::Escaped || quoting == Quoting::EscapedOrNull;
}

std::string literal(Quoting quoting, const std::string& value) {
    if (quoting == Quoting::Bare)
        return value;
    if (quoting == Quoting::Quoted)
        return "'" + value + "'";
    EscapedString escaped(value);
    if (quoting == Quoting::EscapedOrNull && *escaped.value() == '\0')
        return "NULL";
    return std::string("'") + escaped.value() + "'";
}

namespace {

// The set first; everything after it comes from the REGISTER.
const Column<ContactRecord> CONTACT[] = {
    {"csid", Quoting::Quoted, [](const ContactRecord& c) { return std::to_string(c.csid()); }},
    {"address", Quoting::Escaped, [](const ContactRecord& c) { return c.address(); }},
    {"expires", Quoting::Bare, [](const ContactRecord& c) { return std::to_string(c.expires()); }},
    {"permanent", Quoting::EscapedOrNull, [](const ContactRecord& c) { return c.permanent(); }},
    {"qvalue", Quoting::EscapedOrNull, [](const ContactRecord& c) { return c.qvalue(); }},
    {"capabilities", Quoting::EscapedOrNull, [](const ContactRecord& c) { return c.capabilities(); }},
    {"contact_header", Quoting::Escaped, [](const ContactRecord& c) { return c.contactHeader(); }},
    {"call_id", Quoting::Escaped, [](const ContactRecord& c) { return c.callId(); }},
    {"cseq", Quoting::Bare, [](const ContactRecord& c) { return std::to_string(c.cseq()); }},
};

const Column<SubscriberRecord> SUBSCRIBER[] = {
    {"sid", Quoting::Quoted, [](const SubscriberRecord& s) { return std::to_string(s.sid()); }},
    {"auth_user_id", Quoting::EscapedOrNull, [](const SubscriberRecord& s) { return s.userId(); }},
    {"s_type", Quoting::EscapedOrNull, [](const SubscriberRecord& s) { return s.type(); }},
    {"auth_type", Quoting::EscapedOrNull, [](const SubscriberRecord& s) { return s.authType(); }},
    {"s_password", Quoting::EscapedOrNull, [](const SubscriberRecord& s) { return s.password(); }},
    {"active", Quoting::EscapedOrNull, [](const SubscriberRecord& s) { return s.active(); }},
};

const Column<ContactSetRecord> CONTACT_SET[] = {
    {"sid", Quoting::Quoted, [](const ContactSetRecord& s) { return std::to_string(s.sid()); }},
    {"csid", Quoting::Quoted, [](const ContactSetRecord& s) { return std::to_string(s.csid()); }},
    {"ordering", Quoting::EscapedOrNull, [](const ContactSetRecord& s) { return s.ordering(); }},
};

const Column<PublicAddressRecord> PUBLIC_ADDRESS[] = {
    {"handle", Quoting::EscapedOrNull, [](const PublicAddressRecord& a) { return a.handle(); }},
    {"sip_domain", Quoting::EscapedOrNull, [](const PublicAddressRecord& a) { return a.domain(); }},
    {"csid", Quoting::Quoted, [](const PublicAddressRecord& a) { return std::to_string(a.csid()); }},
};

const Column<VisitingUser> VISITING_USER[] = {
    {"packet_type", Quoting::Quoted, [](const VisitingUser&) { return std::string("subscriber"); }},
    {"id", Quoting::Quoted, [](const VisitingUser& v) { return std::to_string(v.sid); }},
    {"expires", Quoting::Quoted, [](const VisitingUser& v) { return std::to_string(v.expires); }},
};

} // namespace

const Columns<ContactRecord> contactInsert = all(CONTACT);
const Columns<ContactRecord> contactValues = all(CONTACT, 1);
const Columns<SubscriberRecord> subscriberInsert = all(SUBSCRIBER);
const Columns<ContactSetRecord> contactSetInsert = all(CONTACT_SET);
const Columns<PublicAddressRecord> publicAddressInsert = all(PUBLIC_ADDRESS);
const Columns<VisitingUser> visitingUserInsert = all(VISITING_USER);

} // namespace columns
} // namespace velm
