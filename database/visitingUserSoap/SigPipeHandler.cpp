// The SIGPIPE handler of the visiting-profile request.
#include "SigPipeHandler.h"

#include <cstdio>

extern "C" void sigPipeHandler(int) {
    // The misspelt text is what operators search their logs for.
    std::puts("SIGPIPE occured for soap request");
}
