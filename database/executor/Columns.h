// The column tables of the statements that write rows, and how each value is quoted.
#ifndef VELM_COLUMNS_H
#define VELM_COLUMNS_H

#include <cstddef>
#include <ctime>
#include <string>

namespace velm {

class ContactRecord;
class ContactSetRecord;
class PublicAddressRecord;
class SubscriberRecord;

namespace columns {

// How a value goes into a statement. The escaped kinds are the ones that
// carry text from outside.
enum class Quoting {
    Bare,           // as it is: a number or a sub-select
    Quoted,         // in quotes as it is: text the library makes itself
    Escaped,        // escaped in quotes; an empty text stays ''
    EscapedOrNull,  // escaped in quotes; an empty text is NULL
};

bool isEscaped(Quoting quoting);
// The value as it is written into the statement.
std::string literal(Quoting quoting, const std::string& value);

template <class Row>
struct Column {
    const char* name;
    Quoting quoting;
    std::string (*value)(const Row& row);
};

// The columns of one statement, in statement order.
template <class Row>
struct Columns {
    const Column<Row>* first;
    size_t count;
    const Column<Row>* begin() const { return first; }
    const Column<Row>* end() const { return first + count; }
};

// The columns of `table` from its column `from` on.
template <class Row, size_t N>
constexpr Columns<Row> all(const Column<Row> (&table)[N], size_t from = 0) {
    return {table + from, N - from};
}

// INSERT INTO contact: the set, then the contact's own columns.
extern const Columns<ContactRecord> contactInsert;
// The contact's own columns alone, as add_contact() takes them after the
// public address that names the set.
extern const Columns<ContactRecord> contactValues;
extern const Columns<SubscriberRecord> subscriberInsert;
extern const Columns<ContactSetRecord> contactSetInsert;
extern const Columns<PublicAddressRecord> publicAddressInsert;

// A visiting user's row of replica_extra.
struct VisitingUser {
    int sid;
    time_t expires;
};
extern const Columns<VisitingUser> visitingUserInsert;

} // namespace columns
} // namespace velm

#endif
