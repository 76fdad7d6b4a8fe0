// Inventory: what the database holds, as an operator asks for it: subscribers, registrations, counts.
#ifndef VELMCTL_INVENTORY_H
#define VELMCTL_INVENTORY_H

#include "ContactRecord.h"
#include "Input.h"
#include "Output.h"
#include "Paging.h"
#include "Status.h"

#include <string>
#include <vector>

namespace velm {
class LocationService;
class QueryResultPtr;
}

namespace velmctl {

// The contacts of one contact set, under its primary address (the first of
// its addresses when none is primary).
struct Registration {
    std::string aor;
    std::vector<velm::ContactRecord> contacts;
};

// Reads and removes through the service's connection with the schema's
// tables; the library has no listing operations of its own.
class Inventory {
public:
    explicit Inventory(velm::LocationService& service) : m_service(service) {}

    // Subscribers sorted by their user id: `read` tells how many the page's
    // query found (one more than it shows when another page follows).
    Outcome subscribers(const Page& page, std::vector<Row>& rows, long& read);
    // Removes the subscriber that owns `aor` with everything that is its:
    // contact sets, public addresses, contacts, identity, extensions, its
    // visitor record. One transaction; `removed` says how much went.
    Outcome removeSubscriber(const Aor& aor, Fields& removed);
    // Contact sets with contacts (only expired ones with `expired`), sorted
    // by address.
    Outcome registrations(const Page& page, bool expired, std::vector<Registration>& registrations, long& read);
    // How many rows of each kind the database holds.
    Outcome counts(Fields& counts);

private:
    Outcome query(const std::string& sql, velm::QueryResultPtr& rows, const std::string& context);
    Outcome command(const std::string& sql, const std::string& context);

    velm::LocationService& m_service;
};

} // namespace velmctl

#endif
