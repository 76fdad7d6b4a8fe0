// The table of contact columns and the record field each one fills.
#include "ContactRow.h"

#include "ColumnText.h"
#include "ContactRecord.h"
#include "QueryResult.h"

#include <cstdlib>
#include <cstring>

namespace velm {

namespace {

struct ContactColumn {
    const char* name;
    void (*set)(ContactRecord& contact, const char* value);
};

const ContactColumn contactColumns[] = {
    {"address", [](ContactRecord& c, const char* v) { c.setAddress(v); }},
    {"qvalue", [](ContactRecord& c, const char* v) { c.setQvalue(v); }},
    {"expires", [](ContactRecord& c, const char* v) { c.setExpires(std::atol(v)); }},
    {"capabilities", [](ContactRecord& c, const char* v) { c.setCapabilities(v); }},
    {"contact_header", [](ContactRecord& c, const char* v) { c.setContactHeader(v); }},
    {"call_id", [](ContactRecord& c, const char* v) { c.setCallId(v); }},
    {"cseq", [](ContactRecord& c, const char* v) { c.setCseq(std::atol(v)); }},
    {"c_type", [](ContactRecord& c, const char* v) { c.setType(v); }},
    {"path_vector", [](ContactRecord& c, const char* v) { c.setPathVector(v); }},
    {"contact_id", [](ContactRecord& c, const char* v) { c.setContactid(std::atoi(v)); }},
    {"permanent", [](ContactRecord& c, const char* v) { c.setPermanent(v[0]); }},
    {"csid", [](ContactRecord& c, const char* v) { c.setCsid(std::atoi(v)); }},
    {"handle", [](ContactRecord& c, const char* v) { c.setUser(v); }},
    {"sip_domain", [](ContactRecord& c, const char* v) { c.setDomain(v); }},
};

} // namespace

void readContactRow(const QueryResult& result, int row, ContactRecord& contact) {
    for (int column = 0; column < result.columns(); ++column) {
        const char* value = result.getValue(row, column);
        const char* name = result.getColumnName(column);
        if (!hasValue(value) || name == nullptr)
            continue;
        for (const ContactColumn& known : contactColumns) {
            if (std::strcmp(name, known.name) == 0) {
                known.set(contact, value);
                break;
            }
        }
    }
}

} // namespace velm
