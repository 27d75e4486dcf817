// Speech-like material: glottal pulse trains with a gliding pitch through three two-pole
// formant resonators whose targets change per syllable, noise bursts for fricatives, and
// pauses between words. Coloured and non-stationary like speech, unlike white noise, so an
// adaptive filter's convergence and the suppressor's decisions are exercised as with talk.
#include "signals.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace bench {
namespace {

constexpr double kPi = 3.14159265358979323846;

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
        const size_t pause = static_cast<size_t>((0.08 + 0.3 * uni(rng)) * rate);
        t += pause;
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

e2e::Scenario speech_scene(int rate, int near_channels, int far_channels) {
    e2e::Scenario s;
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

e2e::Signals make_echo_scene(const e2e::Scenario &s) {
    e2e::Signals out;
    out.frames = static_cast<size_t>(s.seconds * s.rate / 128);
    const size_t n = out.frames * 128;
    std::vector<double> far = speech_like(s.rate, n, s.far_dbfs, s.seed);
    for (double &v : far) {
        v = e2e::to_pcm(v);
    }
    out.far.resize(n * s.far_channels);
    for (size_t t = 0; t < n; ++t) {
        for (int ch = 0; ch < s.far_channels; ++ch) {
            out.far[t * s.far_channels + ch] = static_cast<int16_t>(far[t]);
        }
    }

    std::mt19937 rng(s.seed * 7919u + 1);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const size_t taps = static_cast<size_t>(s.path_ms * 1e-3 * s.rate);
    const double noise_rms = 32768.0 * std::pow(10.0, s.noise_dbfs / 20);
    out.near.resize(n * s.near_channels);
    for (int ch = 0; ch < s.near_channels; ++ch) {
        std::vector<double> h(taps);
        double energy = 0;
        for (size_t k = 0; k < taps; ++k) {
            h[k] = gauss(rng) * std::exp(-5.0 * static_cast<double>(k) / taps);
            energy += h[k] * h[k];
        }
        const double gain = std::pow(10.0, -s.echo_below_far_db / 20) / std::sqrt(energy);
        for (size_t t = 0; t < n; ++t) {
            double echo = 0;
            const size_t kmax = std::min(t + 1, taps);
            for (size_t k = 0; k < kmax; ++k) {
                echo += h[k] * far[t - k];
            }
            out.near[t * s.near_channels + ch] = e2e::to_pcm(gain * echo + noise_rms * gauss(rng));
        }
    }
    return out;
}

void fade_to_silence(e2e::Signals *sig, const e2e::Scenario &s, size_t from_frame,
                     double fade_seconds) {
    const size_t start = from_frame * 128;
    const double fade = fade_seconds * s.rate;
    auto apply = [&](std::vector<int16_t> &v, int channels) {
        const size_t n = v.size() / channels;
        for (size_t t = start; t < n; ++t) {
            const double g = std::max(0.0, 1.0 - static_cast<double>(t - start) / fade);
            for (int ch = 0; ch < channels; ++ch) {
                int16_t &x = v[t * channels + ch];
                x = e2e::to_pcm(x * g * g);
            }
        }
    };
    apply(sig->far, s.far_channels);
    apply(sig->near, s.near_channels);
}

}  // namespace bench

namespace bench {

void quiet_library_messages() {
    if (getenv("DML_PATH") != nullptr) {
        return;
    }
    const char *path = "/tmp/qenaec-bench-messages.json";
    if (FILE *f = fopen(path, "w")) {
        fputs("{\"debug_level\": 1}\n", f);
        fclose(f);
        setenv("DML_PATH", path, 1);
    }
}

}  // namespace bench

namespace bench {

void without_stdout(const std::function<void()> &fn) {
    fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    fn();
    fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(null);
    close(saved);
}

}  // namespace bench
