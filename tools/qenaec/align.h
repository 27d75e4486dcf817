// Bulk delay of the echo relative to the far end, by generalised cross-correlation with
// phase transform (GCC-PHAT) over the first seconds of the recording. The library's filter
// reaches only 1024 samples, so a playback latency longer than that must be taken out of
// the far end before processing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qtool {

struct DelayEstimate {
    bool found = false;  // false: no clear correlation peak (e.g. a silent far end)
    long samples = 0;    // whole samples; positive when the echo lags the far end
    double ms = 0.0;     // with sub-sample precision
    double peak_to_rms = 0.0;
};

struct AlignWindow {
    double seconds = 10.0;         // how much of the start is correlated
    double max_lag_seconds = 1.0;  // lags searched on either side of zero
};

// `near` and `far` are interleaved 16-bit; channels are averaged.
DelayEstimate estimate_echo_delay(const std::vector<int16_t> &near, int near_channels,
                                  const std::vector<int16_t> &far, int far_channels, int rate,
                                  const AlignWindow &window = AlignWindow{});

// Moves the far end later by `samples` (earlier when negative), keeping its length: the
// start is filled with silence, or the first samples are dropped and silence appended.
void shift_far_end(std::vector<int16_t> &far, int channels, long samples);

}  // namespace qtool
