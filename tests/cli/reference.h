// What the tool should produce, computed straight through the public API: the inputs
// zero-padded to whole frames, run by a fresh instance, and trimmed back.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "testkit/frame_loop.h"

namespace cli {

inline std::vector<int16_t> reference_output(std::vector<int16_t> near, std::vector<int16_t> far,
                                             int rate, int near_ch, int far_ch,
                                             testkit::Mode mode = testkit::Mode::kFull) {
    const size_t samples = near.size() / near_ch;
    const size_t frames = (samples + testkit::kFrame - 1) / testkit::kFrame;
    testkit::Recording in = {{rate, near_ch, far_ch}, std::move(near), std::move(far)};
    in.near.resize(frames * testkit::kFrame * near_ch, 0);
    in.far.resize(frames * testkit::kFrame * far_ch, 0);
    std::vector<int16_t> out = testkit::process(in, mode);
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
