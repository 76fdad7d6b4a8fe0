// LibpqLocation: which database locations go to libpq as they are written.
#ifndef VELM_LIBPQLOCATION_H
#define VELM_LIBPQLOCATION_H

#include <string>

namespace velm {

// True for a location that the host/port/dbname string built from osk::URL
// cannot carry whole, so libpq must read it itself: a keyword/value string
// ("host=h1,h2 port=5432,5433 dbname=velm target_session_attrs=read-write")
// or a postgresql:// (postgres://) URI naming several hosts or carrying
// parameters after '?'. Plain names and single-host URLs are not.
bool libpqReadsLocation(const std::string& location);

} // namespace velm

#endif
