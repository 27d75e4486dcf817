// Public-API scaffolding shared by the suites: an instance in a block of its own, and a
// synthetic echo scenario (amplitude-modulated white noise on the loudspeaker, its echo
// through a decaying random room response on the microphone(s), plus a little microphone
// noise).
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <random>
#include <utility>
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

// The echo paths are applied through transforms of the whole signal: the direct sum costs
// minutes under an emulator at 48 kHz. The transforms' error is far below the half-LSB
// rounding that follows, so the samples are those of the direct sum.
using Spectrum = std::vector<std::complex<double>>;

// Twiddle factors e^(-2 pi i k / n), k < n/2, for transforms of length n.
inline Spectrum twiddles(size_t n) {
    Spectrum w(n / 2);
    for (size_t k = 0; k < n / 2; ++k) {
        w[k] = std::polar(1.0, -2 * M_PI * double(k) / double(n));
    }
    return w;
}

// In-place radix-2 transform of length 2 * twiddle.size(); the inverse is left unscaled.
inline void fft(Spectrum &a, const Spectrum &twiddle, bool inverse) {
    const size_t n = a.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) {
            j ^= bit;
        }
        j ^= bit;
        if (i < j) {
            std::swap(a[i], a[j]);
        }
    }
    for (size_t len = 2; len <= n; len <<= 1) {
        const size_t stride = n / len;
        for (size_t i = 0; i < n; i += len) {
            for (size_t k = 0; k < len / 2; ++k) {
                const std::complex<double> w = twiddle[k * stride];
                const std::complex<double> u = a[i + k];
                const std::complex<double> v = a[i + k + len / 2] * (inverse ? std::conj(w) : w);
                a[i + k] = u + v;
                a[i + k + len / 2] = u - v;
            }
        }
    }
}

inline Spectrum transform(const std::vector<double> &x, const Spectrum &twiddle) {
    Spectrum a(2 * twiddle.size());
    std::copy(x.begin(), x.end(), a.begin());
    fft(a, twiddle, false);
    return a;
}

// The first `count` samples of the linear convolution of h with the signal whose transform
// is fx (zero-padded to at least count + h.size()).
inline std::vector<double> convolve(const Spectrum &fx, const std::vector<double> &h, size_t count,
                                    const Spectrum &twiddle) {
    Spectrum a = transform(h, twiddle);
    for (size_t k = 0; k < a.size(); ++k) {
        a[k] *= fx[k];
    }
    fft(a, twiddle, true);
    std::vector<double> y(count);
    for (size_t t = 0; t < count; ++t) {
        y[t] = a[t].real() / double(a.size());
    }
    return y;
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
    size_t fft_size = 1;
    while (fft_size < n + taps) {
        fft_size <<= 1;
    }
    const Spectrum twiddle = twiddles(fft_size);
    const Spectrum far_spectrum = transform(far, twiddle);
    for (int ch = 0; ch < s.near_channels; ++ch) {
        std::vector<double> h(taps);
        double energy = 0;
        for (size_t k = 0; k < taps; ++k) {
            h[k] = gauss(rng) * std::exp(-5.0 * k / taps);
            energy += h[k] * h[k];
        }
        const double gain = std::pow(10.0, -s.echo_below_far_db / 20) / std::sqrt(energy);
        const std::vector<double> echo = convolve(far_spectrum, h, n, twiddle);
        for (size_t t = 0; t < n; ++t) {
            out.near[t * s.near_channels + ch] = to_pcm(gain * echo[t] + noise_rms * gauss(rng));
        }
    }
    return out;
}

// One instance in a block of its own, released at the end of the scope. With `comfort_noise`
// 0 or 1 Config runs with the default bands; below 0 the instance keeps what Init installed.
class Aec {
public:
    explicit Aec(int rate = 16000, int near_channels = 1, int far_channels = 1,
                 int comfort_noise = -1)
        : block_(QenAec_GetBufferSize()) {
        AudioAecInit init = {128, static_cast<uint32_t>(near_channels),
                             static_cast<uint32_t>(far_channels),
                             static_cast<QEN_AEC_SAMPLE_RATE>(rate)};
        h_ = QenAec_Init(reinterpret_cast<char *>(block_.data()), &init);
        AudioAecConfig cfg = {comfort_noise > 0 ? QEN_AEC_TRUE : QEN_AEC_FALSE,
                              0,
                              {4, 6, 36, 49, 50, 51},
                              {5, 4, 4, 5, 10, 10, 10}};
        if (h_ != nullptr && comfort_noise >= 0 &&
            QenAec_Config(h_, &cfg) != ALGO_AEC_RET_SUCCESS) {
            release();
        }
    }
    ~Aec() { release(); }
    Aec(const Aec &) = delete;
    Aec &operator=(const Aec &) = delete;
    AEC_HANDLE get() const { return h_; }
    const unsigned char *block() const { return block_.data(); }
    void release() {
        if (h_ != nullptr) {
            QenAec_Free(h_);
            h_ = nullptr;
        }
    }

private:
    std::vector<unsigned char> block_;
    AEC_HANDLE h_ = nullptr;
};

enum class Mode { kFull, kLinear, kSplit };

// Runs one frame in `mode`; the first failing call's code.
inline ALGO_AEC_RET run_frame(AEC_HANDLE h, short *near, short *far, Mode mode) {
    if (mode == Mode::kFull) {
        return QenAec_Run(h, near, far);
    }
    const ALGO_AEC_RET r = QenAec_ADF_Run(h, near, far);
    return r == ALGO_AEC_RET_SUCCESS && mode == Mode::kSplit ? QenAec_NLP_Run(h, near) : r;
}

// Runs every frame of `in` through `h`; returns the processed near end.
inline std::vector<int16_t> process_on(AEC_HANDLE h, const Scenario &s, const Signals &in,
                                       Mode mode, ALGO_AEC_RET *first_error = nullptr) {
    std::vector<int16_t> out = in.near;
    std::vector<int16_t> far = in.far;
    ALGO_AEC_RET err = h == nullptr ? ALGO_AEC_RET_INVALID_HANDLE : ALGO_AEC_RET_SUCCESS;
    for (size_t f = 0; h != nullptr && f < in.frames; ++f) {
        const ALGO_AEC_RET r = run_frame(h, out.data() + f * 128 * s.near_channels,
                                         far.data() + f * 128 * s.far_channels, mode);
        if (r != ALGO_AEC_RET_SUCCESS && err == ALGO_AEC_RET_SUCCESS) {
            err = r;
        }
    }
    if (first_error != nullptr) {
        *first_error = err;
    }
    return out;
}

// The same through a fresh instance that never sees Config.
inline std::vector<int16_t> process(const Scenario &s, const Signals &in, Mode mode,
                                    ALGO_AEC_RET *first_error = nullptr) {
    Aec aec(s.rate, s.near_channels, s.far_channels);
    return process_on(aec.get(), s, in, mode, first_error);
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
