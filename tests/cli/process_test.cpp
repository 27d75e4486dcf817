// `qenaec process` end to end: the output is compared sample for sample with the same input
// run straight through the public API, so padding, channel layout, conversion, delay and mode
// mistakes all show; the figures it prints (ERLE, clipping, saturation), `--align auto`, and
// `qenaec replay` of its dumps; the demo, and a standard output of the tool's own lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <random>
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
    const cli::Wav out = raw ? cli::Wav{16000, c.near_ch, qtest::read_pcm(tmp.path("out.pcm"))}
                             : cli::read_wav(tmp.path("out.wav"));
    EXPECT_EQ(std::pair(out.rate, out.channels), std::pair(16000, c.near_ch));
    far.resize(c.samples * c.far_ch, 0);
    EXPECT_EQ(out.samples, cli::reference_output(in.near, cli::delayed(far, c.far_ch, c.far_shift),
                                                 16000, c.near_ch, c.far_ch));
}

const char *kPadded = "the far end is 0.50 s shorter than the near end: padded with silence";

INSTANTIATE_TEST_SUITE_P(
    Cli, Process,
    testing::Values(Case{"OddLength", 1, 1, 32000 - 51, 0},
                    Case{"StereoReference", 1, 2, 16000 + 1, 0},
                    Case{"StereoBoth", 2, 2, 16000 + 127, 0},
                    Case{"FarDelay", 1, 1, 16000, 0, {"--far-delay", "40"}, 640},
                    Case{"ShortFarPadded", 1, 1, 20000, 12000, {}, 0, kPadded},
                    Case{"ShortFarQuiet", 1, 1, 20000, 12000, {"--quiet"}, 0, kPadded},
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

// ---- ERLE: the formula, and which stretches it is measured over ----

// Before 2 s is declared near-end talk: the figure covers the frames of the last 2 s, where the
// far end never stops, but the last, whose output comes one frame late. No far end: no figure.
TEST(Erle, IsInputOverOutputEnergyWithARoundingFloorAndNeedsAFarEnd) {
    cli::TempDir tmp;
    testkit::Recording sig = testkit::noise_echo({.seconds = 4.0});
    const std::vector<int16_t> &near = sig.near;
    cli::Result r = cli::process_files(tmp, 16000, 1, near, 1, sig.far, {"--near-talk", "0-2"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string json = qtest::read_file(tmp.path("m.json"));
    const std::vector<int16_t> out = cli::read_wav(tmp.path("out.wav")).samples;
    const double erle = cli::json_number(json, "erle_db");
    const size_t counted = near.size() - 2 * 16000 - 128;
    ASSERT_NEAR(cli::json_number(json, "erle_seconds"), counted / 16000.0, 0.005);  // 2 decimals
    double in = 0, left = 0;
    for (size_t t = 2 * 16000; t < 2 * 16000 + counted; ++t) {
        in += double(near[t]) * near[t];
        left += double(out[t + 128]) * out[t + 128];
    }
    EXPECT_NEAR(erle, 10 * std::log10(in / (left + counted / 12.0)), 0.01);
    char line[64];
    std::snprintf(line, sizeof line, "\nERLE: %.1f dB\n", erle);
    EXPECT_NE(r.out.find(line), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("(known near-end talk)"), std::string::npos) << r.out;

    std::fill(sig.far.begin(), sig.far.end(), 0);
    r = cli::process_files(tmp, 16000, 1, near, 1, sig.far);
    EXPECT_TRUE(std::isnan(cli::json_number(qtest::read_file(tmp.path("m.json")), "erle_db")));
    EXPECT_NE(r.out.find("ERLE: n/a"), std::string::npos) << r.out;
}

// ---- --align auto: the bulk delay found, reported and taken out of the far end ----

// Amplitude-modulated noise on the loudspeaker; the microphone hears it `delay` samples
// later through three paths, plus its own noise. `delay` < 0: two unrelated low-pass noises.
testkit::Recording delayed_echo(int rate, double seconds, long delay) {
    std::mt19937 rng(7);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const size_t n = static_cast<size_t>(seconds * rate);
    const struct {
        long lag;
        double gain;
    } paths[] = {{0, 0.5}, {rate / 800, 0.2}, {rate / 200, -0.1}};
    testkit::Recording r;
    double smooth[2] = {0.0, 0.0};
    for (size_t t = 0; t < n; ++t) {
        const double envelope = 1.0 + 0.8 * std::sin(2 * M_PI * 2.0 * t / rate);
        smooth[0] = 0.99 * smooth[0] + 300 * gauss(rng);
        r.far.push_back(testkit::to_pcm(delay < 0 ? smooth[0] : 3000.0 * envelope * gauss(rng)));
    }
    for (long t = 0; t < static_cast<long>(n); ++t) {
        smooth[1] = 0.99 * smooth[1] + 300 * gauss(rng);
        double v = delay < 0 ? smooth[1] : 30.0 * gauss(rng);
        for (const auto &p : paths) {
            v += delay >= 0 && t >= delay + p.lag ? p.gain * r.far[t - delay - p.lag] : 0.0;
        }
        r.near.push_back(testkit::to_pcm(v));
    }
    return r;
}

class Align : public testing::TestWithParam<int> {};

TEST_P(Align, FindsA40msDelayWithin1msAndDelaysTheFarEndByIt) {
    const int rate = GetParam();
    const long delay = rate / 25;  // 40 ms
    const testkit::Recording rec = delayed_echo(rate, 3.0, delay);
    cli::TempDir tmp;
    const cli::Result r =
        cli::process_files(tmp, rate, 1, rec.near, 1, rec.far, {"--align", "auto"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string json = qtest::read_file(tmp.path("m.json"));
    EXPECT_NEAR(cli::json_number(json, "delay_estimated_ms"), 40.0, 1.0) << json;
    EXPECT_NE(r.out.find("delay: 40.0 ms estimated; far end delayed by"), std::string::npos)
        << r.out;
    const size_t applied = delay - 32;  // 32 samples are kept in front of the strongest path
    EXPECT_DOUBLE_EQ(cli::json_number(json, "far_delay_applied_ms"),
                     std::round(100000.0 * applied / rate) / 100.0);
    EXPECT_EQ(cli::read_wav(tmp.path("out.wav")).samples,
              cli::reference_output(rec.near, cli::delayed(rec.far, 1, applied), rate, 1, 1));
}

INSTANTIATE_TEST_SUITE_P(Rates, Align, testing::Values(8000, 16000, 48000));

// Beyond the filter's reach: unaligned, the echo stays and the tool says why; aligned, it
// goes. Without an echo, nothing may pass for one.
TEST(Align, HelpsBeyondTheFilterAndLeavesAFarEndWithoutEchoAlone) {
    cli::TempDir tmp;
    auto run = [&](const testkit::Recording &rec, int rate, std::vector<std::string> extra) {
        const cli::Result r = cli::process_files(tmp, rate, 1, rec.near, 1, rec.far, extra);
        EXPECT_EQ(r.status, 0) << r.err;
        return std::pair(r.err, qtest::read_file(tmp.path("m.json")));
    };
    const testkit::Recording far_echo = delayed_echo(16000, 3.0, 2400);  // 150 ms
    const auto [unaligned_err, unaligned] = run(far_echo, 16000, {});
    const auto [aligned_err, aligned] = run(far_echo, 16000, {"--align", "auto"});
    EXPECT_GT(cli::json_number(aligned, "erle_db"), cli::json_number(unaligned, "erle_db") + 10);
    EXPECT_NE(unaligned_err.find("the echo seems to lag the far end by 150.0 ms"),
              std::string::npos)
        << unaligned_err;
    EXPECT_EQ(aligned_err, "");

    const auto [err, json] = run(delayed_echo(8000, 4.0, -1), 8000, {"--align", "auto"});
    EXPECT_NE(err.find("--align auto found no clear echo delay"), std::string::npos) << err;
    EXPECT_TRUE(std::isnan(cli::json_number(json, "delay_estimated_ms"))) << json;
    EXPECT_EQ(cli::json_number(json, "far_delay_applied_ms"), 0.0);
}

// ---- replay: dumps the library wrote while the tool processed a file reproduce the recorded
// output bit for bit with the same settings, and a difference is located ----

struct Replay : testing::Test {
    // Processes a 2-near / 1-far recording whose length is not whole frames, with the
    // library dumping into dumps/ under id 0.
    void record(std::vector<std::string> extra = {}) {
        testkit::Recording sig = testkit::noise_echo({.near_channels = 2, .seconds = 1.5});
        sig.near.resize(sig.near.size() - 2 * 50);
        sig.far.resize(sig.far.size() - 50);
        std::filesystem::create_directory(tmp.path("dumps"));
        const cli::Result r = cli::process_files(tmp, 16000, 2, sig.near, 1, sig.far, extra, env);
        ASSERT_EQ(r.status, 0) << r.err;
    }
    // Dumping stays switched on: the replay must neither fail on it nor rewrite the dumps.
    cli::Result replay(std::vector<std::string> extra = {}) {
        extra.insert(extra.begin(), {"replay", tmp.path("dumps"), "--id", "0", "--rate", "16000",
                                     "--near-channels", "2", "--far-channels", "1"});
        return cli::run(extra, env);
    }
    std::string output() const { return tmp.path("dumps/Audio_AEC_output_data_0.pcm"); }

    cli::TempDir tmp;
    cli::Env env = {{"AUDIO_AEC_DUMP", "1"}, {"AUDIO_DUMP_PATH", tmp.path("dumps")}};
};

TEST_F(Replay, DumpsOfAProcessedFileReplayBitExact) {
    record();
    const std::string recorded = qtest::read_file(output());
    const cli::Result r = replay({"-o", tmp.path("replayed.pcm")});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("result: bit-exact\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("187 frames"), std::string::npos) << r.out;
    EXPECT_EQ(qtest::read_file(tmp.path("replayed.pcm")), recorded);
    EXPECT_EQ(qtest::read_file(output()), recorded);
    // The tool's own output is the recorded output without the padded tail.
    std::vector<int16_t> tail_cut = qtest::read_pcm(output());
    tail_cut.resize(tail_cut.size() - 2 * 50);
    EXPECT_EQ(cli::read_wav(tmp.path("out.wav")).samples, tail_cut);
}

TEST_F(Replay, ReportsTheFirstDifferingFrame) {
    record();
    std::vector<int16_t> recorded = qtest::read_pcm(output());
    recorded[2 * (5 * 128 + 17) + 1] += 300;  // frame 5, second channel
    recorded[2 * (9 * 128)] -= 1000;
    cli::write_raw(output(), recorded);
    const cli::Result r = replay();
    EXPECT_EQ(r.status, 3) << r.err;
    for (const char *line :
         {"result: differs from the recorded output\n", "first differing frame: 5 (sample 657)\n",
          "max difference: 1000\n", "SNR: "}) {
        EXPECT_NE(r.out.find(line), std::string::npos) << r.out;
    }
}

TEST(Demo, RemovesAtLeast20dBOfEchoFromTheBundledRecording) {
    cli::TempDir tmp;
    const cli::Result r =
        cli::run({"demo", "-o", tmp.path("demo-out.wav"), "--metrics-json", tmp.path("m.json")});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string json = qtest::read_file(tmp.path("m.json"));
    EXPECT_GE(cli::json_number(json, "erle_db"), 20.0) << json;
}

// The library prints on standard output by default; the tool moves its lines to standard
// error and, unless DML_PATH says otherwise, keeps only its errors.
TEST(Output, LibraryMessagesNeverReachStandardOutput) {
    cli::TempDir tmp;
    const testkit::Recording sig = testkit::noise_echo({.seconds = 0.5});
    const cli::Result r =
        cli::process_files(tmp, 16000, 1, sig.near, 1, sig.far, {},
                           {{"DML_PATH", tmp.write_file("level.json", "{\"debug_level\": 7}")}});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("\nERLE: "), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("ALGO_MSG"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find("[ALGO_MSG_MSG] [AEC]Floating point mode.\n"), std::string::npos) << r.err;
}

}  // namespace
