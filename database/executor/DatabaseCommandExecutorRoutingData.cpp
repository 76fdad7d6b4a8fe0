// Reading the routing tables: the prefix map, the address map and the prefix map's change counter.
#include "DatabaseCommandExecutor.h"

#include "AddressMapRecord.h"
#include "ColumnText.h"
#include "Console.h"
#include "PrefixMapRecord.h"
#include "QueryResultPtr.h"

#include <cstdlib>

namespace velm {

DatabaseResult DatabaseCommandExecutor::getPrefixMaps(std::vector<PrefixMapRecord>& maps) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    const char* sql = "SELECT prefix, csid, total_length from prefix_map;";
    m_trace.prn("%s", sql);
    QueryResultPtr result;
    if (!fetch(sql, result, outcome))
        return outcome;
    int rows = result.rows();
    m_trace.prn("retrieved %d rows", rows);
    Console::print("getPrefixMaps retrieved %d rows\n", rows);
    for (int row = 0; row < rows; ++row) {
        PrefixMapRecord map;
        if (const char* prefix = column(result, row, 0))
            map.setPrefix(prefix);
        if (const char* csid = column(result, row, 1))
            map.setCsid(std::atoi(csid));
        if (const char* totalLength = column(result, row, 2))
            map.setTotalLength(std::atoi(totalLength));
        maps.push_back(map);
    }
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::getAddressMaps(std::vector<AddressMapRecord>& maps) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    m_trace.prn("looking up address_maps");
    QueryResultPtr result;
    if (!fetch("SELECT contact_set.ordering,  contact_set.replace_uri, address_map.handle, address_map.csid,  "
               "address_map.pattern, address_map.modification_time, address_map.priority  "
               "FROM contact_set, address_map  WHERE address_map.csid = contact_set.csid  "
               "ORDER BY address_map.priority ASC; ",
               result, outcome))
        return outcome;
    int rows = result.rows();
    if (rows == 0) {
        m_trace.prn("no address maps found");
        return outcome;
    }
    m_trace.prn("found %d address map records", rows);
    for (int row = 0; row < rows; ++row) {
        AddressMapRecord map;
        if (const char* ordering = column(result, row, 0))
            map.setOrdering(ordering);
        // A contact set that does not say replaces the request URI.
        const char* replaceUri = column(result, row, 1);
        map.setReplaceUri(replaceUri == nullptr || isTrue(replaceUri[0]));
        if (const char* handle = column(result, row, 2))
            map.setHandle(handle);
        if (const char* csid = column(result, row, 3))
            map.setCsid(std::atoi(csid));
        if (const char* pattern = column(result, row, 4))
            map.setPattern(pattern);
        if (const char* modified = column(result, row, 5))
            map.setModTime(convertTime(modified));
        if (const char* priority = column(result, row, 6))
            map.setPriority(std::atoi(priority));
        maps.push_back(map);
    }
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::checkPrefixMap(int* updateCounter) {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    m_trace.prn("Checking trigger_notify table");
    QueryResultPtr result;
    if (!fetch("SELECT update_ctr FROM trigger_notify WHERE table_name = 'prefix_map';", result, outcome,
               "execute query failed", "query error"))
        return outcome;
    int rows = result.rows();
    if (rows == 0) {
        m_trace.prn("query returned 0 rows");
        *updateCounter = 0;
        return outcome;
    }
    const char* counter = column(result, 0, 0);
    *updateCounter = counter != nullptr ? std::atoi(counter) : 0;
    m_trace.prn("checkPrefixMap: update_ctr: %d\n", *updateCounter);
    if (rows > 1)
        m_trace.prn("trigger_notify for prefix_map returned %d rows", rows);
    return outcome;
}

} // namespace velm
