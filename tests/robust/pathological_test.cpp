// Pathological signals through the public API at every rate: full-scale squares, DC at the
// rails, alternating extremes, isolated impulses, one end only, and minutes of digital
// silence. After every frame every float the instance holds must be finite. Then the recovery
// after a burst that forces the adaptive filter's divergence reset.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include "fixture.h"
#include "float_state.h"
#include "instance.h"
#include "testkit/erle.h"
#include "testkit/signals.h"

namespace {

constexpr int kRates[] = {8000, 16000, 32000, 48000};
// Two minutes of silence at every rate natively. The ARM build, emulated, keeps to 20 s and
// to the Run path (the split path's stages are the same code).
#ifdef QENAEC_TEST_EMULATED
constexpr double kSilenceSeconds = 20.0;
constexpr bool kSplitPathToo = false;
#else
constexpr double kSilenceSeconds = 120.0;
constexpr bool kSplitPathToo = true;
#endif

std::string first_non_finite(const aec_workingbuf_t &b) {
    return qtest::first_float(b, [](float v) { return !std::isfinite(v); });
}

const aec_workingbuf_t &state(const testkit::Instance &aec) {
    return *reinterpret_cast<const aec_workingbuf_t *>(aec.block());
}

using Signal = int16_t (*)(size_t t, int rate, int ch);

int16_t silence(size_t, int, int) {
    return 0;
}
// A full-scale square of `hz`, inverted on the second channel.
template <int hz>
int16_t square(size_t t, int rate, int ch) {
    const bool high = (t * 2 * hz / rate) % 2 == 0;
    return (high != (ch == 1)) ? 32767 : -32768;
}
template <int level>
int16_t dc(size_t, int, int) {
    return level;
}
int16_t alternating(size_t t, int, int ch) {
    return (t + ch) % 2 ? -32768 : 32767;
}
// One full-scale click every 37 ms, alternating in sign.
int16_t impulses(size_t t, int rate, int) {
    const size_t period = static_cast<size_t>(rate) * 37 / 1000;
    if (t % period != 0) {
        return 0;
    }
    return (t / period) % 2 ? -32768 : 32767;
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
    Signal near;
    Signal far;
    double seconds;
    int channels;  // near and far
};

const Case kCases[] = {
    {"FullScaleSquares", square<440>, square<250>, 2.0, 2},
    {"DcAtTheRails", dc<32767>, dc<-32767>, 2.0, 1},
    {"DcAtTheRailsReversed", dc<-32767>, dc<32767>, 2.0, 2},
    {"AlternatingExtremes", alternating, alternating, 2.0, 2},
    {"FullScaleImpulses", impulses, impulses, 2.0, 1},
    {"FarEndOnly", silence, noise, 2.0, 1},
    {"NearEndOnly", noise, silence, 2.0, 1},
    {"MinutesOfSilence", silence, silence, kSilenceSeconds, 1},
};

TEST(FloatState, ThePlantedNonFiniteValueIsFound) {
    testkit::Instance aec({16000, 1, 1}, testkit::Settings{.comfort_noise = true});
    ASSERT_EQ(first_non_finite(state(aec)), "");
    auto &b = const_cast<aec_workingbuf_t &>(state(aec));
    b.mdf_workingbuff.foreground[2063] = INFINITY;
    EXPECT_EQ(first_non_finite(b), "foreground[2063]");
    b.mdf_error[255] = NAN;
    b.aec_inst.eBuf[3] = NAN;
    EXPECT_EQ(first_non_finite(b), "eBuf[3]");
}

// Feeds the case for its duration, stopping at the first frame that fails a check.
void feed(const testkit::Instance &aec, const Case &c, int rate, testkit::Mode mode) {
    const int nch = c.channels, fch = c.channels;
    std::vector<int16_t> near(128 * nch), far(128 * fch);
    const size_t frames = static_cast<size_t>(c.seconds * rate / 128);
    for (size_t f = 0; f < frames; ++f) {
        for (size_t i = 0; i < 128; ++i) {
            const size_t t = f * 128 + i;
            for (int ch = 0; ch < nch; ++ch)
                near[i * nch + ch] = c.near(t, rate, ch);
            for (int ch = 0; ch < fch; ++ch)
                far[i * fch + ch] = c.far(t, rate, ch);
        }
        ASSERT_EQ(testkit::run_frame(aec.handle(), near.data(), far.data(), mode),
                  ALGO_AEC_RET_SUCCESS)
            << "frame " << f;
        // Over minutes, every 50th frame: a non-finite value, once in, stays in the state.
        if (c.seconds < kSilenceSeconds || f % 50 == 0 || f + 1 == frames) {
            ASSERT_EQ(first_non_finite(state(aec)), "")
                << "non-finite after frame " << f << " of " << frames;
        }
    }
}

using Param = std::tuple<int, size_t>;  // rate, case index

class Pathological : public testing::TestWithParam<Param> {};

TEST_P(Pathological, EveryFloatStaysFinite) {
    const auto [rate, index] = GetParam();
    const Case &c = kCases[index];
    // The linear stage warns on stderr at each divergence reset; keep the log readable.
    qtest::capture_stderr([&] {
        // Comfort noise on: the noise-floor tracker runs too.
        const testkit::Layout layout = {rate, c.channels, c.channels};
        const testkit::Instance run(layout, testkit::Settings{.comfort_noise = true});
        ASSERT_NE(run.handle(), nullptr);
        feed(run, c, rate, testkit::Mode::kFull);
        if (c.seconds >= kSilenceSeconds || !kSplitPathToo) {
            return;  // the long silence once is enough
        }
        feed(testkit::Instance(layout, testkit::Settings{.comfort_noise = true}), c, rate,
             testkit::Mode::kSplit);
    });
}

INSTANTIATE_TEST_SUITE_P(RatesAndSignals, Pathological,
                         testing::Combine(testing::ValuesIn(kRates),
                                          testing::Range<size_t>(0, std::size(kCases))),
                         [](const testing::TestParamInfo<Param> &info) {
                             return std::string(kCases[std::get<1>(info.param)].name) + "_" +
                                    std::to_string(std::get<0>(info.param)) + "Hz";
                         });

// ERLE over each half second of the recording, and the same as printable text.
std::vector<double> reduction_curve(const testkit::Recording &in, const std::vector<int16_t> &out,
                                    testkit::Mode mode, std::string *text) {
    std::vector<double> curve;
    const double seconds =
        static_cast<double>(in.near.size()) / in.layout.near_channels / in.layout.rate;
    for (double from = 0; from + 0.5 <= seconds; from += 0.5) {
        curve.push_back(
            testkit::erle_between({in.near, out, in.far, in.layout, testkit::output_delay(mode)},
                                  from, from + 0.5)
                .db);
        char item[16];
        snprintf(item, sizeof item, " %.1f", curve.back());
        *text += item;
    }
    return curve;
}

class Recovery : public testing::TestWithParam<int> {};

// The linear stage's residual and the full output of an echo scenario, from one pass of
// ADF_Run and NLP_Run per frame (together the same pipeline as Run).
struct Outputs {
    std::vector<int16_t> linear;
    std::vector<int16_t> full;
};

Outputs process_split(const testkit::Instance &aec, const testkit::Recording &echo) {
    Outputs o{echo.near, echo.near};
    EXPECT_EQ(testkit::run(aec.handle(), echo.layout, o.full, echo.far, testkit::Mode::kSplit, {},
                           o.linear)
                  .code,
              ALGO_AEC_RET_SUCCESS);
    return o;
}

// A converged echo scenario, a 2 s burst (alternating full scale on the loudspeaker, a
// full-scale square on the microphone) that forces the adaptive filter's divergence reset,
// then the same echo scenario again: within 2 s the echo reduction is back above 20 dB, for the
// linear stage alone as well as for the whole pipeline.
TEST_P(Recovery, EchoReductionIsBackWithinTwoSeconds) {
    const int rate = GetParam();
    testkit::Scenario s;
    s.rate = rate;
    s.seconds = 4.0;
    s.path_ms = 15.0;  // within the filter's 1024 taps at every rate
    const testkit::Recording echo = testkit::noise_echo(s);
    const size_t burst = 2 * rate / 128;

    // Comfort noise off: its floor would cap the reduction measured.
    const testkit::Instance aec(echo.layout, testkit::Settings{.comfort_noise = false});
    ASSERT_NE(aec.handle(), nullptr);
    const Outputs fresh = process_split(aec, echo);

    const std::string warnings = qtest::capture_stderr([&] {
        std::vector<int16_t> near(128), loud(128);
        for (size_t f = 0; f < burst; ++f) {
            for (size_t i = 0; i < 128; ++i) {
                near[i] = square<440>(f * 128 + i, rate, 0);
                loud[i] = alternating(i, rate, 0);
            }
            ASSERT_EQ(QenAec_Run(aec.handle(), near.data(), loud.data()), ALGO_AEC_RET_SUCCESS);
            ASSERT_EQ(first_non_finite(state(aec)), "") << "burst frame " << f;
        }
    });
    EXPECT_NE(warnings.find("got slapped (reset)"), std::string::npos)
        << "the burst did not force the divergence reset";

    const Outputs after = process_split(aec, echo);
    const auto report = [&](const char *what, const std::vector<int16_t> &out, testkit::Mode mode) {
        std::string text;
        const std::vector<double> curve = reduction_curve(echo, out, mode, &text);
        printf("%5d Hz %-24s per 0.5 s:%s dB\n", rate, what, text.c_str());
        return curve;
    };
    using testkit::Mode;
    report("linear, fresh", fresh.linear, Mode::kLinear);
    const std::vector<double> linear =
        report("linear, after the burst", after.linear, Mode::kLinear);
    report("full, fresh", fresh.full, Mode::kSplit);
    const std::vector<double> full = report("full, after the burst", after.full, Mode::kSplit);
    // [3] is the half second ending 2 s after the burst.
    EXPECT_GT(linear[3], 20.0) << "linear stage over 1.5..2 s after the burst";
    EXPECT_GT(full[3], 20.0) << "whole pipeline over 1.5..2 s after the burst";
}

INSTANTIATE_TEST_SUITE_P(EveryRate, Recovery, testing::ValuesIn(kRates),
                         [](const testing::TestParamInfo<int> &info) {
                             return std::to_string(info.param) + "Hz";
                         });

}  // namespace
