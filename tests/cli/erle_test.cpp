// The ERLE figure of `process`: the formula, and which stretches it is measured over.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "cli_support.h"
#include "testkit/signals.h"

namespace {

constexpr int kRate = 16000;

struct Erle : testing::Test {
    // ERLE, seconds measured, the summary and the output.
    std::tuple<double, double, std::string, std::vector<int16_t>> measure(
        std::vector<std::string> extra = {}) {
        const cli::Result r = cli::process_files(tmp, kRate, 1, near, 1, far, extra);
        EXPECT_EQ(r.status, 0) << r.err;
        const std::string json = qtest::read_file(tmp.path("m.json"));
        return {cli::json_number(json, "erle_db"), cli::json_number(json, "erle_seconds"), r.out,
                cli::read_wav(tmp.path("out.wav")).samples};
    }
    cli::TempDir tmp;
    testkit::Recording sig = testkit::noise_echo({.seconds = 4.0});
    std::vector<int16_t> &near = sig.near, &far = sig.far;
};

TEST_F(Erle, IsInputOverOutputEnergyWithARoundingFloor) {
    // Before 2 s is declared near-end talk: the figure covers the frames of the last 2 s,
    // where the far end never stops, but the last, whose output comes one frame late.
    const auto [erle, seconds, summary, out] = measure({"--near-talk", "0-2"});
    const size_t counted = near.size() - 2 * kRate - 128;
    ASSERT_NEAR(seconds, counted / double(kRate), 0.005);  // the file keeps 2 decimals
    double in = 0, left = 0;
    for (size_t t = 2 * kRate; t < 2 * kRate + counted; ++t) {
        in += double(near[t]) * near[t];
        left += double(out[t + 128]) * out[t + 128];
    }
    EXPECT_NEAR(erle, 10 * std::log10(in / (left + counted / 12.0)), 0.01);
    char line[64];
    std::snprintf(line, sizeof line, "\nERLE: %.1f dB\n", erle);
    EXPECT_NE(summary.find(line), std::string::npos) << summary;
    EXPECT_NE(summary.find("(known near-end talk)"), std::string::npos) << summary;
}

TEST_F(Erle, IsNotAvailableWithoutFarEnd) {
    std::fill(far.begin(), far.end(), 0);
    const auto [erle, seconds, summary, out] = measure();
    EXPECT_TRUE(std::isnan(erle));
    EXPECT_NE(summary.find("ERLE: n/a"), std::string::npos) << summary;
}

}  // namespace
