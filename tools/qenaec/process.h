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

}  // namespace qtool
