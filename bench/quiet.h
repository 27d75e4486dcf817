// Keeps the library's set-up messages out of the benchmarks' figures.
#pragma once

#include <functional>

namespace bench {

// Points the library's message-level file at errors only, unless the caller chose a file,
// so that instance set-up does not print its banner into the figures.
void quiet_library_messages();

// Runs fn with standard output discarded: instance set-up announces the message level even
// at the quietest level, which would interleave with the figures.
void without_stdout(const std::function<void()> &fn);

}  // namespace bench
