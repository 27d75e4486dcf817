// The message-level file and the redirection of standard output.
#include "quiet.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace bench {

void quiet_library_messages() {
    if (getenv("DML_PATH") != nullptr) {
        return;
    }
    const char *path = "/tmp/qenaec-bench-messages.json";
    if (FILE *f = fopen(path, "w")) {
        fputs("{\"debug_level\": 1}\n", f);
        fclose(f);
        setenv("DML_PATH", path, 1);
    }
}

void without_stdout(const std::function<void()> &fn) {
    fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    fn();
    fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(null);
    close(saved);
}

}  // namespace bench
