// Scene synthesis. Echo paths are applied through transforms of the whole signal: the direct
// sum costs minutes under an emulator at 48 kHz. The transforms' error is far below the
// half-LSB rounding that follows, so the samples are those of the direct sum.
#include "testkit/signals.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>
#include <utility>

namespace testkit {

namespace {

constexpr double kPi = 3.14159265358979323846;

using Spectrum = std::vector<std::complex<double>>;

// Twiddle factors e^(-2 pi i k / n), k < n/2, for transforms of length n.
Spectrum twiddles(size_t n) {
    Spectrum w(n / 2);
    for (size_t k = 0; k < n / 2; ++k) {
        w[k] = std::polar(1.0, -2 * kPi * double(k) / double(n));
    }
    return w;
}

// In-place radix-2 transform of length 2 * twiddle.size(); the inverse is left unscaled.
void fft(Spectrum &a, const Spectrum &twiddle, bool inverse) {
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

Spectrum transform(const std::vector<double> &x, const Spectrum &twiddle) {
    Spectrum a(2 * twiddle.size());
    std::copy(x.begin(), x.end(), a.begin());
    fft(a, twiddle, false);
    return a;
}

// The first `count` samples of the linear convolution of h with the signal whose transform
// is fx (zero-padded to at least count + h.size()).
std::vector<double> convolve(const Spectrum &fx, const std::vector<double> &h, size_t count,
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

// The far end (already whole 16-bit values) on every far channel, and on each microphone
// its echo through a response of its own, scaled so that the echo sits `echo_below_far_db`
// under the far end, plus microphone noise. Draws the responses and the noise from `gauss`.
Recording room_echo(const Scenario &s, const std::vector<double> &far, std::mt19937 &rng,
                    std::normal_distribution<double> &gauss) {
    const size_t n = far.size();
    Recording out;
    out.layout = layout_of(s);
    out.far.resize(n * s.far_channels);
    for (size_t t = 0; t < n; ++t) {
        for (int ch = 0; ch < s.far_channels; ++ch) {
            out.far[t * s.far_channels + ch] = static_cast<int16_t>(far[t]);
        }
    }
    const size_t taps = static_cast<size_t>(s.path_ms * 1e-3 * s.rate);
    const double noise_rms = 32768.0 * std::pow(10.0, s.noise_dbfs / 20);
    size_t fft_size = 1;
    while (fft_size < n + taps) {
        fft_size <<= 1;
    }
    const Spectrum twiddle = twiddles(fft_size);
    const Spectrum far_spectrum = transform(far, twiddle);
    out.near.resize(n * s.near_channels);
    for (int ch = 0; ch < s.near_channels; ++ch) {
        std::vector<double> h(taps);
        double energy = 0;
        for (size_t k = 0; k < taps; ++k) {
            h[k] = gauss(rng) * std::exp(-5.0 * static_cast<double>(k) / taps);
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

size_t whole_frames(const Scenario &s) {
    return static_cast<size_t>(s.seconds * s.rate / kFrame);
}

struct Vowel {
    double f1, f2, f3;
};
constexpr Vowel kVowels[] = {
    {730, 1090, 2440}, {270, 2290, 3010}, {300, 870, 2240}, {530, 1840, 2480}, {570, 840, 2410},
};

struct Resonator {
    double a1 = 0, a2 = 0, y1 = 0, y2 = 0;
    void tune(double freq, double bandwidth, int rate) {
        const double r = std::exp(-kPi * bandwidth / rate);
        a1 = 2 * r * std::cos(2 * kPi * freq / rate);
        a2 = -r * r;
    }
    double step(double x) {
        const double y = x + a1 * y1 + a2 * y2;
        y2 = y1;
        y1 = y;
        return y;
    }
};

// Raised-cosine syllable envelope over n samples.
double envelope(size_t i, size_t n) {
    const double edge = 0.25 * static_cast<double>(n);
    const double t = static_cast<double>(i);
    if (t < edge) {
        return 0.5 - 0.5 * std::cos(kPi * t / edge);
    }
    if (t > n - edge) {
        return 0.5 - 0.5 * std::cos(kPi * (n - t) / edge);
    }
    return 1.0;
}

}  // namespace

Layout layout_of(const Scenario &s) {
    return {s.rate, s.near_channels, s.far_channels};
}

int16_t to_pcm(double v) {
    v = std::round(v);
    return static_cast<int16_t>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

Recording noise_echo(const Scenario &s) {
    std::mt19937 rng(s.seed);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const size_t n = whole_frames(s) * kFrame;
    const double far_rms = 32768.0 * std::pow(10.0, s.far_dbfs / 20);
    std::vector<double> far(n);
    for (size_t t = 0; t < n; ++t) {
        const double swell = 1.0 + 0.5 * std::sin(2 * kPi * 1.5 * t / s.rate);
        far[t] = far_rms * swell * gauss(rng);
    }
    for (double &v : far) {
        v = to_pcm(v);
    }
    return room_echo(s, far, rng, gauss);
}

Scenario speech_scenario(int rate, int near_channels, int far_channels) {
    Scenario s;
    s.rate = rate;
    s.near_channels = near_channels;
    s.far_channels = far_channels;
    s.seconds = 10.0;
    s.far_dbfs = -24.0;
    s.echo_below_far_db = 6.0;
    s.noise_dbfs = -66.0;
    s.path_ms = 30.0;
    s.seed = 7;
    return s;
}

Recording speech_echo(const Scenario &s) {
    std::vector<double> far = speech_like(s.rate, whole_frames(s) * kFrame, s.far_dbfs, s.seed);
    for (double &v : far) {
        v = to_pcm(v);
    }
    std::mt19937 rng(s.seed * 7919u + 1);
    std::normal_distribution<double> gauss(0.0, 1.0);
    return room_echo(s, far, rng, gauss);
}

std::vector<double> speech_like(int rate, size_t samples, double dbfs, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> uni(0.0, 1.0);
    std::normal_distribution<double> gauss(0.0, 1.0);
    std::vector<double> out(samples, 0.0);
    Resonator formant[3];
    double phase = 0;
    double hp_mem = 0;
    size_t t = 0;
    while (t < samples) {
        // A word of 1..4 syllables, then a pause.
        const int syllables = 1 + static_cast<int>(uni(rng) * 4);
        for (int s = 0; s < syllables && t < samples; ++s) {
            const size_t n = static_cast<size_t>((0.12 + 0.18 * uni(rng)) * rate);
            const bool fricative = uni(rng) < 0.2;
            const Vowel v = kVowels[static_cast<int>(uni(rng) * 5) % 5];
            const double pitch0 = 90 + 130 * uni(rng);
            const double glide = (uni(rng) - 0.5) * 0.4;
            const double nyquist = 0.45 * rate;
            formant[0].tune(std::min(v.f1, nyquist), 80, rate);
            formant[1].tune(std::min(v.f2, nyquist), 100, rate);
            formant[2].tune(std::min(v.f3, nyquist), 150, rate);
            for (size_t i = 0; i < n && t < samples; ++i, ++t) {
                double source;
                if (fricative) {
                    const double w = gauss(rng);
                    source = 0.4 * (w - hp_mem);  // one-zero high-pass: hiss
                    hp_mem = w;
                } else {
                    const double pitch = pitch0 * (1 + glide * i / n);
                    phase += pitch / rate;
                    source = phase >= 1.0 ? 1.0 : 0.0;  // one pulse per pitch period
                    phase -= std::floor(phase);
                    source += 0.02 * gauss(rng);  // breath
                }
                double y = fricative ? source * 8 : source;
                if (!fricative) {
                    y = formant[0].step(y) + 0.6 * formant[1].step(y) + 0.3 * formant[2].step(y);
                }
                out[t] = y * envelope(i, n);
            }
        }
        t += static_cast<size_t>((0.08 + 0.3 * uni(rng)) * rate);  // the pause
    }
    double energy = 0;
    for (double v : out) {
        energy += v * v;
    }
    const double rms = std::sqrt(energy / static_cast<double>(samples));
    const double target = 32768.0 * std::pow(10.0, dbfs / 20);
    for (double &v : out) {
        v = rms > 0 ? v * target / rms : 0;
    }
    return out;
}

void fade_to_silence(Recording &rec, size_t from_frame, double fade_seconds) {
    const size_t start = from_frame * kFrame;
    const double fade = fade_seconds * rec.layout.rate;
    auto apply = [&](std::vector<int16_t> &v, int channels) {
        const size_t n = v.size() / channels;
        for (size_t t = start; t < n; ++t) {
            const double g = std::max(0.0, 1.0 - static_cast<double>(t - start) / fade);
            for (int ch = 0; ch < channels; ++ch) {
                int16_t &x = v[t * channels + ch];
                x = to_pcm(x * g * g);
            }
        }
    };
    apply(rec.far, rec.layout.far_channels);
    apply(rec.near, rec.layout.near_channels);
}

}  // namespace testkit
