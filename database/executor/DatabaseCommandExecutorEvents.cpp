// Clearing old event notifications and reading SIP event aggregators.
#include "DatabaseCommandExecutor.h"

#include "QueryResultPtr.h"
#include "SipEventAggregator.h"

#include <cstdlib>

namespace velm {

namespace {

const char* const AGGREGATOR_SELECT =
    "SELECT id, sea.sid, node_id, a_type, name, from_name, to_name, event, doc_type, presentity_per_batch, "
    "throttling_interval,cs.csid,address from sip_event_aggregator sea,contact_set cs, contact c where ";

} // namespace

DatabaseResult DatabaseCommandExecutor::delOldEventNotify() {
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    m_trace.prn("Deleting old event_notify rows");
    QueryResultPtr result;
    fetch("DELETE FROM event_notify WHERE EXTRACT(EPOCH FROM now() - evt_timestamp) > 60.00;", result, outcome,
          "execute delete failed", "delete error");
    return outcome;
}

void DatabaseCommandExecutor::readAggregator(const QueryResultPtr& result, int row, SipEventAggregator& aggregator) {
    if (const char* id = column(result, row, 0))
        aggregator.setId(std::atoi(id));
    if (const char* sid = column(result, row, 1))
        aggregator.setSid(std::atoi(sid));
    if (const char* nodeId = column(result, row, 2))
        aggregator.setNodeId(std::atoi(nodeId));
    if (const char* type = column(result, row, 3))
        aggregator.setaType(type);
    if (const char* name = column(result, row, 4))
        aggregator.setName(name);
    if (const char* fromName = column(result, row, 5))
        aggregator.setFromName(fromName);
    if (const char* toName = column(result, row, 6))
        aggregator.setToName(toName);
    if (const char* event = column(result, row, 7))
        aggregator.setEvent(event);
    if (const char* docType = column(result, row, 8))
        aggregator.setDocType(docType);
    if (const char* perBatch = column(result, row, 9))
        aggregator.setPresentityPerBatch(std::atoi(perBatch));
    if (const char* interval = column(result, row, 10))
        aggregator.setThrottlingInterval(std::atoi(interval));
    if (const char* csid = column(result, row, 11))
        aggregator.setCsid(std::atoi(csid));
    if (const char* address = column(result, row, 12))
        aggregator.setAddress(address);
}

DatabaseResult DatabaseCommandExecutor::getSipEventAggregator(const std::string& id, SipEventAggregator& aggregator) {
    m_trace.prn("getSipEventAggregator");
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    // Blanks around the number are harmless ("5 " is how callers make the
    // statement work); anything else could extend the statement.
    size_t first = id.find_first_not_of(' ');
    size_t last = id.find_last_not_of(' ');
    if (first == std::string::npos || id.find_first_not_of("0123456789", first) <= last) {
        error("invalid aggregator id");
        return failure(DatabaseResult::BADPARAM);
    }
    std::string sql = std::string(AGGREGATOR_SELECT) + "sea.id=" + id + "and sea.sid=cs.sid and cs.csid=c.csid;";
    m_trace.prn("%s", sql.c_str());
    QueryResultPtr result;
    if (!fetch(sql, result, outcome, "execute query failed", "query error"))
        return outcome;
    if (result.rows() == 0) {
        m_trace.prn("query returned 0 rows");
        return outcome;
    }
    // One row per contact of the aggregator's contact set: the first wins.
    readAggregator(result, 0, aggregator);
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::getSipEventAggregators(std::vector<SipEventAggregator>& aggregators) {
    m_trace.prn("getSipEventAggregators");
    DatabaseResult outcome;
    if (!connected(outcome))
        return outcome;
    std::string sql = std::string(AGGREGATOR_SELECT) + "sea.sid=cs.sid and cs.csid=c.csid;";
    m_trace.prn("%s", sql.c_str());
    QueryResultPtr result;
    if (!fetch(sql, result, outcome, "execute query failed", "query error"))
        return outcome;
    int rows = result.rows();
    if (rows == 0)
        m_trace.prn("query returned 0 rows");
    // An aggregator comes once per contact of its contact set.
    for (int row = 0; row < rows; ++row) {
        SipEventAggregator aggregator;
        readAggregator(result, row, aggregator);
        aggregators.push_back(aggregator);
    }
    return outcome;
}

} // namespace velm
