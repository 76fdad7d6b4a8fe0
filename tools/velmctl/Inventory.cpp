// The queries behind subscriber list and remove, registrations and stats.
#include "Inventory.h"

#include "DatabaseCommandExecutor.h"
#include "EscapedString.h"
#include "LocationService.h"
#include "QueryResultPtr.h"
#include "Session.h"

#include <cstdlib>
#include <map>

namespace velmctl {

namespace {

const char* const NOW = "extract(epoch FROM now())::bigint";

long long number(const velm::QueryResultPtr& rows, int row, int column) {
    return std::atoll(rows.getValue(row, column));
}

bool flag(const velm::QueryResultPtr& rows, int row, int column) {
    return std::string(rows.getValue(row, column)) == "t";
}

std::string expiredOnly() {
    return std::string(" AND NOT c.permanent AND c.expires <= ") + NOW;
}

// The contact set's addresses, of which one is like the pattern.
std::string addressLike(const Page& page, const std::string& csid) {
    return "EXISTS (SELECT 1 FROM public_address a WHERE a.csid = " + csid + " AND " +
           page.matches("a.handle || '@' || a.sip_domain") + ")";
}

// Each count: its name and the expression that makes it.
struct Count {
    const char* name;
    const char* expression;
};

const Count COUNTS[] = {
    {"subscribers", "count(*) FROM subscriber"},
    {"public_addresses", "count(*) FROM public_address"},
    {"contacts", "count(*) FROM contact"},
    {"contacts_active", "count(*) FROM contact WHERE qvalue = '0.800000' AND (permanent OR expires > @NOW)"},
    {"contacts_inactive",
     "count(*) FROM contact WHERE qvalue IS DISTINCT FROM '0.800000' AND (permanent OR expires > @NOW)"},
    {"contacts_expired", "count(*) FROM contact WHERE NOT permanent AND expires <= @NOW"},
    {"contacts_permanent", "count(*) FROM contact WHERE permanent"},
    {"visitors", "count(*) FROM replica_extra"},
    {"visitors_expired", "count(*) FROM replica_extra WHERE expires <= @NOW"},
    {"prefixes", "count(*) FROM prefix_map"},
    {"address_maps", "count(*) FROM address_map"},
    {"bridges", "count(*) FROM extension WHERE ext_type = 'c'"},
    {"bridges_free", "count(*) FROM free_conference"},
    {"bridges_in_use", "count(*) FROM conf_state WHERE conf_status = 'IN USE'"},
    {"bridges_invalid", "count(*) FROM conf_state WHERE conf_status = 'INVALID'"},
};

} // namespace

Outcome Inventory::query(const std::string& sql, velm::QueryResultPtr& rows, const std::string& context) {
    return fromResult(m_service.m_exec->execute(sql, rows), context);
}

Outcome Inventory::command(const std::string& sql, const std::string& context) {
    return fromResult(m_service.m_exec->execute(sql), context);
}

Outcome Inventory::subscribers(const Page& page, std::vector<Row>& rows, long& read) {
    velm::QueryResultPtr found;
    Outcome outcome = query(
        "SELECT s.sid, s.auth_user_id, s.active, s.s_type, coalesce(s.s_password, '') <> '', "
        "(SELECT string_agg(a.handle || '@' || a.sip_domain, ' ' ORDER BY a.primary_handle DESC, a.handle, "
        "a.sip_domain) FROM contact_set cs JOIN public_address a USING (csid) WHERE cs.sid = s.sid), "
        "(SELECT count(*) FROM contact_set cs JOIN contact c USING (csid) WHERE cs.sid = s.sid) "
        "FROM subscriber s WHERE " + page.matches("s.auth_user_id") +
            " OR EXISTS (SELECT 1 FROM contact_set cs WHERE cs.sid = s.sid AND " + addressLike(page, "cs.csid") +
            ") ORDER BY s.auth_user_id NULLS LAST, s.sid" + page.sql(),
        found, "listing subscribers");
    if (!outcome.ok())
        return outcome;
    read = found.rows();
    for (int row = 0; row < page.shown(read); ++row)
        rows.push_back({Value::number(number(found, row, 0)), found.getValue(row, 1), Value::flag(flag(found, row, 2)),
                        found.getValue(row, 3), Value::flag(flag(found, row, 4)), found.getValue(row, 5),
                        Value::number(number(found, row, 6))});
    return outcome;
}

Outcome Inventory::removeSubscriber(const Aor& aor, Fields& removed) {
    const std::string context = "removing " + aor.text();
    velm::QueryResultPtr owner;
    Outcome outcome = query("SELECT cs.sid FROM public_address a JOIN contact_set cs USING (csid) WHERE a.handle = '" +
                                std::string(velm::EscapedString(aor.user).value()) + "' AND a.sip_domain = '" +
                                velm::EscapedString(aor.domain).value() + "'",
                            owner, context);
    if (!outcome.ok())
        return outcome;
    if (owner.rows() == 0)
        return Outcome::failure(NOT_FOUND, "no public address " + aor.text());
    std::string sid = owner.getValue(0, 0);
    if (sid.empty())
        return Outcome::failure(BAD_INPUT, aor.text() + " belongs to no subscriber (a routing contact set): not removed");

    const std::string ofSubscriber = " JOIN contact_set cs USING (csid) WHERE cs.sid = " + sid;
    velm::QueryResultPtr counted;
    outcome = command("BEGIN", context);
    if (outcome.ok())
        outcome = query("SELECT (SELECT auth_user_id FROM subscriber WHERE sid = " + sid +
                            " FOR UPDATE), (SELECT count(*) FROM public_address" + ofSubscriber +
                            "), (SELECT count(*) FROM contact" + ofSubscriber + ")",
                        counted, context);
    if (outcome.ok())
        outcome = command("DELETE FROM replica_extra WHERE id = " + sid + "; DELETE FROM subscriber WHERE sid = " + sid,
                          context);
    if (outcome.ok())
        outcome = command("COMMIT", context);
    if (!outcome.ok()) {
        m_service.m_exec->execute("ROLLBACK");
        return outcome;
    }
    removed = {{"sid", Value::number(std::atoll(sid.c_str()))},
               {"auth_user", counted.getValue(0, 0)},
               {"public_addresses", Value::number(number(counted, 0, 1))},
               {"contacts", Value::number(number(counted, 0, 2))}};
    return outcome;
}

Outcome Inventory::registrations(const Page& page, bool expired, std::vector<Registration>& registrations,
                                 long& read) {
    const std::string which = expired ? expiredOnly() : "";
    velm::QueryResultPtr sets;
    Outcome outcome = query(
        "SELECT csid, aor FROM (SELECT DISTINCT ON (p.csid) p.csid, p.handle || '@' || p.sip_domain AS aor "
        "FROM public_address p ORDER BY p.csid, p.primary_handle DESC, p.handle, p.sip_domain) first "
        "WHERE EXISTS (SELECT 1 FROM contact c WHERE c.csid = first.csid" + which + ") AND " +
            addressLike(page, "first.csid") + " ORDER BY aor, csid" + page.sql(),
        sets, "listing registrations");
    if (!outcome.ok())
        return outcome;
    read = sets.rows();
    if (read == 0)
        return outcome;
    std::string csids;
    std::map<long long, size_t> bySet;
    for (int row = 0; row < page.shown(read); ++row) {
        csids += std::string(row > 0 ? ", " : "") + sets.getValue(row, 0);
        bySet[number(sets, row, 0)] = registrations.size();
        registrations.push_back(Registration{sets.getValue(row, 1), {}});
    }
    velm::QueryResultPtr found;
    outcome = query("SELECT c.csid, c.contact_id, c.address, c.qvalue, c.expires, c.permanent, c.call_id, c.cseq, "
                    "c.contact_header FROM contact c WHERE c.csid IN (" + csids + ")" + which +
                        " ORDER BY c.contact_id",
                    found, "listing registrations");
    for (int row = 0; outcome.ok() && row < found.rows(); ++row) {
        velm::ContactRecord contact;
        contact.setCsid(static_cast<int>(number(found, row, 0)));
        contact.setContactid(static_cast<int>(number(found, row, 1)));
        contact.setAddress(found.getValue(row, 2));
        contact.setQvalue(found.getValue(row, 3));
        contact.setExpires(static_cast<long>(number(found, row, 4)));
        contact.setPermanent(flag(found, row, 5) ? 't' : 'f');
        contact.setCallId(found.getValue(row, 6));
        contact.setCseq(static_cast<long>(number(found, row, 7)));
        contact.setContactHeader(found.getValue(row, 8));
        registrations[bySet[contact.csid()]].contacts.push_back(contact);
    }
    return outcome;
}

Outcome Inventory::counts(Fields& counts) {
    std::string sql = "SELECT ";
    for (const Count& count : COUNTS) {
        std::string expression = count.expression;
        size_t now = expression.find("@NOW");
        if (now != std::string::npos)
            expression.replace(now, 4, NOW);
        sql += std::string(&count == COUNTS ? "" : ", ") + "(SELECT " + expression + ")";
    }
    velm::QueryResultPtr found;
    Outcome outcome = query(sql, found, "counting");
    for (size_t column = 0; outcome.ok() && column < sizeof COUNTS / sizeof COUNTS[0]; ++column)
        counts.emplace_back(COUNTS[column].name, Value::number(number(found, 0, static_cast<int>(column))));
    return outcome;
}

} // namespace velmctl
