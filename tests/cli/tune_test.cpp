// `qenaec tune` on a synthetic device whose loudspeaker distorts in one band: the search must
// spend its suppression there, `process --config` measure the ERLE it reports, and the thread
// count change nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "cli_support.h"
#include "testkit/signals.h"

namespace {

constexpr int kRate = 8000;

// A linear-phase band pass of lo..hi Hz (windowed sinc, 255 taps): the output lags the input
// by 127 samples.
std::vector<double> band_pass(const std::vector<double> &x, double lo, double hi) {
    constexpr int kTaps = 255;
    std::vector<double> h(kTaps);
    for (int k = 0; k < kTaps; ++k) {
        const double t = k - kTaps / 2;
        const auto low_pass = [t](double hz) {
            const double w = 2.0 * hz / kRate;
            return t == 0.0 ? w : std::sin(std::numbers::pi * w * t) / (std::numbers::pi * t);
        };
        h[k] = (low_pass(hi) - low_pass(lo)) *
               (0.54 - 0.46 * std::cos(2 * std::numbers::pi * k / (kTaps - 1)));
    }
    std::vector<double> y(x.size(), 0.0);
    for (size_t n = 0; n < x.size(); ++n) {
        for (size_t k = 0; k < h.size() && k <= n; ++k) {
            y[n] += h[k] * x[n - k];
        }
    }
    return y;
}

double energy(const std::vector<double> &x) {
    return std::inner_product(x.begin(), x.end(), x.begin(), 0.0);
}

// The kit's echo above 200 Hz, plus the loudspeaker's distortion |x|x kept to 400..900 Hz at
// three times the linear echo's power there: the linear stage cannot model it, and with the
// default edges at 8 kHz it lies in band 2 (bins 7..36). The talker: noise, 0.4 s on and off.
// Writes near.wav, far.wav and talker.wav into `dir`.
void write_leaky_device(const cli::TempDir &dir, double seconds) {
    const testkit::Recording rec =
        testkit::noise_echo({.rate = kRate, .seconds = seconds, .seed = 5});
    const size_t n = rec.far.size();
    // A small loudspeaker plays nothing below 200 Hz.
    const std::vector<double> echo =
        band_pass(std::vector<double>(rec.near.begin(), rec.near.end()), 200.0, kRate / 2.0);
    std::vector<double> driven(n);
    for (size_t t = 0; t < n; ++t) {
        driven[t] = std::fabs(static_cast<double>(rec.far[t])) * rec.far[t];
    }
    const std::vector<double> distortion = band_pass(driven, 400.0, 900.0);
    const double gain = std::sqrt(3.0 * energy(band_pass(echo, 400.0, 900.0)) / energy(distortion));
    std::vector<int16_t> mic, talker;
    std::mt19937 rng(11);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const size_t burst = static_cast<size_t>(0.4 * kRate);
    for (size_t t = 0; t < n; ++t) {
        mic.push_back(testkit::to_pcm(echo[t] + gain * distortion[t]));
        const double voice = (t / burst) % 2 == 1 ? 2000.0 * gauss(rng) : 0.0;
        talker.push_back(testkit::to_pcm(voice + 33.0 * gauss(rng)));
    }
    cli::write_wav(dir.path("near.wav"), kRate, 1, mic);
    cli::write_wav(dir.path("far.wav"), kRate, 1, rec.far);
    cli::write_wav(dir.path("talker.wav"), kRate, 1, talker);
}

// The quick search on the device in `dir`, then `extra`.
cli::Result tune(const cli::TempDir &dir, std::vector<std::string> extra) {
    extra.insert(extra.begin(),
                 {"tune", "--near", dir.path("near.wav"), "--far", dir.path("far.wav"), "--talker",
                  dir.path("talker.wav"), "--quick"});
    return cli::run(extra);
}

TEST(Tune, SpendsSuppressionOnTheLeakyBandAndProcessGetsItsResult) {
    cli::TempDir tmp;
    write_leaky_device(tmp, 4.0);
    const cli::Result r = tune(tmp, {"--max-near-loss", "10", "--jobs", "2", "--json",
                                     tmp.path("t.json"), "--csv", tmp.path("c.csv")});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string json = qtest::read_file(tmp.path("t.json"));
    auto raised = [&](int band) {
        const std::string at = ".intensity." + std::to_string(band);
        return cli::json_number(json, "tuned" + at) - cli::json_number(json, "default" + at);
    };
    EXPECT_GE(raised(2), 6) << json;
    for (int band : {0, 1, 3, 4, 5, 6}) {
        EXPECT_LT(raised(band), raised(2)) << "band " << band << "\n" << json;
    }
    EXPECT_LE(cli::json_number(json, "tuned.near_loss_db"), 10.0);
    EXPECT_EQ(std::ranges::count(qtest::read_file(tmp.path("c.csv")), '\n'),
              cli::json_number(json, "candidates") + 1);

    // process --config measures the ERLE tune reported.
    const cli::Result p = cli::process(tmp, {"--config", tmp.path("t.json")});
    ASSERT_EQ(p.status, 0) << p.err;
    EXPECT_NEAR(cli::json_number(qtest::read_file(tmp.path("m.json")), "erle_db"),
                cli::json_number(json, "tuned.erle_db"), 0.05);
}

// The candidates run on threads; their figures and order must not depend on how many.
TEST(Tune, SameResultWhateverTheThreadCount) {
    cli::TempDir tmp;
    write_leaky_device(tmp, 1.5);
    std::string csv[2];
    for (int i = 0; i < 2; ++i) {
        const std::string path = tmp.path(i == 0 ? "one.csv" : "three.csv");
        const cli::Result r = tune(tmp, {"--jobs", i == 0 ? "1" : "3", "--csv", path});
        ASSERT_EQ(r.status, 0) << r.err;
        csv[i] = qtest::read_file(path);
    }
    EXPECT_GT(std::ranges::count(csv[0], '\n'), 100);
    EXPECT_EQ(csv[1], csv[0]);
}

}  // namespace
