// `qenaec process` end to end: what reaches the library and what comes back. The tool's
// output is compared sample for sample with the same input run straight through the public
// API, so padding, channel layout, conversion, delay and mode mistakes all show.
#include <gtest/gtest.h>

#include <cmath>
#include <regex>
#include <string>
#include <tuple>

#include "cli_support.h"
#include "reference.h"
#include "testkit/signals.h"

namespace {

struct Inputs {
    std::vector<int16_t> near, far;
};

// An echo scenario, cut to `samples` per channel (any length, not only whole frames).
Inputs scenario_inputs(int near_ch, int far_ch, size_t samples, int rate = 16000,
                       unsigned seed = 3) {
    testkit::Scenario s;
    s.rate = rate;
    s.near_channels = near_ch;
    s.far_channels = far_ch;
    s.seconds = static_cast<double>(samples) / rate + 0.1;
    s.seed = seed;
    testkit::Recording sig = testkit::noise_echo(s);
    sig.near.resize(samples * near_ch);
    sig.far.resize(samples * far_ch);
    return {sig.near, sig.far};
}

using Layout = std::tuple<int, int, size_t>;  // near channels, far channels, samples

class RoundTrip : public testing::TestWithParam<Layout> {};

TEST_P(RoundTrip, OutputKeepsTheNearEndShapeAndIsTheLibrarysResult) {
    const auto [near_ch, far_ch, samples] = GetParam();
    cli::TempDir tmp;
    const Inputs in = scenario_inputs(near_ch, far_ch, samples);
    const cli::Result r = cli::process_files(tmp, 16000, near_ch, in.near, far_ch, in.far);
    ASSERT_EQ(r.status, 0) << r.err;
    const cli::Wav out = cli::read_wav(tmp.path("out.wav"));
    EXPECT_EQ(out.rate, 16000);
    EXPECT_EQ(out.channels, near_ch);
    ASSERT_EQ(out.samples.size(), samples * near_ch);
    EXPECT_EQ(out.samples, cli::reference_output(in.near, in.far, 16000, near_ch, far_ch));
}

INSTANTIATE_TEST_SUITE_P(Layouts, RoundTrip,
                         testing::Values(Layout{1, 1, 32000}, Layout{1, 1, 32000 - 51},
                                         Layout{2, 1, 16000 + 77}, Layout{1, 2, 16000 + 1},
                                         Layout{2, 2, 16000 + 127}));

TEST(Process, RawModeReadsAndWritesHeaderlessPcmLikeWav) {
    cli::TempDir tmp;
    const Inputs in = scenario_inputs(2, 1, 16000 + 40);
    cli::write_raw(tmp.path("near.pcm"), in.near);
    cli::write_raw(tmp.path("far.pcm"), in.far);
    const cli::Result r = cli::run({"process", "--raw", "--rate", "16000", "--near-channels", "2",
                                    "--far-channels", "1", "--near", tmp.path("near.pcm"), "--far",
                                    tmp.path("far.pcm"), "-o", tmp.path("out.pcm")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(cli::read_raw(tmp.path("out.pcm")),
              cli::reference_output(in.near, in.far, 16000, 2, 1));
}

// Each mode is its own sequence of library calls (split is ADF_Run then NLP_Run, not Run).
TEST(Process, EachModeIsItsSequenceOfLibraryCalls) {
    cli::TempDir tmp;
    const Inputs in = scenario_inputs(1, 1, 24000);
    const std::pair<const char *, testkit::Mode> modes[] = {{"full", testkit::Mode::kFull},
                                                            {"split", testkit::Mode::kSplit},
                                                            {"linear", testkit::Mode::kLinear}};
    for (const auto &[name, mode] : modes) {
        const cli::Result r =
            cli::process_files(tmp, 16000, 1, in.near, 1, in.far, {"--mode", name});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(cli::read_wav(tmp.path("out.wav")).samples,
                  cli::reference_output(in.near, in.far, 16000, 1, 1, mode))
            << name;
    }
}

TEST(Process, FloatInputIsRoundedAndItsClippingCounted) {
    cli::TempDir tmp;
    const Inputs in = scenario_inputs(1, 1, 8000);
    // Each sample lands 0.3 LSB off its integer, so only rounding gets it back; three are
    // beyond full scale and must be clipped.
    std::vector<float> near(in.near.size());
    std::vector<int16_t> expected = in.near;
    for (size_t i = 0; i < near.size(); ++i) {
        near[i] = (static_cast<float>(in.near[i]) + (i % 2 ? 0.3f : -0.3f)) / 32768.0f;
    }
    near[100] = 1.5f;
    expected[100] = 32767;
    near[200] = -2.0f;
    expected[200] = -32768;
    near[300] = 1.0f;
    expected[300] = 32767;
    cli::write_float_wav(tmp.path("near.wav"), 16000, 1, near);
    cli::write_wav(tmp.path("far.wav"), 16000, 1, in.far);
    const cli::Result r =
        cli::run({"process", "--near", tmp.path("near.wav"), "--far", tmp.path("far.wav"), "-o",
                  tmp.path("out.wav"), "--metrics-json", tmp.path("m.json")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(cli::read_wav(tmp.path("out.wav")).samples,
              cli::reference_output(expected, in.far, 16000, 1, 1));
    const std::string json = qtest::read_file(tmp.path("m.json"));
    EXPECT_EQ(cli::json_number(json, "clipped_samples.near"), 3);
    EXPECT_EQ(cli::json_number(json, "clipped_samples.far"), 0);
    EXPECT_NE(r.out.find("clipped to 16 bits: 3 near, 0 far samples"), std::string::npos) << r.out;
}

TEST(Process, ShortFarEndIsPaddedWithSilenceAndSaidUnlessQuiet) {
    cli::TempDir tmp;
    const Inputs in = scenario_inputs(1, 1, 20000);
    std::vector<int16_t> far(in.far.begin(), in.far.begin() + 12000);
    const cli::Result r = cli::process_files(tmp, 16000, 1, in.near, 1, far);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("the far end is 0.50 s shorter than the near end: padded with silence"),
              std::string::npos)
        << r.err;
    const std::vector<int16_t> written = cli::read_wav(tmp.path("out.wav")).samples;
    const cli::Result quiet = cli::process_files(tmp, 16000, 1, in.near, 1, far, {"--quiet"});
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.out, "");
    EXPECT_EQ(quiet.err, "");
    EXPECT_EQ(cli::read_wav(tmp.path("out.wav")).samples, written);
    far.resize(20000, 0);
    EXPECT_EQ(written, cli::reference_output(in.near, far, 16000, 1, 1));
}

TEST(Process, FarDelayShiftsTheFarEndBeforeProcessing) {
    cli::TempDir tmp;
    const Inputs in = scenario_inputs(1, 1, 16000);
    const cli::Result r =
        cli::process_files(tmp, 16000, 1, in.near, 1, in.far, {"--far-delay", "40"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(cli::read_wav(tmp.path("out.wav")).samples,
              cli::reference_output(in.near, cli::delayed(in.far, 1, 640), 16000, 1, 1));
}

TEST(Process, TuningReachesTheLibrary) {
    cli::TempDir tmp;
    const Inputs in = scenario_inputs(1, 1, 16000);
    auto run_with = [&](std::vector<std::string> extra) {
        const cli::Result r = cli::process_files(tmp, 16000, 1, in.near, 1, in.far, extra);
        EXPECT_EQ(r.status, 0) << r.err;
        return cli::read_wav(tmp.path("out.wav")).samples;
    };
    // A host that never calls Config keeps what Init installed; once Config runs, the same
    // values given either way must give the same output, and every change must show.
    const auto defaults = run_with({"--intensity", "5,4,4,5,10,10,10"});
    EXPECT_EQ(run_with({"--edges", "4,6,36,49,50,51", "--ratio", "1"}), defaults);
    EXPECT_NE(run_with({"--intensity", "25,25,25,25,25,25,25"}), defaults);
    EXPECT_NE(run_with({"--edges", "10,20,30,40,50,60"}), defaults);
    EXPECT_NE(run_with({"--intensity", "5,4,4,5,10,10,10", "--ratio", "9"}), defaults);
    EXPECT_NE(run_with({"--cng"}), defaults);
}

TEST(Process, ResampleConvertsAnUnsupportedRateAndBack) {
    cli::TempDir tmp;
    const size_t samples = 44100 * 2 + 33;
    const Inputs in = scenario_inputs(1, 1, samples, 44100);
    const cli::Result r = cli::process_files(tmp, 44100, 1, in.near, 1, in.far, {"--resample"});
    ASSERT_EQ(r.status, 0) << r.err;
    const cli::Wav out = cli::read_wav(tmp.path("out.wav"));
    EXPECT_EQ(out.rate, 44100);
    EXPECT_EQ(out.samples.size(), samples);
    const std::string json = qtest::read_file(tmp.path("m.json"));
    EXPECT_EQ(cli::json_number(json, "processing_rate"), 48000);
    // The echo is still removed through both conversions.
    EXPECT_GE(cli::json_number(json, "erle_db"), 15.0) << json;
}

TEST(Process, SaturatedFramesAreThoseBeyond32700) {
    cli::TempDir tmp;
    Inputs in = scenario_inputs(2, 1, 128 * 20);
    in.near[2 * (128 * 3 + 5) + 1] = 32701;  // frame 3, second channel
    in.near[2 * (128 * 7)] = -32768;         // frame 7
    in.near[2 * (128 * 8 + 127)] = -32701;   // frame 8
    in.near[2 * (128 * 12)] = 32700;         // frame 12: not beyond
    const cli::Result r = cli::process_files(tmp, 16000, 2, in.near, 1, in.far);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(cli::json_number(qtest::read_file(tmp.path("m.json")), "saturated_frames"), 3);
    EXPECT_NE(r.out.find("saturated input frames: 3\n"), std::string::npos) << r.out;
}

}  // namespace
