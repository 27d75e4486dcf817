// Echo return loss enhancement (ERLE) of a canceller's output, by one rule wherever a figure
// is reported: the tool's summary, the benchmarks and the tests. python/qenaec/erle.py states
// the same rule in Python; tests/python/test_agreement.py holds the two together.
//
// Frames of 128 samples per channel count when:
// - the far end is active: its level over the last 100 ms is at most 30 dB below its loud
//   level (the 95th percentile of those levels) and above -50 dBFS;
// - the echo dominates: with `left_out` spans given, the frame lies outside every span
//   (known near-end talk, or a stretch not to be measured such as the filter's
//   convergence); otherwise the near-to-far level ratio over the last 100 ms is within 3 dB
//   of its median over the far-active frames, and no frame within 0.5 s has it more than
//   6 dB above (clear talk). Near-end talk lifts the near end above what the echo path
//   explains; the median assumes the near-end talker is silent for most of the far end's
//   activity.
// Input frame f is set against the output `delay` samples later (a frame whose output lies
// beyond the end does not count).
// ERLE = 10 log10(sum in^2 / (sum out^2 + n/12)), where n/12 is the rounding noise of n
// 16-bit samples, so an output of digital silence gives a finite figure. At least 0.25 s
// must qualify.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "testkit/frame_loop.h"

namespace testkit {

struct Span {
    double start_s = 0.0;
    double end_s = 0.0;
};

struct ErleInput {
    std::span<const int16_t> near;  // as fed to the canceller, interleaved
    std::span<const int16_t> out;   // its output, in the layout of `near`
    std::span<const int16_t> far;   // as the echo follows it
    Layout layout;
    size_t delay = 0;  // samples the output lags the input: output_delay(mode)
};

struct Erle {
    bool valid = false;  // false when too little of the input qualifies
    double db = 0.0;
    double seconds = 0.0;   // duration of the frames it was measured over
    const char *rule = "";  // "known near-end talk" (spans given) or "level ratio"
};

Erle erle(const ErleInput &in, const std::vector<Span> *left_out = nullptr);

// The same over the frames within [from_s, to_s) alone: all else is left out.
Erle erle_between(const ErleInput &in, double from_s, double to_s);

// Where a signal is active by the far-end rule above, with a floor of one's own: its level
// over the last 100 ms at most 30 dB below the 95th percentile of those levels and at least
// `floor_dbfs`. Used on a talker and on the far end by `qenaec tune`.
struct Activity {
    std::vector<bool> active;    // per 128-sample frame
    double loud_dbfs = -120.0;   // the 95th percentile of the 100 ms levels
    double level_dbfs = -120.0;  // mean power of the active frames (an active speech level)
    double seconds = 0.0;        // duration of the active frames
};

Activity activity(std::span<const int16_t> x, int channels, int rate, double floor_dbfs);

}  // namespace testkit
