// Supported rates and the libsoxr one-shot conversion.
#include "resample.h"

#include <soxr.h>

#include <array>
#include <cstdlib>

#include "errors.h"

namespace qtool {

namespace {

constexpr std::array<int, 4> kRates = {8000, 16000, 32000, 48000};
constexpr int kLowestResampled = 4000;
constexpr int kHighestResampled = 384000;

}  // namespace

bool is_supported_rate(int rate) {
    for (int r : kRates) {
        if (r == rate) {
            return true;
        }
    }
    return false;
}

std::string supported_rates_text() {
    return "8000, 16000, 32000 or 48000 Hz";
}

int nearest_supported_rate(int rate) {
    int best = kRates[0];
    for (int r : kRates) {
        if (std::abs(r - rate) <= std::abs(best - rate)) {
            best = r;
        }
    }
    return best;
}

bool is_resamplable_rate(int rate) {
    return rate >= kLowestResampled && rate <= kHighestResampled;
}

std::string resamplable_rates_text() {
    return std::to_string(kLowestResampled) + " to " + std::to_string(kHighestResampled) + " Hz";
}

size_t frames_at_rate(size_t frames, int from_rate, int to_rate) {
    const unsigned long long scaled = static_cast<unsigned long long>(frames) * to_rate;
    return static_cast<size_t>((scaled + from_rate / 2) / from_rate);
}

std::vector<float> resample(const std::vector<float> &in, int channels, int from_rate, int to_rate,
                            size_t out_frames) {
    for (int rate : {from_rate, to_rate}) {
        if (!is_resamplable_rate(rate)) {
            throw failure("cannot resample " + std::to_string(rate) +
                          " Hz audio: --resample takes " + resamplable_rates_text());
        }
    }
    std::vector<float> out(out_frames * channels, 0.0f);
    const size_t in_frames = in.size() / channels;
    if (in_frames == 0 || out_frames == 0) {
        return out;
    }
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    size_t done = 0;
    const soxr_error_t err =
        soxr_oneshot(from_rate, to_rate, static_cast<unsigned>(channels), in.data(), in_frames,
                     nullptr, out.data(), out_frames, &done, nullptr, &quality, nullptr);
    if (err != nullptr) {
        throw failure(std::string("resampling from ") + std::to_string(from_rate) + " to " +
                      std::to_string(to_rate) + " Hz failed: " + err);
    }
    return out;
}

}  // namespace qtool
