// Filling a ContactRecord from one row of a contact query, column by name.
#ifndef VELM_CONTACTROW_H
#define VELM_CONTACTROW_H

namespace velm {

class ContactRecord;
class QueryResult;

// Fills `contact` from one row of a contact query, each column by its name
// (address, qvalue, expires, capabilities, contact_header, call_id, cseq,
// c_type, path_vector, contact_id, permanent, csid, handle, sip_domain).
// Empty columns (SQL NULL) and columns of no contact field leave the record
// as it was.
void readContactRow(const QueryResult& result, int row, ContactRecord& contact);

} // namespace velm

#endif
