// Echo removed at every layout, full and linear; the output lag per mode; the restart after a
// divergence.
#include <gtest/gtest.h>

#include <cstdio>
#include <numeric>
#include <random>
#include <tuple>

#include "scratch.h"
#include "testkit/erle.h"
#include "testkit/signals.h"

namespace {

using testkit::Mode;

// ERLE of `mode` over the last `seconds` of the recording.
double tail_erle(const testkit::Recording &in, Mode mode, double seconds) {
    ALGO_AEC_RET err;
    const std::vector<int16_t> out = testkit::process(in, mode, {}, &err);
    EXPECT_EQ(err, ALGO_AEC_RET_SUCCESS);
    const double end = double(in.frames()) * testkit::kFrame / in.layout.rate;
    const testkit::Erle e = testkit::erle_between(
        {in.near, out, in.far, in.layout, testkit::output_delay(mode)}, end - seconds, end);
    EXPECT_TRUE(e.valid);
    return e.db;
}

using Layout = std::tuple<int, int, int>;  // rate, near channels, far channels

class EchoRemoval : public testing::TestWithParam<Layout> {};

// A 15 ms room (within the filter's 1024 taps at every rate), 4 s of noise on the loudspeaker.
TEST_P(EchoRemoval, BothPathsReachTheirFloorsAndTheSuppressorAdds) {
    testkit::Scenario s;
    std::tie(s.rate, s.near_channels, s.far_channels) = GetParam();
    s.seconds = 4.0;
    s.path_ms = 15.0;
    const testkit::Recording in = testkit::noise_echo(s);
    const double full = tail_erle(in, Mode::kFull, 1.5);
    const double linear = tail_erle(in, Mode::kLinear, 1.5);
    printf("ERLE %5d Hz %dx%d: full %.1f dB, linear %.1f dB\n", s.rate, s.near_channels,
           s.far_channels, full, linear);
    EXPECT_GE(full, 45.0);
    EXPECT_GE(linear, 22.0);
    EXPECT_GT(full, linear + 15.0);
}

INSTANTIATE_TEST_SUITE_P(RatesAndLayouts, EchoRemoval,
                         testing::Combine(testing::Values(8000, 16000, 32000, 48000),
                                          testing::Values(1, 2), testing::Values(1, 2)),
                         [](const testing::TestParamInfo<Layout> &info) {
                             return std::to_string(std::get<0>(info.param)) + "Hz_" +
                                    std::to_string(std::get<1>(info.param)) + "x" +
                                    std::to_string(std::get<2>(info.param));
                         });

// An echo delayed into the filter's oldest partition (950 of its 1024 taps) is learnt too.
TEST(EchoRemoval, AnEchoAtTheFiltersFarEndIsRemoved) {
    testkit::Recording rec = testkit::noise_echo({.seconds = 4.0, .path_ms = 1.0});
    for (size_t t = 0; t < rec.near.size(); ++t) {
        rec.near[t] = static_cast<int16_t>(t < 950 ? 0 : rec.far[t - 950] / 2);
    }
    const double linear = tail_erle(rec, Mode::kLinear, 1.5);
    EXPECT_GE(linear, 20.0);
}

// While the microphone clips (a sample above 32700 in the frame or the one before), the
// suppressor drives four times harder: the echo goes further down than at 32700.
TEST(EchoRemoval, AClippingMicrophoneIsSuppressedHarder) {
    const testkit::Recording rec = testkit::noise_echo({.seconds = 3.0, .path_ms = 15.0});
    const auto energy_while = [&](int16_t peak) {
        testkit::Recording r = rec;
        for (size_t f = 200; f < 260; ++f) {
            r.near[f * 128 + 5] = peak;
        }
        const std::vector<int16_t> out = testkit::process(r, Mode::kFull);
        return std::inner_product(&out[210 * 128], &out[260 * 128], &out[210 * 128], 0.0);
    };
    const double calm = energy_while(32700), clipping = energy_while(32701);
    EXPECT_LT(clipping, calm / 2);
}

class PerRate : public testing::TestWithParam<int> {};

// A divergence zeroes its frame and empties the filter; then, with nothing to learn, the linear
// output is the near end through a fresh DC notch r (1 - 1/z)^2 / (1 - 2r/z + d/z^2).
TEST_P(PerRate, LinearStageStartsOverAsTheDcNotchAfterADivergence) {
    const int rate = GetParam();
    const double r = rate < 12000 ? 0.9 : rate < 24000 ? 0.982 : 0.992;
    const double d = r * r + 0.7 * (1 - r) * (1 - r);
    testkit::Recording rec = testkit::noise_echo({.rate = rate, .seconds = 1.0, .path_ms = 15.0});
    const size_t from = rec.near.size();
    std::mt19937 rng(rate);
    std::uniform_int_distribution<int> near(-3000, 3000), faint(-3, 3);
    for (int t = 0; t < 65 * 128; ++t) {
        rec.near.push_back(static_cast<int16_t>(near(rng) + 700));
        rec.far.push_back(
            static_cast<int16_t>(t < 128 ? (t % 2 ? -32767 : 32767) : faint(rng) | 1));
    }
    std::vector<int16_t> out;
    qtest::capture_stderr([&] { out = testkit::process(rec, Mode::kLinear); });
    EXPECT_EQ(std::vector<int16_t>(&out[from], &out[from + 128]), std::vector<int16_t>(128, 0));
    double x1 = 0, x2 = 0, v1 = 0, v2 = 0;
    for (size_t t = from + 128; t < out.size(); ++t) {
        const double x = rec.near[t], v = x - 2 * x1 + x2 + 2 * r * v1 - d * v2;
        // Truncation costs up to 1; the float filter with its poles near 1 drifts a little more.
        ASSERT_NEAR(out[t], r * v, 1.5) << "sample " << t - from << " at " << rate << " Hz";
        x2 = x1, x1 = x, v2 = v1, v1 = v;
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, PerRate, testing::Values(8000, 16000, 32000, 48000));

}  // namespace
