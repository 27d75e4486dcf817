// GCC-PHAT over a zero-padded real FFT (KissFFT), with a parabolic fit around the peak.
#include "align.h"

#include <kissfft/kiss_fftr.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <memory>

namespace qtool {

namespace {

constexpr double kRampSeconds = 0.1;

// Channel average of the first `n` frames, zero-padded to `size`, with cosine ramps of
// `ramp` samples at both ends. Without them the cut at the end of the window is a step that
// both signals share, and the whitened correlation shows it as a false peak at lag 0.
std::vector<kiss_fft_scalar> mono_head(const std::vector<int16_t> &x, int channels, size_t n,
                                       size_t size, size_t ramp) {
    std::vector<kiss_fft_scalar> out(size, 0.0f);
    const size_t frames = std::min(n, x.size() / channels);
    ramp = std::min(ramp, frames / 2);
    for (size_t t = 0; t < frames; ++t) {
        float sum = 0.0f;
        for (int ch = 0; ch < channels; ++ch) {
            sum += x[t * channels + ch];
        }
        const size_t edge = std::min(t, frames - 1 - t);
        const double taper =
            edge < ramp ? 0.5 - 0.5 * std::cos(M_PI * (static_cast<double>(edge) + 0.5) / ramp)
                        : 1.0;
        out[t] = static_cast<float>(taper * sum / (32768.0 * channels));
    }
    return out;
}

struct FftrDeleter {
    void operator()(void *p) const { kiss_fftr_free(p); }
};
using Fftr = std::unique_ptr<std::remove_pointer_t<kiss_fftr_cfg>, FftrDeleter>;

// Sub-sample offset of a peak from its neighbours, in -0.5..0.5.
double parabolic_offset(double left, double centre, double right) {
    const double denom = left - 2.0 * centre + right;
    if (denom == 0.0) {
        return 0.0;
    }
    return std::clamp(0.5 * (left - right) / denom, -0.5, 0.5);
}

}  // namespace

DelayEstimate estimate_echo_delay(const std::vector<int16_t> &near, int near_channels,
                                  const std::vector<int16_t> &far, int far_channels, int rate,
                                  const AlignWindow &window) {
    const size_t length = std::max(near.size() / near_channels, far.size() / far_channels);
    const size_t head = std::min(length, static_cast<size_t>(window.seconds * rate));
    const long max_lag = static_cast<long>(window.max_lag_seconds * rate);
    size_t size = 2;
    while (size < 2 * head) {
        size *= 2;
    }
    const size_t ramp = static_cast<size_t>(kRampSeconds * rate);
    const auto x = mono_head(far, far_channels, head, size, ramp);
    const auto y = mono_head(near, near_channels, head, size, ramp);

    const Fftr forward(kiss_fftr_alloc(static_cast<int>(size), 0, nullptr, nullptr));
    const Fftr inverse(kiss_fftr_alloc(static_cast<int>(size), 1, nullptr, nullptr));
    const size_t bins = size / 2 + 1;
    std::vector<kiss_fft_cpx> fx(bins), fy(bins);
    kiss_fftr(forward.get(), x.data(), fx.data());
    kiss_fftr(forward.get(), y.data(), fy.data());

    // Cross spectrum whitened to unit magnitude: every bin votes equally for the lag.
    std::vector<kiss_fft_cpx> cross(bins);
    for (size_t k = 0; k < bins; ++k) {
        const std::complex<float> g = std::complex<float>(fy[k].r, fy[k].i) *
                                      std::conj(std::complex<float>(fx[k].r, fx[k].i));
        const float mag = std::abs(g);
        const std::complex<float> w = mag > 1e-20f ? g / mag : std::complex<float>(0.0f, 0.0f);
        cross[k] = {w.real(), w.imag()};
    }
    std::vector<kiss_fft_scalar> corr(size);
    kiss_fftri(inverse.get(), cross.data(), corr.data());

    // A lag L sits at index L mod size; an inverted echo path gives a negative peak.
    auto at = [&](long lag) {
        return std::fabs(static_cast<double>(corr[(lag % static_cast<long>(size) + size) % size]));
    };
    const long limit = std::min(max_lag, static_cast<long>(size / 2) - 1);
    long best = 0;
    double peak = -1.0, energy = 0.0;
    for (long lag = -limit; lag <= limit; ++lag) {
        const double v = at(lag);
        energy += v * v;
        if (v > peak) {
            peak = v;
            best = lag;
        }
    }
    DelayEstimate est;
    const double rms = std::sqrt(energy / static_cast<double>(2 * limit + 1));
    est.peak_to_rms = rms > 0.0 ? peak / rms : 0.0;
    // A true echo stands far out of the correlation's noise; 8 x RMS is rarely reached by
    // chance over a two-second search.
    est.found = est.peak_to_rms >= 8.0;
    est.samples = best;
    const double frac = parabolic_offset(at(best - 1), peak, at(best + 1));
    est.ms = (static_cast<double>(best) + frac) * 1000.0 / rate;
    return est;
}

void shift_far_end(std::vector<int16_t> &far, int channels, long samples) {
    const size_t n = far.size();
    const size_t shift = std::min(n, static_cast<size_t>(std::labs(samples)) * channels);
    if (samples > 0) {
        std::copy_backward(far.begin(), far.end() - shift, far.end());
        std::fill(far.begin(), far.begin() + shift, 0);
    } else if (samples < 0) {
        std::copy(far.begin() + shift, far.end(), far.begin());
        std::fill(far.end() - shift, far.end(), 0);
    }
}

}  // namespace qtool
