// `qenaec process` end to end: the output is compared sample for sample with the same input
// run straight through the public API, so padding, channel layout, conversion, delay and mode
// mistakes all show; and the figures it prints.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>

#include "cli_support.h"
#include "testkit/signals.h"

namespace {

// An echo scenario cut to `samples` per channel (any length, not only whole frames).
testkit::Recording inputs(int near_ch, int far_ch, size_t samples, int rate = 16000) {
    testkit::Scenario s{.rate = rate, .near_channels = near_ch, .far_channels = far_ch};
    s.seconds = static_cast<double>(samples) / rate + 0.1;
    s.seed = 3;
    testkit::Recording sig = testkit::noise_echo(s);
    sig.near.resize(samples * near_ch);
    sig.far.resize(samples * far_ch);
    return sig;
}

struct Case {
    const char *name;
    int near_ch, far_ch;
    size_t samples, far_samples;  // far_samples 0: as long as the near end
    std::vector<std::string> options = {};
    testkit::Mode mode = testkit::Mode::kFull;
    size_t far_shift = 0;  // what the options delay the far end by
    const char *warning = "";
};

class Process : public testing::TestWithParam<Case> {};

TEST_P(Process, OutputKeepsTheNearEndShapeAndIsTheLibrarysResult) {
    const Case &c = GetParam();
    const testkit::Recording in = inputs(c.near_ch, c.far_ch, c.samples);
    std::vector<int16_t> far = in.far;
    far.resize((c.far_samples ? c.far_samples : c.samples) * c.far_ch);
    cli::TempDir tmp;
    // --raw: headerless 16-bit PCM in and out, the layout given by options.
    const bool raw = !c.options.empty() && c.options[0] == "--raw";
    if (raw) {
        cli::write_raw(tmp.path("near.pcm"), in.near);
        cli::write_raw(tmp.path("far.pcm"), far);
    }
    const cli::Result r =
        raw ? cli::run({"process", "--raw", "--rate", "16000", "--near-channels",
                        std::to_string(c.near_ch), "--near", tmp.path("near.pcm"), "--far",
                        tmp.path("far.pcm"), "-o", tmp.path("out.pcm")})
            : cli::process_files(tmp, 16000, c.near_ch, in.near, c.far_ch, far, c.options);
    ASSERT_EQ(r.status, 0) << r.err;
    const bool quiet = std::ranges::find(c.options, "--quiet") != c.options.end();
    const std::string warning = quiet ? "" : c.warning;
    EXPECT_EQ(r.out.empty(), quiet) << r.out;
    EXPECT_EQ(r.out.find("\nERLE: ") != std::string::npos, !quiet) << r.out;
    EXPECT_EQ(r.err.empty(), warning.empty()) << r.err;
    EXPECT_NE(r.err.find(warning), std::string::npos) << r.err;
    const cli::Wav out = raw ? cli::Wav{16000, c.near_ch, cli::read_raw(tmp.path("out.pcm"))}
                             : cli::read_wav(tmp.path("out.wav"));
    EXPECT_EQ(std::pair(out.rate, out.channels), std::pair(16000, c.near_ch));
    far.resize(c.samples * c.far_ch, 0);
    EXPECT_EQ(out.samples, cli::reference_output(in.near, cli::delayed(far, c.far_ch, c.far_shift),
                                                 16000, c.near_ch, c.far_ch, c.mode));
}

const char *kPadded = "the far end is 0.50 s shorter than the near end: padded with silence";

INSTANTIATE_TEST_SUITE_P(
    Cli, Process,
    testing::Values(Case{"WholeFrames", 1, 1, 32000, 0}, Case{"OddLength", 1, 1, 32000 - 51, 0},
                    Case{"StereoMicrophone", 2, 1, 16000 + 77, 0},
                    Case{"StereoReference", 1, 2, 16000 + 1, 0},
                    Case{"StereoBoth", 2, 2, 16000 + 127, 0},
                    // Split is ADF_Run then NLP_Run, not Run.
                    Case{"Split", 1, 1, 24000, 0, {"--mode", "split"}, testkit::Mode::kSplit},
                    Case{"Linear", 1, 1, 24000, 0, {"--mode", "linear"}, testkit::Mode::kLinear},
                    Case{"FarDelay", 1, 1, 16000, 0, {"--far-delay", "40"}, {}, 640},
                    Case{"ShortFarPadded", 1, 1, 20000, 12000, {}, {}, 0, kPadded},
                    Case{"ShortFarQuiet", 1, 1, 20000, 12000, {"--quiet"}, {}, 0, kPadded},
                    Case{"Raw", 2, 1, 16000 + 40, 0, {"--raw"}}),
    [](const testing::TestParamInfo<Case> &info) { return info.param.name; });

TEST(Process, FloatInputIsRoundedAndItsClippingCounted) {
    cli::TempDir tmp;
    const testkit::Recording in = inputs(1, 1, 8000);
    // Each sample lands 0.3 LSB off its integer, so only rounding gets it back; three are at
    // or beyond full scale and must be clipped.
    std::vector<float> near(in.near.size());
    std::vector<int16_t> expected = in.near;
    for (size_t i = 0; i < near.size(); ++i) {
        near[i] = (static_cast<float>(in.near[i]) + (i % 2 ? 0.3f : -0.3f)) / 32768.0f;
    }
    for (auto [i, v, pcm] :
         {std::tuple{100, 1.5f, 32767}, {200, -2.0f, -32768}, {300, 1.0f, 32767}}) {
        near[i] = v;
        expected[i] = static_cast<int16_t>(pcm);
    }
    cli::write_wav(tmp.path("near.wav"), 16000, 1, near);
    cli::write_wav(tmp.path("far.wav"), 16000, 1, in.far);
    const cli::Result r = cli::process(tmp);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(cli::read_wav(tmp.path("out.wav")).samples,
              cli::reference_output(expected, in.far, 16000, 1, 1));
    const std::string json = qtest::read_file(tmp.path("m.json"));
    EXPECT_EQ(cli::json_number(json, "clipped_samples.near"), 3);
    EXPECT_EQ(cli::json_number(json, "clipped_samples.far"), 0);
    EXPECT_NE(r.out.find("clipped to 16 bits: 3 near, 0 far samples"), std::string::npos) << r.out;
}

TEST(Process, TuningReachesTheLibrary) {
    cli::TempDir tmp;
    const testkit::Recording in = inputs(1, 1, 16000);
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
    const testkit::Recording in = inputs(1, 1, samples, 44100);
    const cli::Result r = cli::process_files(tmp, 44100, 1, in.near, 1, in.far, {"--resample"});
    ASSERT_EQ(r.status, 0) << r.err;
    const cli::Wav out = cli::read_wav(tmp.path("out.wav"));
    EXPECT_EQ(std::pair(out.rate, out.samples.size()), std::pair(44100, samples));
    const std::string json = qtest::read_file(tmp.path("m.json"));
    EXPECT_EQ(cli::json_number(json, "processing_rate"), 48000);
    EXPECT_GE(cli::json_number(json, "erle_db"), 15.0) << json;  // through both conversions
}

TEST(Process, SaturatedFramesAreThoseBeyond32700) {
    cli::TempDir tmp;
    testkit::Recording in = inputs(2, 1, 128 * 20);
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
