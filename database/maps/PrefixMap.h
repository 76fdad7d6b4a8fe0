// PrefixMap: one node of the digit-prefix tree.
#ifndef VELM_PREFIXMAP_H
#define VELM_PREFIXMAP_H

#include <vector>

namespace velm {

// One node of the process-wide digit-prefix tree of LocationService: the
// digit it stands for, the contact set of the prefix that ends here (0 on
// the way to longer prefixes) and the total number length that prefix
// requires (0: any). Children keep the order in which they were added.
//
// A node does not own its children through its destructor: the tree is
// freed as a whole by LocationService::deleteNodes, under the tree's lock.
class PrefixMap {
public:
    PrefixMap();
    ~PrefixMap();
    PrefixMap(const PrefixMap&) = delete;
    PrefixMap& operator=(const PrefixMap&) = delete;

    char m_digit = 0;
    int m_csid = 0;
    int m_total_length = 0;
    std::vector<PrefixMap*> m_subNodes;
};

} // namespace velm

#endif
