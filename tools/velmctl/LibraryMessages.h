// operatorWords: the library's error texts as velmctl shows them to operators.
#ifndef VELMCTL_LIBRARYMESSAGES_H
#define VELMCTL_LIBRARYMESSAGES_H

#include <string>

namespace velmctl {

// The library's messages start with the name of the function that failed
// ("unregisteringContacts: no contacts"), which means nothing to an operator:
// known messages are reworded, and any other loses a leading function name.
// The library's own texts are left as they are.
std::string operatorWords(const std::string& message);

} // namespace velmctl

#endif
