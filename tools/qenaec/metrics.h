// Figures of a run besides ERLE (testkit/erle.h): saturated input frames, and the comparison
// of a replayed output with a recorded one. Both work on 128-sample frames of interleaved
// 16-bit audio at the processing rate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "testkit/erle.h"

namespace qtool {

using testkit::Erle;
using testkit::kFrame;
using testkit::Span;

// Frames with a near-end sample beyond +-32700, the library's own saturation test.
size_t saturated_frames(const std::vector<int16_t> &near, int channels);

struct Comparison {
    bool bit_exact = false;
    size_t compared_frames = 0;
    size_t first_frame = 0;   // first 128-sample frame that differs
    size_t first_sample = 0;  // its first differing sample, per channel
    int max_difference = 0;
    double snr_db = 0.0;  // recorded energy over difference energy
};

// Compares over the common length.
Comparison compare_outputs(const std::vector<int16_t> &recorded,
                           const std::vector<int16_t> &replayed, int channels);

}  // namespace qtool
