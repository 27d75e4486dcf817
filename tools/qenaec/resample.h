// The library's sample rates, and conversion to and from them with libsoxr for recordings
// made at other rates (44.1 kHz is common).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qtool {

bool is_supported_rate(int rate);

// "8000, 16000, 32000 or 48000 Hz", for messages.
std::string supported_rates_text();

// The supported rate closest to `rate` (ties go to the higher one).
int nearest_supported_rate(int rate);

// Rates --resample converts from. The work and the output grow with the ratio, so a header
// claiming 1 Hz would turn a few bytes into minutes of processing; such rates are refused.
bool is_resamplable_rate(int rate);

// "4000 to 384000 Hz", for messages.
std::string resamplable_rates_text();

// Resamples interleaved float audio and returns exactly `out_frames` frames: the converter's
// output is cut or padded with silence so lengths match however the ratio rounds. Refuses
// (as a failure) a rate outside the resamplable range on either side.
std::vector<float> resample(const std::vector<float> &in, int channels, int from_rate, int to_rate,
                            size_t out_frames);

// Frames at `to_rate` that span `frames` at `from_rate`, rounded to nearest.
size_t frames_at_rate(size_t frames, int from_rate, int to_rate);

}  // namespace qtool
