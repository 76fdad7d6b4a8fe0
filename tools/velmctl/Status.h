// Status and Outcome: velmctl's exit statuses and a command's outcome.
#ifndef VELMCTL_STATUS_H
#define VELMCTL_STATUS_H

#include <string>

namespace velmctl {

// The exit status of velmctl.
enum Status { SUCCESS = 0, NOT_FOUND = 1, BAD_INPUT = 2, DATABASE_ERROR = 3 };

// A command's outcome: a status and, when it failed, a one-line message.
struct Outcome {
    Status status = SUCCESS;
    std::string message;

    static Outcome failure(Status status, const std::string& message) { return Outcome{status, message}; }
    bool ok() const { return status == SUCCESS; }
};

} // namespace velmctl

#endif
