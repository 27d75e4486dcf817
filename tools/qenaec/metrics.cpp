// Saturation count and output comparison.
#include "metrics.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace qtool {

namespace {

constexpr int kSaturationLevel = 32700;

}  // namespace

size_t saturated_frames(const std::vector<int16_t> &near, int channels) {
    const size_t per_frame = static_cast<size_t>(kFrame) * channels;
    size_t count = 0;
    for (size_t start = 0; start < near.size(); start += per_frame) {
        const size_t end = std::min(near.size(), start + per_frame);
        for (size_t i = start; i < end; ++i) {
            if (std::abs(static_cast<int>(near[i])) > kSaturationLevel) {
                ++count;
                break;
            }
        }
    }
    return count;
}

Comparison compare_outputs(const std::vector<int16_t> &recorded,
                           const std::vector<int16_t> &replayed, int channels) {
    Comparison c;
    const size_t n = std::min(recorded.size(), replayed.size());
    c.compared_frames = n / (static_cast<size_t>(kFrame) * channels);
    double signal = 0.0, noise = 0.0;
    bool found = false;
    for (size_t i = 0; i < n; ++i) {
        const int d = static_cast<int>(replayed[i]) - recorded[i];
        signal += static_cast<double>(recorded[i]) * recorded[i];
        noise += static_cast<double>(d) * d;
        c.max_difference = std::max(c.max_difference, std::abs(d));
        if (d != 0 && !found) {
            found = true;
            c.first_sample = i / channels;
            c.first_frame = c.first_sample / kFrame;
        }
    }
    c.bit_exact = !found;
    c.snr_db = noise > 0.0 ? 10.0 * std::log10(std::max(signal, 1e-12) / noise) : INFINITY;
    return c;
}

}  // namespace qtool
