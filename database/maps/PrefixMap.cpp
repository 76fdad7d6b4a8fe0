// The digit-prefix tree node's out-of-line constructor and destructor.
#include "PrefixMap.h"

namespace velm {

PrefixMap::PrefixMap() = default;

PrefixMap::~PrefixMap() = default;

} // namespace velm
