// `--align auto`: the bulk delay of the echo behind the far end is found, reported, and
// taken out of the far end before processing.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "cli_support.h"
#include "testkit/signals.h"

namespace {

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

}  // namespace
