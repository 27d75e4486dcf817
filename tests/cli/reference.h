// What the tool should produce, computed straight through the public API: the inputs
// zero-padded to whole frames, run by a fresh instance, and trimmed back.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "scenario.h"

namespace cli {

inline std::vector<int16_t> reference_output(std::vector<int16_t> near, std::vector<int16_t> far,
                                             int rate, int near_ch, int far_ch,
                                             e2e::Mode mode = e2e::Mode::kFull) {
    const size_t samples = near.size() / near_ch;
    const size_t frames = (samples + 127) / 128;
    e2e::Scenario s;
    s.rate = rate;
    s.near_channels = near_ch;
    s.far_channels = far_ch;
    e2e::Signals in;
    in.frames = frames;
    near.resize(frames * 128 * near_ch, 0);
    far.resize(frames * 128 * far_ch, 0);
    in.near = std::move(near);
    in.far = std::move(far);
    std::vector<int16_t> out = e2e::process(s, in, mode);
    out.resize(samples * near_ch);
    return out;
}

// Moves a far end `samples` later, keeping its length.
inline std::vector<int16_t> delayed(const std::vector<int16_t> &x, int channels, size_t samples) {
    std::vector<int16_t> y(x.size(), 0);
    const size_t shift = std::min(x.size(), samples * channels);
    std::copy(x.begin(), x.end() - shift, y.begin() + shift);
    return y;
}

}  // namespace cli
