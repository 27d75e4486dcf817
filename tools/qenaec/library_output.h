// Keeps the library's own messages off the tool's standard output, which carries only the
// tool's summary. While an instance lives, the library's printf output is collected in a
// temporary file; afterwards its lines are copied to standard error. Unless the user set
// DML_PATH, the library's message level is 1 (errors only), from a generated level file,
// and the line in which the library announces that level is dropped.
#pragma once

#include <cstdio>
#include <string>

namespace qtool {

class LibraryOutput {
public:
    LibraryOutput();
    ~LibraryOutput();
    LibraryOutput(const LibraryOutput &) = delete;
    LibraryOutput &operator=(const LibraryOutput &) = delete;

private:
    void forward_captured();

    std::string level_file_;  // generated level file, removed on exit; empty if DML_PATH set
    std::FILE *capture_ = nullptr;
    int saved_stdout_ = -1;
};

}  // namespace qtool
