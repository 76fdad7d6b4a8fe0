// How a failed step of a step-by-step registration form ends its transaction.
#ifndef VELM_TRANSACTIONCLOSING_H
#define VELM_TRANSACTIONCLOSING_H

namespace velm {
namespace registration {

// The closing statement, the log text when it fails once, and the alarm step
// and log text when it fails a second time (null texts are not logged). Each
// form keeps the closings of its failure points in one table.
struct Closing {
    const char* statement;
    const char* retryMessage;
    int step;
    const char* secondMessage;
};

} // namespace registration
} // namespace velm

#endif
