// lowerCase: user parts and domains in the case they are stored in.
#ifndef VELM_LOWERCASE_H
#define VELM_LOWERCASE_H

#include <string>

namespace velm {

// `text` with its ASCII letters in lower case: user parts and domains are
// stored that way. A null text gives the empty text.
std::string lowerCase(const char* text);

} // namespace velm

#endif
