// Reading the process-wide digit-prefix tree from a test.
#ifndef VELM_TEST_PREFIXMAPS_H
#define VELM_TEST_PREFIXMAPS_H

#include "LocationService.h"

namespace velmtest {

// The csid the walk of the tree leaves for `user`, starting from `start`;
// taken under the tree's lock, as the lookups take it.
int prefixCsid(velm::LocationService& service, const char* user, int start = 0);

} // namespace velmtest

#endif
