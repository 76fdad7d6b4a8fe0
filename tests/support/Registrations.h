// Helpers that the registration tests share.
#ifndef VELM_TEST_REGISTRATIONS_H
#define VELM_TEST_REGISTRATIONS_H

#include "ContactRecord.h"
#include "TestServer.h"

#include <string>
#include <vector>

namespace velmtest {

// Provisions subscriber `sid` with the public address handle@domain, outside
// the library; returns the address's public_address_id.
int provisionAddress(TestDatabase& db, int sid, const std::string& handle, const std::string& domain);

// A contact as a REGISTER carries it: the URI, its Contact header
// "<uri>", an expiry `expiresIn` seconds from now, a call id and a CSeq.
velm::ContactRecord contact(const std::string& uri, const std::string& qvalue = "", long expiresIn = 3600);

// The addresses of `contacts`, in order.
std::vector<std::string> addresses(const std::vector<velm::ContactRecord>& contacts);

} // namespace velmtest

#endif
