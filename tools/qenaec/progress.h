// A progress bar on standard error, drawn only when standard error is a terminal: for a
// recording, once it is long enough for the wait to be noticed; for counted work, always.
#pragma once

#include <cstddef>
#include <string>

namespace qtool {

class ProgressBar {
public:
    // `seconds` is the input's duration; `total` the frames to process.
    ProgressBar(bool allowed, double seconds, size_t total);
    // `total` items of `unit` ("candidates"); it may be an upper bound.
    ProgressBar(bool allowed, size_t total, std::string unit);
    ~ProgressBar();
    void update(size_t done);

private:
    bool enabled_;
    double seconds_ = 0.0;
    size_t total_;
    std::string unit_;  // empty: audio seconds
    int last_percent_ = -1;
};

}  // namespace qtool
