// Notices on standard error.
#include "errors.h"

#include <cstdio>

namespace qtool {

void notice(bool quiet, const std::string &message) {
    if (!quiet) {
        std::fprintf(stderr, "qenaec: notice: %s\n", message.c_str());
    }
}

}  // namespace qtool
