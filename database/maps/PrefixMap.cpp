#include "PrefixMap.h"

namespace velm {

PrefixMap::PrefixMap() = default;

PrefixMap::~PrefixMap() = default;

} // namespace velm
