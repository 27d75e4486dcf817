// After pathological input an instance still removes echo and passes a talker (no non-finite
// state left); after a forced divergence reset echo reduction is back within two seconds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "scratch.h"
#include "testkit/erle.h"
#include "testkit/signals.h"

namespace {

using testkit::Mode;
#ifdef QENAEC_TEST_EMULATED
constexpr double kSilenceSeconds = 10.0;  // under qemu
#else
constexpr double kSilenceSeconds = 30.0;
#endif

// Sample t of channel ch of the pathological near (end 0) or far (end 1) signal `kind`.
int16_t pathological(int kind, int end, size_t t, int rate, int ch) {
    uint32_t x = static_cast<uint32_t>(t * 2 + ch) * 2654435761u;
    switch (kind) {
        case 0:  // 440 Hz full-scale squares, inverted on the second channel
            return ((t * 880 / rate) % 2 == 0) != (ch == 1) ? 32767 : -32768;
        case 1:  // DC at the rails
            return end == 0 ? 32767 : -32767;
        case 2:
            return (t + ch) % 2 ? -32768 : 32767;
        case 3:  // full-scale clicks every 37 ms, alternating in sign
            return t % (rate * 37 / 1000) != 0 ? 0 : (t / (rate * 37 / 1000)) % 2 ? -32768 : 32767;
        case 4:  // noise on one end only
        case 5:
            x ^= x >> 15;
            return end == kind - 4 ? static_cast<int16_t>(static_cast<int16_t>(x * 2246822519u) / 4)
                                   : 0;
        default:
            return 0;
    }
}

class Robust : public testing::TestWithParam<int> {};

TEST_P(Robust, InstanceStillWorksAfterPathologicalInput) {
    const int rate = GetParam();
    const testkit::Instance aec({rate, 2, 2}, {.comfort_noise = true});
    std::vector<int16_t> near(256), far(256);
    const std::string warnings = qtest::capture_stderr([&] {
        for (int kind = 0; kind < 7; ++kind) {
            const size_t frames = (kind == 6 ? kSilenceSeconds : 1.0) * rate / 128;
            for (size_t f = 0; f < frames; ++f) {
                for (size_t i = 0; i < 256; ++i) {
                    near[i] = pathological(kind, 0, f * 128 + i / 2, rate, int(i % 2));
                    far[i] = pathological(kind, 1, f * 128 + i / 2, rate, int(i % 2));
                }
                ASSERT_EQ(testkit::run_frame(aec.handle(), near.data(), far.data(),
                                             f % 2 ? Mode::kSplit : Mode::kFull),
                          ALGO_AEC_RET_SUCCESS);
            }
        }
    });
    EXPECT_NE(warnings.find("got slapped (reset)"), std::string::npos);
    // 1.5 s of echo, then 1 s of a talker alone.
    testkit::Recording rec = testkit::noise_echo(
        {.rate = rate, .near_channels = 2, .far_channels = 2, .seconds = 2.5, .path_ms = 15.0});
    const std::vector<double> talk = testkit::speech_like(rate, rec.frames() * 128, -26.0, 3);
    for (size_t i = 3 * rate; i < rec.near.size(); ++i) {  // from 1.5 s, two channels
        rec.near[i] = testkit::to_pcm(talk[i / 2]);
        rec.far[i] = 0;
    }
    std::vector<int16_t> out = rec.near;
    ASSERT_EQ(testkit::run(aec.handle(), rec.layout, out, rec.far, Mode::kFull).code, 0);
    EXPECT_GT(testkit::erle_between({rec.near, out, rec.far, rec.layout, 128}, 1.0, 1.5).db, 20.0);
    double said = 0, passed = 0;
    for (size_t i = out.size() - rate; i < out.size(); ++i) {
        said += double(rec.near[i - 256]) * rec.near[i - 256];
        passed += double(out[i]) * out[i];
    }
    EXPECT_LT(std::fabs(10 * std::log10(said / std::max(passed, 1.0))), 6.0);
}

// A converged scene, a 2 s burst that forces the divergence reset, then the scene again.
TEST_P(Robust, EchoReductionIsBackWithinTwoSecondsOfADivergence) {
    const int rate = GetParam();
    const testkit::Recording echo =
        testkit::noise_echo({.rate = rate, .seconds = 2.0, .path_ms = 15.0});
    const testkit::Instance aec(echo.layout);
    std::vector<int16_t> full = echo.near, linear(echo.near.size());
    testkit::run(aec.handle(), echo.layout, full, echo.far, Mode::kSplit, {}, linear);
    qtest::capture_stderr([&] {
        int16_t near[128], loud[128];
        for (size_t f = 0; f < size_t(2 * rate / 128); ++f) {
            for (size_t i = 0; i < 128; ++i) {
                near[i] = pathological(0, 0, f * 128 + i, rate, 0);
                loud[i] = pathological(2, 1, i, rate, 0);
            }
            ASSERT_EQ(QenAec_Run(aec.handle(), near, loud), ALGO_AEC_RET_SUCCESS);
        }
    });
    full = echo.near;
    testkit::run(aec.handle(), echo.layout, full, echo.far, Mode::kSplit, {}, linear);
    for (const auto &[out, mode] : {std::pair{&linear, Mode::kLinear}, {&full, Mode::kSplit}}) {
        const testkit::Erle e = testkit::erle_between(
            {echo.near, *out, echo.far, echo.layout, testkit::output_delay(mode)}, 1.5, 2.0);
        EXPECT_GT(e.db, 20.0) << testkit::mode_name(mode) << " at " << rate;
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, Robust, testing::Values(8000, 48000));

}  // namespace
