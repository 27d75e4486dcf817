// Echo is actually removed: a synthetic echo scenario at every rate and channel layout,
// through the public API, with floors on the echo return loss enhancement of the last 3 s.
// The suppressor must add to what the linear stage removes, and must not mute a near-end
// talker once the far end has fallen silent.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <tuple>

#include "testkit/erle.h"
#include "testkit/signals.h"

namespace {

using testkit::Mode;

// ERLE of `mode` over the last `seconds` of the recording.
double tail_erle(const testkit::Recording &in, Mode mode, double seconds) {
    ALGO_AEC_RET err;
    const std::vector<int16_t> out = testkit::process(in, mode, {}, &err);
    EXPECT_EQ(err, ALGO_AEC_RET_SUCCESS);
    const double end =
        static_cast<double>(in.near.size()) / in.layout.near_channels / in.layout.rate;
    const testkit::Erle e = testkit::erle_between(
        {in.near, out, in.far, in.layout, testkit::output_delay(mode)}, end - seconds, end);
    EXPECT_TRUE(e.valid);
    return e.db;
}

using Layout = std::tuple<int, int, int>;  // rate, near channels, far channels

class EchoRemoval : public testing::TestWithParam<Layout> {};

TEST_P(EchoRemoval, FullAndLinearPathsReachTheirFloors) {
    testkit::Scenario s;
    std::tie(s.rate, s.near_channels, s.far_channels) = GetParam();
    const testkit::Recording in = testkit::noise_echo(s);
    const double full = tail_erle(in, Mode::kFull, 3.0);
    printf("ERLE Run %5d Hz near %d far %d: %.1f dB\n", s.rate, s.near_channels, s.far_channels,
           full);
    // At 48 kHz a 30 ms path is longer than the filter's 1024 taps: no floor for the linear
    // stage alone there.
    EXPECT_GE(full, s.rate == 48000 ? 25.0 : 40.0);
    if (s.rate == 48000) {
        return;
    }
    const double linear = tail_erle(in, Mode::kLinear, 3.0);
    printf("ERLE ADF_Run %5d Hz near %d far %d: %.1f dB\n", s.rate, s.near_channels, s.far_channels,
           linear);
    EXPECT_GE(linear, 20.0);
    EXPECT_GT(full, linear + 6.0);
}

INSTANTIATE_TEST_SUITE_P(RatesAndLayouts, EchoRemoval,
                         testing::Combine(testing::Values(8000, 16000, 32000, 48000),
                                          testing::Values(1, 2), testing::Values(1, 2)),
                         [](const testing::TestParamInfo<Layout> &info) {
                             return std::to_string(std::get<0>(info.param)) + "Hz_near" +
                                    std::to_string(std::get<1>(info.param)) + "_far" +
                                    std::to_string(std::get<2>(info.param));
                         });

class NearEndTalk : public testing::TestWithParam<int> {};

// 4 s of echo alone, then 2 s of a low-passed noise talker with the far end silent: over the
// last second the talker comes through, within 6 dB (about 1 dB at 16 kHz and above, 4 dB at
// 8 kHz, where the talker's energy sits lower in the band); a muted talker loses tens of dB.
TEST_P(NearEndTalk, PassesOnceTheFarEndFallsSilent) {
    testkit::Scenario s;
    s.rate = GetParam();
    s.seconds = 6.0;
    testkit::Recording in = testkit::noise_echo(s);
    std::mt19937 rng(2024);
    std::normal_distribution<double> gauss(0.0, 400.0);
    double talker = 0;
    for (size_t t = 4 * s.rate; t < in.near.size(); ++t) {
        talker = 0.9 * talker + gauss(rng);
        in.far[t] = 0;
        in.near[t] = testkit::to_pcm(talker);
    }
    const std::vector<int16_t> out = testkit::process(in, Mode::kFull);
    const size_t lag = testkit::output_delay(Mode::kFull);
    double talk = 0, passed = 0;  // over the last second of output
    for (size_t t = in.near.size() - s.rate; t < in.near.size(); ++t) {
        talk += double(in.near[t - lag]) * in.near[t - lag];
        passed += double(out[t]) * out[t];
    }
    const double attenuation = 10 * std::log10(talk / std::max(passed, 1.0));
    printf("talker attenuation %5d Hz: %.2f dB\n", s.rate, attenuation);
    EXPECT_LT(std::fabs(attenuation), 6.0);
}

INSTANTIATE_TEST_SUITE_P(Rates, NearEndTalk, testing::Values(8000, 16000, 32000, 48000));

}  // namespace
