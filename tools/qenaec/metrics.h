// Figures of a run: echo return loss enhancement (ERLE) over the stretches where the far
// end is active and the echo dominates, saturated input frames, and the comparison of a
// replayed output with a recorded one. All work on 128-sample frames of interleaved 16-bit
// audio at the processing rate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "frame.h"

namespace qtool {

struct Span {
    double start_s = 0.0;
    double end_s = 0.0;
};

struct Signals16 {
    const std::vector<int16_t> *near_in;  // near end as fed to the library
    const std::vector<int16_t> *output;   // the library's result, same layout
    size_t output_latency_frames;         // frames the output lags the input by
    const std::vector<int16_t> *far;      // far end as fed (after any delay)
    int near_channels;
    int far_channels;
    int rate;
};

struct Erle {
    bool valid = false;  // false when too little of the input qualifies
    double db = 0.0;
    double seconds = 0.0;  // duration of the frames it was measured over
    std::string rule;      // "known near-end talk" or "level ratio"
};

// Which frames count, and the figure over them:
// - far end active: its level over the last 100 ms is at most 30 dB below its loud level
//   (the 95th percentile of those levels) and above -50 dBFS;
// - echo dominant: with `near_talk` given, the frame lies outside every span; otherwise the
//   near-to-far level ratio over the last 100 ms is within 3 dB of its median over the
//   far-active frames, and no frame within 0.5 s has it more than 6 dB above (clear talk).
//   Near-end talk lifts the near end above what the echo path explains; the median
//   assumes the near-end talker is silent for most of the far end's activity.
// Input frame f is set against output frame f + latency.
// ERLE = 10 log10(sum in^2 / (sum out^2 + n/12)), where n/12 is the rounding noise of n
// 16-bit samples, so an output of digital silence gives a finite figure. At least 0.25 s
// must qualify.
Erle echo_reduction(const Signals16 &s, const std::vector<Span> *near_talk);

// Activity by the far-end rule of echo_reduction: frames whose level over the last 100 ms
// is at most 30 dB below the 95th percentile of those levels and at least `floor_dbfs`.
struct Activity {
    std::vector<bool> active;    // per 128-sample frame
    double loud_dbfs = -120.0;   // the 95th percentile of the 100 ms levels
    double level_dbfs = -120.0;  // mean power of the active frames (an active speech level)
    double seconds = 0.0;        // duration of the active frames
};

Activity activity(const std::vector<int16_t> &x, int channels, int rate, double floor_dbfs);

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
