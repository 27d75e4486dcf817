// How a command ends early: a one-line message and the process exit status. main() prints
// the message as "qenaec: error: <message>" on standard error and exits with the status.
#pragma once

#include <stdexcept>
#include <string>

namespace qtool {

enum ExitStatus {
    kExitOk = 0,
    kExitFailure = 1,        // unreadable input, unwritable output, values the library refuses
    kExitUsage = 2,          // a command line that cannot be parsed
    kExitReplayDiffers = 3,  // replay ran, and its result differs from the recorded output
};

struct ToolError : std::runtime_error {
    int status;
    ToolError(int exit_status, const std::string &message)
        : std::runtime_error(message), status(exit_status) {}
};

inline ToolError failure(const std::string &message) {
    return ToolError(kExitFailure, message);
}

inline ToolError usage_error(const std::string &message) {
    return ToolError(kExitUsage, message);
}

// Informational lines on standard error ("qenaec: notice: ..."); silenced by --quiet.
void notice(bool quiet, const std::string &message);

}  // namespace qtool
