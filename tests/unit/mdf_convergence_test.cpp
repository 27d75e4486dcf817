// Convergence of the adaptive filter alone: white noise played through a fixed, decaying echo
// path must be cancelled far below the near-end level, and the foreground filter must take
// over from the adapting background on the way.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "fixture.h"

namespace {

constexpr int kRate = 16000;
constexpr int kFrame = 128;
constexpr int kTaps = 400;
constexpr double kPi = 3.14159265358979323846;

// Unit normal numbers from raw mt19937 draws (Box-Muller), the same on every platform.
class Gauss {
public:
    explicit Gauss(uint32_t seed) : rng_(seed) {}
    double operator()() {
        const double u1 = (static_cast<double>(rng_()) + 1.0) / 4294967297.0;
        const double u2 = static_cast<double>(rng_()) / 4294967296.0;
        return std::sqrt(-2.0 * std::log(u1)) * std::cos(2.0 * kPi * u2);
    }

private:
    std::mt19937 rng_;
};

// Random reflections under an envelope falling 60 dB over the 400 taps, seen through the
// converters' anti-alias roll-off ([1 2 1] / 4, nothing left at half the rate: the top bin
// is the one the filter learns least directly). Scaled to 0.25 energy: echo 6 dB below the
// far end.
std::vector<double> echo_path(Gauss &gauss) {
    std::vector<double> room(kTaps), h(kTaps, 0.0);
    for (int k = 0; k < kTaps; ++k) {
        room[k] = gauss() * std::exp(-k * 6.9 / kTaps);
    }
    const double aa[3] = {0.25, 0.5, 0.25};
    for (int k = 0; k < kTaps; ++k) {
        for (int m = 0; m < 3 && m <= k; ++m) {
            h[k] += aa[m] * room[k - m];
        }
    }
    double energy = 0;
    for (double v : h) {
        energy += v * v;
    }
    for (double &v : h) {
        v *= std::sqrt(0.25 / energy);
    }
    return h;
}

TEST(MdfConvergence, CancelsWhiteNoiseEchoThroughFixedPath) {
    auto inst = qtest::make_instance(kRate);
    aec_workingbuf_t *buf = inst->get();
    const MdfEchoState &st = buf->mdf_workingbuff;
    Gauss gauss(20240611);
    const std::vector<double> h = echo_path(gauss);

    const int frames = 5 * kRate / kFrame;  // 5 s
    const int measured = kRate / kFrame;    // the last second
    const double far_rms = 32768.0 * 0.1;   // -20 dBFS
    const double noise_rms = far_rms * 0.5 * std::pow(10.0, -50.0 / 20.0);

    std::vector<double> history(kTaps, 0.0);  // circular, newest at `pos`
    int pos = 0;
    float far[kFrame], near[kFrame], out[kFrame], echo[kFrame];
    std::vector<float> last_foreground(st.foreground, st.foreground + 2064);
    int foreground_updates = 0;
    double near_energy = 0, out_energy = 0;

    for (int f = 0; f < frames; ++f) {
        for (int i = 0; i < kFrame; ++i) {
            far[i] = static_cast<float>(std::round(far_rms * gauss()));
            pos = (pos + kTaps - 1) % kTaps;
            history[pos] = far[i];
            double y = 0;
            for (int k = 0; k < kTaps; ++k) {
                y += h[k] * history[(pos + k) % kTaps];
            }
            near[i] = static_cast<float>(y + noise_rms * gauss());
        }
        mdf_echo_cancellation(buf, near, nullptr, far, out, nullptr, echo, nullptr);

        if (memcmp(st.foreground, last_foreground.data(), sizeof(float) * 2064) != 0) {
            ++foreground_updates;
            last_foreground.assign(st.foreground, st.foreground + 2064);
        }
        if (f >= frames - measured) {
            for (int i = 0; i < kFrame; ++i) {
                near_energy += double(near[i]) * near[i];
                out_energy += double(out[i]) * out[i];
            }
        }
    }

    const double attenuation_db = 10.0 * std::log10(near_energy / out_energy);
    EXPECT_GE(attenuation_db, 35.0)
        << "residual only " << attenuation_db << " dB below the near end over the last second";
    EXPECT_GE(foreground_updates, 1) << "the foreground never took over";
    EXPECT_EQ(st.screwed_up, 0);
    RecordProperty("attenuation_db", std::to_string(attenuation_db));
    std::printf("residual %.1f dB below the near end over the last second; %d foreground updates\n",
                attenuation_db, foreground_updates);
}

}  // namespace
