// Pathological signals through the public API at 16 and 48 kHz, with comfort noise on: full-scale
// squares, DC at the rails, alternating extremes, clicks, one end alone, a minute of digital
// silence. Afterwards the same instance must still work, which a non-finite value left in its
// state would prevent: on an echo scene the echo is removed, and a near-end talker that
// follows passes. Then the recovery from a burst that forces the adaptive filter's divergence
// reset, at every rate: within two seconds the echo reduction is back.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include "scratch.h"
#include "testkit/erle.h"
#include "testkit/signals.h"

namespace {

using testkit::Mode;
constexpr int kRates[] = {8000, 16000, 32000, 48000};
#ifdef QENAEC_TEST_EMULATED
constexpr double kSilenceSeconds = 10.0;  // under qemu
#else
constexpr double kSilenceSeconds = 30.0;
#endif

using Signal = int16_t (*)(size_t t, int rate, int ch);

int16_t silence(size_t, int, int) {
    return 0;
}
int16_t square(size_t t, int rate, int ch) {  // 440 Hz, inverted on the second channel
    return ((t * 880 / rate) % 2 == 0) != (ch == 1) ? 32767 : -32768;
}
int16_t high_rail(size_t, int, int) {
    return 32767;
}
int16_t low_rail(size_t, int, int) {
    return -32767;
}
int16_t alternating(size_t t, int, int ch) {
    return (t + ch) % 2 ? -32768 : 32767;
}
int16_t clicks(size_t t, int rate, int) {  // full scale every 37 ms, alternating in sign
    const size_t period = static_cast<size_t>(rate) * 37 / 1000;
    return t % period != 0 ? 0 : (t / period) % 2 ? -32768 : 32767;
}
int16_t noise(size_t t, int, int ch) {
    uint32_t x = static_cast<uint32_t>(t * 2 + ch) * 2654435761u;
    x ^= x >> 15;
    x *= 2246822519u;
    x ^= x >> 13;
    return static_cast<int16_t>(static_cast<int16_t>(x) / 4);
}

struct Case {
    const char *name;
    Signal near, far;
    double seconds;
    int channels;  // near and far
};

const Case kCases[] = {
    {"FullScaleSquares", square, square, 1.0, 2},
    {"DcAtTheRails", high_rail, low_rail, 1.0, 1},
    {"DcReversed", low_rail, high_rail, 1.0, 1},
    {"AlternatingExtremes", alternating, alternating, 1.0, 2},
    {"Clicks", clicks, clicks, 1.0, 1},
    {"FarEndOnly", silence, noise, 1.0, 1},
    {"NearEndOnly", noise, silence, 1.0, 1},
    {"Silence", silence, silence, kSilenceSeconds, 1},
};

// 1.5 s of echo (a 15 ms room), then 1 s of a talker alone.
testkit::Recording probe(const testkit::Layout &l) {
    testkit::Scenario s;
    s.rate = l.rate;
    s.near_channels = s.far_channels = l.near_channels;
    s.seconds = 2.5;
    s.path_ms = 15.0;
    testkit::Recording rec = testkit::noise_echo(s);
    const std::vector<double> talk = testkit::speech_like(l.rate, rec.frames() * 128, -26.0, 3);
    for (size_t t = 3 * l.rate / 2; t < talk.size(); ++t) {
        for (int ch = 0; ch < l.near_channels; ++ch) {
            rec.near[t * l.near_channels + ch] = testkit::to_pcm(talk[t]);
            rec.far[t * l.near_channels + ch] = 0;
        }
    }
    return rec;
}

// Echo removed over 1..1.5 s, the talker within 6 dB over its last half second.
void expect_working(AEC_HANDLE h, const testkit::Layout &l, const char *after) {
    const testkit::Recording rec = probe(l);
    std::vector<int16_t> out = rec.near;
    ASSERT_EQ(testkit::run(h, l, out, rec.far, Mode::kFull).code, ALGO_AEC_RET_SUCCESS);
    const double erle = testkit::erle_between({rec.near, out, rec.far, l, 128}, 1.0, 1.5).db;
    double talk = 0, passed = 0;
    for (size_t i = out.size() - l.rate / 2 * l.near_channels; i < out.size(); ++i) {
        talk += double(rec.near[i - 128 * l.near_channels]) * rec.near[i - 128 * l.near_channels];
        passed += double(out[i]) * out[i];
    }
    const double loss = 10 * std::log10(talk / std::max(passed, 1.0));
    EXPECT_GT(erle, 20.0) << "after " << after;
    EXPECT_LT(std::fabs(loss), 6.0) << "after " << after;
}

using Param = std::tuple<int, size_t>;  // rate, case
class Pathological : public testing::TestWithParam<Param> {};

TEST_P(Pathological, InstanceStillWorksAfterwards) {
    const auto [rate, index] = GetParam();
    const Case &c = kCases[index];
    const int n = c.channels;
    const testkit::Layout l = {rate, n, n};
    const testkit::Instance aec(l, {.comfort_noise = true});
    std::vector<int16_t> near(128 * n), far(128 * n);
    qtest::capture_stderr([&] {  // the filter announces each divergence reset there
        for (size_t f = 0; f < size_t(c.seconds * rate / 128); ++f) {
            for (size_t i = 0; i < near.size(); ++i) {
                near[i] = c.near(f * 128 + i / n, rate, int(i % n));
                far[i] = c.far(f * 128 + i / n, rate, int(i % n));
            }
            ASSERT_EQ(testkit::run_frame(aec.handle(), near.data(), far.data(),
                                         f % 2 ? Mode::kSplit : Mode::kFull),
                      ALGO_AEC_RET_SUCCESS);
        }
        expect_working(aec.handle(), l, c.name);
    });
}

INSTANTIATE_TEST_SUITE_P(RatesAndSignals, Pathological,
                         testing::Combine(testing::Values(16000, 48000),
                                          testing::Range<size_t>(0, std::size(kCases))),
                         [](const testing::TestParamInfo<Param> &info) {
                             return std::string(kCases[std::get<1>(info.param)].name) + "_" +
                                    std::to_string(std::get<0>(info.param)) + "Hz";
                         });

class Recovery : public testing::TestWithParam<int> {};

// A converged echo scene, a 2 s burst (alternating full scale on the loudspeaker, a full-scale
// square on the microphone) that forces the divergence reset, then the scene again: over
// 1.5..2 s after the burst the linear stage and the whole pipeline reduce the echo by 20 dB.
TEST_P(Recovery, EchoReductionIsBackWithinTwoSeconds) {
    const int rate = GetParam();
    testkit::Scenario s;
    s.rate = rate;
    s.seconds = 2.0;
    s.path_ms = 15.0;
    const testkit::Recording echo = testkit::noise_echo(s);
    const testkit::Instance aec(echo.layout);
    std::vector<int16_t> full = echo.near, linear(echo.near.size());
    testkit::run(aec.handle(), echo.layout, full, echo.far, Mode::kSplit, {}, linear);
    const std::string warnings = qtest::capture_stderr([&] {
        std::vector<int16_t> near(128), loud(128);
        for (size_t f = 0; f < size_t(2 * rate / 128); ++f) {
            for (size_t i = 0; i < 128; ++i) {
                near[i] = square(f * 128 + i, rate, 0);
                loud[i] = alternating(i, rate, 0);
            }
            ASSERT_EQ(QenAec_Run(aec.handle(), near.data(), loud.data()), ALGO_AEC_RET_SUCCESS);
        }
    });
    EXPECT_NE(warnings.find("got slapped (reset)"), std::string::npos);
    full = echo.near;
    testkit::run(aec.handle(), echo.layout, full, echo.far, Mode::kSplit, {}, linear);
    const auto erle = [&](const std::vector<int16_t> &out, Mode mode) {
        return testkit::erle_between(
                   {echo.near, out, echo.far, echo.layout, testkit::output_delay(mode)}, 1.5, 2.0)
            .db;
    };
    EXPECT_GT(erle(linear, Mode::kLinear), 20.0) << "linear stage at " << rate;
    EXPECT_GT(erle(full, Mode::kSplit), 20.0) << "whole pipeline at " << rate;
}

INSTANTIATE_TEST_SUITE_P(EveryRate, Recovery, testing::ValuesIn(kRates));

}  // namespace
