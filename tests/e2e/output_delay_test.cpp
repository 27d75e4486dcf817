// The output delay every front end assumes (testkit::output_delay) is the lag the library's
// output actually has in each run mode; python/qenaec and tests/python/test_agreement.py
// hold the binding's value to the same.
#include <gtest/gtest.h>

#include <random>

#include "testkit/frame_loop.h"
#include "testkit/signals.h"

namespace {

using testkit::Mode;

// The lag (0..299 samples) at which the output best matches the input: a loud talker on the
// microphone and a faint, unrelated far end, which every mode passes.
size_t measured_delay(int rate, Mode mode) {
    testkit::Recording rec;
    rec.layout.rate = rate;
    std::mt19937 rng(5);
    std::normal_distribution<double> gauss(0.0, 1.0);
    for (int t = 0; t < rate; ++t) {
        rec.near.push_back(testkit::to_pcm(3000 * gauss(rng)));
        rec.far.push_back(testkit::to_pcm(20 * gauss(rng)));
    }
    const std::vector<int16_t> out = testkit::process(rec, mode);
    size_t best = 0;
    double best_corr = -1;
    for (size_t lag = 0; lag < 300; ++lag) {
        double corr = 0;
        for (size_t t = rate / 4; t < 3 * size_t(rate) / 4; ++t) {
            corr += double(out[t]) * rec.near[t - lag];
        }
        if (corr > best_corr) {
            best_corr = corr;
            best = lag;
        }
    }
    return best;
}

TEST(OutputDelay, IsTheLagOfEachModesOutput) {
    for (int rate : {8000, 48000}) {
        for (Mode mode : {Mode::kFull, Mode::kLinear, Mode::kSplit}) {
            EXPECT_EQ(measured_delay(rate, mode), testkit::output_delay(mode))
                << testkit::mode_name(mode) << " at " << rate << " Hz";
        }
    }
}

}  // namespace
