// A synthetic echo scenario for end-to-end tests, driven through the public API only:
// amplitude-modulated white noise on the loudspeaker, its echo through a decaying random
// room response on the microphone(s), plus a little microphone noise.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "qen_aec.h"

namespace e2e {

struct Scenario {
    int rate = 16000;
    int near_channels = 1;
    int far_channels = 1;
    double seconds = 8.0;
    double far_dbfs = -20.0;
    double echo_below_far_db = 6.0;
    double noise_dbfs = -60.0;
    double path_ms = 30.0;
    unsigned seed = 1;
};

struct Signals {
    std::vector<int16_t> near;  // interleaved, near_channels
    std::vector<int16_t> far;   // interleaved, far_channels
    size_t frames = 0;
};

inline int16_t to_pcm(double v) {
    v = std::round(v);
    return static_cast<int16_t>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

inline Signals make_signals(const Scenario &s) {
    std::mt19937 rng(s.seed);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const size_t frames = static_cast<size_t>(s.seconds * s.rate / 128);
    const size_t n = frames * 128;
    const double far_rms = 32768.0 * std::pow(10.0, s.far_dbfs / 20);
    std::vector<double> far(n);
    for (size_t t = 0; t < n; ++t) {
        const double envelope = 1.0 + 0.5 * std::sin(2 * M_PI * 1.5 * t / s.rate);
        far[t] = far_rms * envelope * gauss(rng);
    }
    for (double &v : far) {
        v = to_pcm(v);
    }

    // One decaying random response per microphone, scaled so the echo sits below the far end.
    const size_t taps = static_cast<size_t>(s.path_ms * 1e-3 * s.rate);
    Signals out;
    out.frames = frames;
    out.near.assign(n * s.near_channels, 0);
    out.far.assign(n * s.far_channels, 0);
    for (size_t t = 0; t < n; ++t) {
        for (int ch = 0; ch < s.far_channels; ++ch) {
            out.far[t * s.far_channels + ch] = static_cast<int16_t>(far[t]);
        }
    }
    const double noise_rms = 32768.0 * std::pow(10.0, s.noise_dbfs / 20);
    for (int ch = 0; ch < s.near_channels; ++ch) {
        std::vector<double> h(taps);
        double energy = 0;
        for (size_t k = 0; k < taps; ++k) {
            h[k] = gauss(rng) * std::exp(-5.0 * k / taps);
            energy += h[k] * h[k];
        }
        const double gain = std::pow(10.0, -s.echo_below_far_db / 20) / std::sqrt(energy);
        for (size_t t = 0; t < n; ++t) {
            double echo = 0;
            const size_t kmax = t + 1 < taps ? t + 1 : taps;
            for (size_t k = 0; k < kmax; ++k) {
                echo += h[k] * far[t - k];
            }
            out.near[t * s.near_channels + ch] = to_pcm(gain * echo + noise_rms * gauss(rng));
        }
    }
    return out;
}

enum class Mode { kFull, kLinear, kSplit };

// Runs every frame through a fresh instance; returns the processed near end.
inline std::vector<int16_t> process(const Scenario &s, const Signals &in, Mode mode,
                                    ALGO_AEC_RET *first_error = nullptr) {
    std::vector<unsigned char> block(QenAec_GetBufferSize());
    AudioAecInit init = {128, static_cast<uint32_t>(s.near_channels),
                         static_cast<uint32_t>(s.far_channels),
                         static_cast<QEN_AEC_SAMPLE_RATE>(s.rate)};
    AEC_HANDLE h = QenAec_Init(reinterpret_cast<char *>(block.data()), &init);
    std::vector<int16_t> out = in.near;
    std::vector<int16_t> far = in.far;
    ALGO_AEC_RET err = h == nullptr ? ALGO_AEC_RET_INVALID_HANDLE : ALGO_AEC_RET_SUCCESS;
    for (size_t f = 0; h != nullptr && f < in.frames; ++f) {
        short *near = out.data() + f * 128 * s.near_channels;
        short *farp = far.data() + f * 128 * s.far_channels;
        ALGO_AEC_RET r = ALGO_AEC_RET_SUCCESS;
        if (mode == Mode::kFull) {
            r = QenAec_Run(h, near, farp);
        } else {
            r = QenAec_ADF_Run(h, near, farp);
            if (r == ALGO_AEC_RET_SUCCESS && mode == Mode::kSplit) {
                r = QenAec_NLP_Run(h, near);
            }
        }
        if (r != ALGO_AEC_RET_SUCCESS && err == ALGO_AEC_RET_SUCCESS) {
            err = r;
        }
    }
    if (h != nullptr) {
        QenAec_Free(h);
    }
    if (first_error != nullptr) {
        *first_error = err;
    }
    return out;
}

// 10 log10(sum near^2 / sum out^2) over the last `seconds`.
inline double erle_db(const Scenario &s, const std::vector<int16_t> &near,
                      const std::vector<int16_t> &out, double seconds) {
    const size_t count = static_cast<size_t>(seconds * s.rate) * s.near_channels;
    const size_t start = near.size() - count;
    double en = 0, eo = 0;
    for (size_t i = start; i < near.size(); ++i) {
        en += double(near[i]) * near[i];
        eo += double(out[i]) * out[i];
    }
    return 10.0 * std::log10(en / (eo > 0 ? eo : 1e-9));
}

}  // namespace e2e
