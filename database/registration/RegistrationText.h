// The statement texts and qvalue levels that contact registration shares.
#ifndef VELM_REGISTRATIONTEXT_H
#define VELM_REGISTRATIONTEXT_H

#include "Columns.h"
#include "DatabaseResult.h"

#include <string>
#include <vector>

namespace velm {

class ContactRecord;

// Statement texts and qvalue levels of contact registration. A contact set
// has at most one active contact (qvalue 0.8); all others are inactive (0.0).
namespace registration {

extern const char* const ACTIVE;
extern const char* const INACTIVE;

// The qvalue text of a level, as "%f" writes it.
std::string levelText(double level);
bool isActive(const std::string& qvalue);
bool isInactive(const std::string& qvalue);
// False unless `text` is a decimal number from 0 to 1 (digits, an optional
// fraction, trailing blanks allowed): no sign, exponent, hex, nan or inf.
bool parseQvalue(const std::string& text, double& value);
// The qvalue check of every registration form: a bad parameter in `result`,
// and false, for the first contact whose qvalue is given but not valid.
bool validQvalues(const std::vector<ContactRecord>& contacts, DatabaseResult& result);

// The contact set of public address `key`, as a sub-select.
std::string csidSelect(int key);

// A contact as it is inserted, with its set: a number or a sub-select.
struct Registering {
    const ContactRecord& contact;
    const std::string& csid;
};
// The columns of the contact INSERT and UPDATE below, in statement order.
extern const columns::Columns<Registering> insertedColumns;
extern const columns::Columns<ContactRecord> updatedColumns;

// The three spellings of the INSERT of a contact: inside a transaction
// script, as a step of its own, and under auto-commit.
enum class InsertForm { Script, Step, AutoCommit };
std::string insertContact(const ContactRecord& contact, const std::string& csid, InsertForm form);
// The UPDATE of a contact's registration data, followed by `selector`.
std::string updateContact(const ContactRecord& contact, const std::string& selector);
// " WHERE csid = <set of key> AND address = '<address>' ;"
std::string byCsidAndAddress(const ContactRecord& contact, const std::string& csid, bool blankAfterEquals);
// The DELETE of an unregistering contact: by address, or by Contact header
// for the wildcard; empty for a wildcard without header.
std::string deleteContact(const ContactRecord& contact, int key, bool terminate);
bool isWildcard(const ContactRecord& contact);
// Locks the contact set's own row. The FOR UPDATE lookup of the contacts
// locks only the rows that exist when it starts; a registration waiting on
// this lock instead reads the set afresh, with the contacts that the one
// before it inserted, and so keeps the set at one active contact.
std::string lockSet(const std::string& csid);

// The contacts a removal leaves in a set: promote the one inactive contact
// when no active one remains and it is the only inactive one.
class Remaining {
public:
    void count(const ContactRecord& contact, int index);
    bool promote() const { return !m_otherActive && m_inactive == 1; }
    int firstInactive() const { return m_firstInactive; }

private:
    bool m_otherActive = false;
    int m_inactive = 0;
    int m_firstInactive = -1;
};

} // namespace registration
} // namespace velm

#endif
