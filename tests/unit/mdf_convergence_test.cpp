// Convergence of the adaptive filter alone, in its adapted regime: white noise played through
// a decaying echo path that is replaced after 1 s. The filter must notice the change through
// its leak estimate, hand the new background over to the foreground, and cancel the new path
// far below the near-end level.
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

struct Outcome {
    double attenuation_db = 0;  // near-end over residual energy, last second
    int foreground_updates = 0;
    float max_leak_after_change = 0;
};

// Five seconds of white noise at -20 dBFS through `paths[0]`, switching to `paths[1]` at
// `change_frame`; the near end also carries noise 50 dB below the echo.
Outcome simulate(aec_workingbuf_t *buf, Gauss &gauss, const std::vector<double> (&paths)[2],
                 int change_frame) {
    const MdfEchoState &st = buf->mdf_workingbuff;
    const int frames = 5 * kRate / kFrame;
    const int measured = kRate / kFrame;
    const double far_rms = 32768.0 * 0.1;
    const double noise_rms = far_rms * 0.5 * std::pow(10.0, -50.0 / 20.0);

    std::vector<double> history(kTaps, 0.0);  // circular, newest at `pos`
    int pos = 0;
    float far[kFrame], near[kFrame], out[kFrame], echo[kFrame];
    std::vector<float> last_foreground(st.foreground, st.foreground + 2064);
    Outcome r;
    double near_energy = 0, out_energy = 0;
    for (int f = 0; f < frames; ++f) {
        const std::vector<double> &h = paths[f < change_frame ? 0 : 1];
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
            ++r.foreground_updates;
            last_foreground.assign(st.foreground, st.foreground + 2064);
        }
        if (f >= change_frame) {
            r.max_leak_after_change = std::max(r.max_leak_after_change, st.leak_estimate);
        }
        if (f >= frames - measured) {
            for (int i = 0; i < kFrame; ++i) {
                near_energy += double(near[i]) * near[i];
                out_energy += double(out[i]) * out[i];
            }
        }
    }
    r.attenuation_db = 10.0 * std::log10(near_energy / out_energy);
    EXPECT_EQ(st.screwed_up, 0);
    EXPECT_GE(st.leak_estimate, 0.005f);
    EXPECT_LE(st.leak_estimate, 1.0f);
    EXPECT_GE(st.Pyy, 1.0f);
    return r;
}

// White noise converges too fast for the leak estimate to reach the switch-over; the
// adapted regime is entered here directly, and the path is replaced after 1 s.
TEST(MdfConvergence, AdaptedRegimeTracksAnEchoPathChange) {
    auto inst = qtest::make_instance(kRate);
    inst->get()->mdf_workingbuff.adapted = 1;
    Gauss gauss(20240611);
    const std::vector<double> paths[2] = {echo_path(gauss), echo_path(gauss)};
    const Outcome r = simulate(inst->get(), gauss, paths, kRate / kFrame);
    EXPECT_GE(r.attenuation_db, 35.0)
        << "residual only " << r.attenuation_db << " dB below the near end over the last second";
    EXPECT_GT(r.max_leak_after_change, 0.03f) << "the leak estimate missed the change";
    EXPECT_GE(r.foreground_updates, 1) << "the foreground never took over";
    EXPECT_EQ(inst->get()->mdf_workingbuff.sum_adapt, 0.0f);
    std::printf(
        "path change at 1 s: residual %.1f dB below the near end; leak peak %.3f; %d "
        "foreground updates\n",
        r.attenuation_db, r.max_leak_after_change, r.foreground_updates);
}

}  // namespace
