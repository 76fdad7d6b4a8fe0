// Page: --limit, --offset and --like of velmctl's listing commands.
#ifndef VELMCTL_PAGING_H
#define VELMCTL_PAGING_H

#include "Arguments.h"
#include "Output.h"
#include "Status.h"

#include <string>
#include <vector>

namespace velmctl {

// One page of a sorted listing: at most `limit` entries after skipping
// `offset`, optionally only those whose address is like `like` (SQL LIKE,
// case ignored: % any text, _ one character). A listing reads one entry more
// than it shows to learn whether another page follows.
struct Page {
    long limit = 100;
    long offset = 0;
    std::string like;

    static const std::vector<std::string> OPTIONS;

    Outcome read(const Arguments& arguments);
    // " LIMIT limit+1 OFFSET offset".
    std::string sql() const;
    // The condition that `expression` is like the pattern, or "true".
    std::string matches(const std::string& expression) const;
    // How many of the `read` entries the page shows.
    long shown(long read) const { return read > limit ? limit : read; }
    // "next_offset": where the next page starts, or none; after the listing.
    void report(long read, Output& output) const;
};

} // namespace velmctl

#endif
