// A progress bar on standard error, drawn only when standard error is a terminal and the
// input is long enough for the wait to be noticed.
#pragma once

#include <cstddef>

namespace qtool {

class ProgressBar {
public:
    // `seconds` is the input's duration; `total` the frames to process.
    ProgressBar(bool allowed, double seconds, size_t total);
    ~ProgressBar();
    void update(size_t done);

private:
    bool enabled_;
    double seconds_;
    size_t total_;
    int last_percent_ = -1;
};

}  // namespace qtool
