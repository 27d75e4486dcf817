// One recording through the library: read and check both ends, bring them to a supported
// rate and to 16 bits, line the far end up, run every frame, measure, and write the output
// with exactly the near end's length, channels and rate. Shared by `process` and `demo`.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "aec_runner.h"
#include "align.h"
#include "audio_io.h"
#include "metrics.h"

namespace qtool {

struct ProcessRequest {
    std::string near_path;
    std::string far_path;
    std::string out_path;
    std::optional<RawLayout> raw_near;  // both set in raw mode
    std::optional<RawLayout> raw_far;
    Mode mode = Mode::kFull;
    Settings tuning;
    std::optional<double> far_delay_ms;
    bool align_auto = false;
    bool resample = false;
    bool quiet = false;
    std::optional<std::vector<Span>> near_talk;
};

struct ProcessReport {
    ProcessRequest request;
    int input_rate = 0;
    int processing_rate = 0;
    int near_channels = 0;
    int far_channels = 0;
    double duration_s = 0.0;
    size_t frames = 0;     // library frames, the zero-padded tail included
    double speed_x = 0.0;  // audio seconds processed per second of library time
    Erle erle;
    DelayEstimate estimated;  // made whether or not the far end is shifted by it
    double far_delay_applied_ms = 0.0;
    size_t saturated_frames = 0;
    size_t clipped_near = 0;
    size_t clipped_far = 0;
    size_t clipped_output = 0;  // only when resampling back
    double far_padded_s = 0.0;
};

ProcessReport run_process(const ProcessRequest &request);

// The steps of run_process that `tune` shares, so that its figures are those `process`
// reports for the same recording.

struct Inputs {
    Audio near;
    Audio far;
};

// Reads both ends and refuses what the library cannot take (see run_process); fills the
// input figures of `rep` (rates, channels, duration).
Inputs read_inputs(const ProcessRequest &rq, ProcessReport &rep);

// Both ends at the processing rate in 16 bits, the far end cut or padded to the near end's
// length and shifted by --far-delay or --align, both zero-padded to whole frames.
struct Prepared {
    std::vector<int16_t> near;
    std::vector<int16_t> far;
    std::vector<int16_t> far_measured;  // the far end as the echo follows it: picks ERLE frames
    size_t samples_per_channel = 0;     // before the padding
};

// Fills the conversion and alignment figures of `rep`.
Prepared prepare_inputs(const Inputs &in, const ProcessRequest &rq, ProcessReport &rep);

// Converts to the processing rate (when needed) and to 16 bits.
Pcm16 to_processing_rate(const Audio &a, int rate);

// ERLE of `output` (the library's result for p.near in `mode`) by the tool's rule.
Erle recording_erle(const Prepared &p, const std::vector<int16_t> &output, Mode mode,
                    const ProcessReport &rep, const std::vector<Span> *near_talk);

// Sample frames of 128 per channel; pads `x` with zeros to a whole number of them.
size_t pad_to_frames(std::vector<int16_t> &x, int channels);

}  // namespace qtool
