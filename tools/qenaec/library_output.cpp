// The message-level file and the redirection of file descriptor 1 around the library.
#include "library_output.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace qtool {

namespace {

// What the library prints at Init to announce the error level itself.
constexpr const char *kLevelAnnouncement = "[ALGO_MSG_ERR] ALGO_MSG_ERR\t\n";

std::string write_level_file() {
    const char *dir = std::getenv("TMPDIR");
    std::string path =
        std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/qenaec-level-XXXXXX";
    const int fd = mkstemp(path.data());
    if (fd < 0) {
        return {};
    }
    const char text[] = "{\"debug_level\": 1}\n";
    const bool ok = write(fd, text, sizeof text - 1) == static_cast<ssize_t>(sizeof text - 1);
    close(fd);
    if (!ok) {
        unlink(path.c_str());
        return {};
    }
    return path;
}

}  // namespace

LibraryOutput::LibraryOutput() {
    if (std::getenv("DML_PATH") == nullptr) {
        level_file_ = write_level_file();
        if (!level_file_.empty()) {
            setenv("DML_PATH", level_file_.c_str(), 1);
        }
    }
    std::fflush(stdout);
    capture_ = std::tmpfile();
    saved_stdout_ = capture_ != nullptr ? dup(STDOUT_FILENO) : -1;
    if (saved_stdout_ >= 0) {
        dup2(fileno(capture_), STDOUT_FILENO);
    }
}

LibraryOutput::~LibraryOutput() {
    std::fflush(stdout);
    if (saved_stdout_ >= 0) {
        dup2(saved_stdout_, STDOUT_FILENO);
        close(saved_stdout_);
        forward_captured();
    }
    if (capture_ != nullptr) {
        std::fclose(capture_);
    }
    if (!level_file_.empty()) {
        unlink(level_file_.c_str());
        unsetenv("DML_PATH");
    }
}

void LibraryOutput::forward_captured() {
    std::rewind(capture_);
    char line[1024];
    while (std::fgets(line, sizeof line, capture_) != nullptr) {
        if (!level_file_.empty() && std::strcmp(line, kLevelAnnouncement) == 0) {
            continue;
        }
        std::fputs(line, stderr);
    }
}

}  // namespace qtool
