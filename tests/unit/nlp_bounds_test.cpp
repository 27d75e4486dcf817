// Coherences that rounding puts above 1: the gains derived from them stay in [0, 1], so the
// tracked minimum never goes negative and its logarithm never turns the overdrive into NaN.
#include <gtest/gtest.h>

#include <cmath>

#include "core/nlp.h"
#include "fixture.h"

namespace {

TEST(NlpBounds, CoherenceRoundedAboveOneGivesNoNegativeGain) {
    auto inst = qtest::make_instance(16000);
    aec_t &aec = inst->get()->aec_inst;
    for (int i = 0; i < kAecBins; ++i) {
        aec.sd[i] = 1.0f;
        aec.sy[i] = 1.0f;
        aec.se[i] = 1.0f;
        // |syd|^2 one rounding step above sy * sd: fully coherent, plus an ulp.
        aec.syd[i][0] = std::nextafter(1.0f, 2.0f);
        aec.syd[i][1] = 0.0f;
        aec.sde[i][0] = 0.5f;
        aec.sde[i][1] = 0.0f;
    }
    float cohde[kAecBins], cohyd[kAecBins];
    nlp_coherence(inst->get(), cohde, cohyd);
    for (int i = 0; i < kAecBins; ++i) {
        ASSERT_EQ(cohyd[i], 1.0f) << "bin " << i;
    }
    // Both branches: no echo seen yet, and an echo minimum already found.
    for (float xd_min : {1.0f, 0.5f}) {
        aec.hNlXdAvgMin = xd_min;
        const nlp_gain_t g = nlp_gains(inst->get(), cohde, cohyd);
        EXPECT_GE(g.hNlFbLow, 0.0f);
        EXPECT_GE(g.hNlFb, 0.0f);
        for (int i = 0; i < kAecBins; ++i) {
            ASSERT_GE(inst->get()->hNl[i], 0.0f) << "bin " << i;
        }
        nlp_track_minimum(inst->get(), g.hNlFbLow);
        ASSERT_GE(aec.hNlFbMin, 0.0f);
        for (int b = 0; b < 7; ++b) {
            ASSERT_TRUE(std::isfinite(aec.overDrive[b])) << "band " << b;
        }
    }
}

}  // namespace
