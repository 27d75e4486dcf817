// The ERLE figure of `process`: the formula, and which stretches it is measured over.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "cli_support.h"
#include "testkit/signals.h"

namespace {

constexpr int kRate = 16000;

struct Measured {
    double erle;
    double seconds;
    std::string summary;
    std::vector<int16_t> out;
};

class Erle : public testing::Test {
protected:
    void SetUp() override {
        testkit::Scenario s;
        s.seconds = 4.0;
        const testkit::Recording sig = testkit::noise_echo(s);
        near_ = sig.near;
        far_ = sig.far;
    }

    Measured measure(std::vector<std::string> extra = {}) {
        const cli::Result r = cli::process_files(tmp_, kRate, 1, near_, 1, far_, extra);
        EXPECT_EQ(r.status, 0) << r.err;
        const std::string json = qtest::read_file(tmp_.path("m.json"));
        return {cli::json_number(json, "erle_db"), cli::json_number(json, "erle_seconds"), r.out,
                cli::read_wav(tmp_.path("out.wav")).samples};
    }

    // A second talker: loud independent noise on the microphone over [from, to) seconds.
    void add_talker(double from, double to) {
        std::mt19937 rng(5);
        std::normal_distribution<double> gauss(0.0, 6000.0);
        for (size_t t = static_cast<size_t>(from * kRate); t < static_cast<size_t>(to * kRate);
             ++t) {
            near_[t] = testkit::to_pcm(near_[t] + gauss(rng));
        }
    }

    cli::TempDir tmp_;
    std::vector<int16_t> near_, far_;
};

TEST_F(Erle, IsInputOverOutputEnergyWithARoundingFloor) {
    // Everything before 2 s is declared near-end talk: the figure covers the frames of the
    // last 2 s, where the far end never stops, but the last, whose output comes one frame
    // (128 samples) late and so lies beyond the end.
    const Measured m = measure({"--near-talk", "0-2"});
    const size_t counted = near_.size() - 2 * kRate - 128;
    ASSERT_NEAR(m.seconds, counted / double(kRate), 0.005);  // the file keeps 2 decimals
    double in = 0, out = 0;
    for (size_t t = 2 * kRate; t < 2 * kRate + counted; ++t) {
        in += double(near_[t]) * near_[t];
        out += double(m.out[t + 128]) * m.out[t + 128];
    }
    const double expected = 10 * std::log10(in / (out + counted / 12.0));
    EXPECT_NEAR(m.erle, expected, 0.01);
    char line[64];
    std::snprintf(line, sizeof line, "\nERLE: %.1f dB\n", m.erle);
    EXPECT_NE(m.summary.find(line), std::string::npos) << m.summary;
    EXPECT_NE(m.summary.find("(known near-end talk)"), std::string::npos) << m.summary;
}

TEST_F(Erle, CountsOnlyWhereTheFarEndPlays) {
    // Loudspeaker (and so its echo) silent over [1, 2) and [3, 4): about 2 s remain, plus
    // up to the 100 ms the level window takes to empty after each stop.
    for (auto *x : {&far_, &near_}) {
        std::fill(x->begin() + kRate, x->begin() + 2 * kRate, 0);
        std::fill(x->begin() + 3 * kRate, x->end(), 0);
    }
    const Measured m = measure();
    EXPECT_GE(m.seconds, 1.9);
    EXPECT_LE(m.seconds, 2.25);
}

TEST_F(Erle, LeavesOutNearEndTalkFoundByLevel) {
    const Measured clean = measure();
    EXPECT_GE(clean.seconds, 3.5);
    add_talker(2.0, 2.5);
    const Measured talk = measure();
    // The burst, and the hangover around it, are left out; what remains measures as before.
    EXPECT_LE(talk.seconds, clean.seconds - 1.0);
    EXPECT_NEAR(talk.erle, clean.erle, 3.0);
    // Declared instead of found: only the span itself goes.
    const Measured declared = measure({"--near-talk", "2.0-2.5"});
    EXPECT_NEAR(declared.seconds, clean.seconds - 0.5, 0.05);
    EXPECT_NEAR(declared.erle, clean.erle, 3.0);
}

TEST_F(Erle, IsNotAvailableWithoutFarEnd) {
    std::fill(far_.begin(), far_.end(), 0);
    const Measured m = measure();
    EXPECT_TRUE(std::isnan(m.erle));
    EXPECT_NE(m.summary.find("ERLE: n/a"), std::string::npos) << m.summary;
}

}  // namespace
