// `--align auto`: the bulk delay of the echo behind the far end is found, reported, and
// taken out of the far end before processing.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "cli_support.h"
#include "reference.h"

namespace {

struct Recording {
    std::vector<int16_t> near, far;
};

// Amplitude-modulated noise on the loudspeaker; the microphone hears it `delay` samples
// later through three paths, plus its own noise.
Recording delayed_echo(int rate, double seconds, size_t delay) {
    std::mt19937 rng(7);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const size_t n = static_cast<size_t>(seconds * rate);
    Recording r;
    r.far.resize(n);
    r.near.resize(n);
    for (size_t t = 0; t < n; ++t) {
        const double envelope = 1.0 + 0.8 * std::sin(2 * M_PI * 2.0 * t / rate);
        r.far[t] = static_cast<int16_t>(std::lround(3000.0 * envelope * gauss(rng)));
    }
    const struct {
        size_t lag;
        double gain;
    } paths[] = {
        {0, 0.5}, {static_cast<size_t>(rate / 800), 0.2}, {static_cast<size_t>(rate / 200), -0.1}};
    for (size_t t = 0; t < n; ++t) {
        double v = 30.0 * gauss(rng);
        for (const auto &p : paths) {
            if (t >= delay + p.lag) {
                v += p.gain * r.far[t - delay - p.lag];
            }
        }
        r.near[t] = static_cast<int16_t>(std::lround(v));
    }
    return r;
}

class Align : public testing::TestWithParam<int> {};

TEST_P(Align, FindsA40msDelayWithin1msAndDelaysTheFarEndByIt) {
    const int rate = GetParam();
    const size_t delay = static_cast<size_t>(rate / 25);  // 40 ms
    const Recording rec = delayed_echo(rate, 3.0, delay);
    cli::TempDir tmp;
    const cli::Result r =
        cli::process_files(tmp, rate, 1, rec.near, 1, rec.far, {"--align", "auto"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string json = qtest::read_file(tmp.path("m.json"));
    EXPECT_NEAR(cli::json_number(json, "delay_estimated_ms"), 40.0, 1.0) << json;
    EXPECT_NE(r.out.find("delay: 40.0 ms estimated; far end delayed by"), std::string::npos)
        << r.out;
    // 32 samples are kept in front of the strongest path.
    const size_t applied = delay - 32;
    EXPECT_DOUBLE_EQ(cli::json_number(json, "far_delay_applied_ms"),
                     std::round(100000.0 * applied / rate) / 100.0);
    EXPECT_EQ(cli::read_wav(tmp.path("out.wav")).samples,
              cli::reference_output(rec.near, cli::delayed(rec.far, 1, applied), rate, 1, 1));
}

INSTANTIATE_TEST_SUITE_P(Rates, Align, testing::Values(8000, 16000, 48000));

// A delay beyond the filter's reach: unaligned, the echo stays and the tool says why;
// aligned, it goes.
TEST(Align, BeatsAnUnalignedRunWhenTheDelayExceedsTheFilter) {
    const int rate = 16000;
    const Recording rec = delayed_echo(rate, 3.0, 2400);  // 150 ms
    cli::TempDir tmp;
    auto erle = [&](std::vector<std::string> extra, std::string *err) {
        const cli::Result r = cli::process_files(tmp, rate, 1, rec.near, 1, rec.far, extra);
        EXPECT_EQ(r.status, 0) << r.err;
        *err = r.err;
        return cli::json_number(qtest::read_file(tmp.path("m.json")), "erle_db");
    };
    std::string unaligned_err, aligned_err;
    const double unaligned = erle({}, &unaligned_err);
    const double aligned = erle({"--align", "auto"}, &aligned_err);
    EXPECT_GT(aligned, unaligned + 10.0);
    EXPECT_NE(unaligned_err.find("the echo seems to lag the far end by 150.0 ms"),
              std::string::npos)
        << unaligned_err;
    EXPECT_EQ(aligned_err, "");
}

TEST(Align, AFarEndWithoutEchoIsLeftAlone) {
    const int rate = 8000;
    // Two unrelated low-pass noises: nothing to find, and nothing may pass for an echo.
    std::mt19937 rng(11);
    std::normal_distribution<double> gauss(0.0, 300.0);
    Recording rec;
    for (auto *x : {&rec.near, &rec.far}) {
        double smooth = 0.0;
        for (int t = 0; t < 4 * rate; ++t) {
            smooth = 0.99 * smooth + gauss(rng);
            x->push_back(static_cast<int16_t>(std::lround(smooth)));
        }
    }
    cli::TempDir tmp;
    const cli::Result r =
        cli::process_files(tmp, rate, 1, rec.near, 1, rec.far, {"--align", "auto"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("--align auto found no clear echo delay"), std::string::npos) << r.err;
    const std::string json = qtest::read_file(tmp.path("m.json"));
    EXPECT_TRUE(std::isnan(cli::json_number(json, "delay_estimated_ms"))) << json;
    EXPECT_EQ(cli::json_number(json, "far_delay_applied_ms"), 0.0);
}

}  // namespace
