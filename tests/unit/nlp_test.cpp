// Nonlinear processing: divergence hysteresis, coherences, the preferred band and its
// quantiles, minimum tracking and overdrive, saturation, synthesis, and the whole block.
// Coherences that rounding puts above 1 must still give gains in [0, 1], so the tracked
// minimum never goes negative and its logarithm never turns the overdrive into NaN.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "core/nlp.h"
#include "kernels/coherence.h"
#include "dsp/comfort_noise.h"
#include "fixture.h"
#include "signal_ref.h"

namespace {

// The steps on an instance's arrays, handed over as NonLinearProcessing does.
void update_divergence(aec_workingbuf_t *buf) {
    aec_t &a = buf->aec_inst;
    nlp_update_divergence(a.sd, a.se, &a.divergeState, buf->dfw, buf->efw);
}

void coherences(aec_workingbuf_t *buf, float *cohde, float *cohyd) {
    aec_t &a = buf->aec_inst;
    coherence({a.sd, a.se, a.sy, a.sde, a.syd}, cohde, cohyd);
}

nlp_gain_t gains(aec_workingbuf_t *buf, const float *cohde, const float *cohyd) {
    aec_t &a = buf->aec_inst;
    return nlp_gains(cohde, cohyd, a.mult, &a.hNlXdAvgMin, a.minOverDrive, a.overDrive, buf->hNl);
}

void track_minimum(aec_workingbuf_t *buf, float hNlFbLow) {
    aec_t &a = buf->aec_inst;
    nlp_track_minimum(hNlFbLow, a.mult,
                      {&a.hNlFbMin, &a.hNlFbLocalMin, &a.hNlXdAvgMin, &a.hNlNewMin, &a.hNlMinCtr},
                      a.targetSupp, a.minOverDrive, a.overDrive);
}

void smooth_overdrive(aec_workingbuf_t *buf) {
    nlp_smooth_overdrive(buf->aec_inst.overDrive,
                         buf->aec_saturated_flag.nearend_saturated_ind == 1,
                         buf->aec_inst.overDriveSm);
}

// Smoothed powers with the given totals: sd all 1 (sum 129), se all `se`.
void set_powers(aec_workingbuf_t *buf, float se) {
    std::fill(std::begin(buf->aec_inst.sd), std::end(buf->aec_inst.sd), 1.0f);
    std::fill(std::begin(buf->aec_inst.se), std::end(buf->aec_inst.se), se);
}

TEST(Nlp, DivergenceEntersAtOnceAndLeavesOnlyAboveFivePercent) {
    auto inst = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst->get();
    struct Step {
        float se;  // per bin, against sd = 1
        int state_after;
    };
    const Step steps[] = {
        {1.0f, 0},          // equal sums: not diverged
        {1.001f, 1},        // error slightly above the near end: diverged at once
        {1.0f, 1},          // back to equal: stays
        {1.0f / 1.04f, 1},  // near end 4% above: stays
        {1.0f / 1.06f, 0},  // near end 6% above: recovers
        {1.0f / 1.04f, 0},  // and stays recovered below the entry point
    };
    for (const Step &s : steps) {
        set_powers(buf, s.se);
        std::iota(std::begin(buf->dfw), std::end(buf->dfw), 1.0f);
        std::fill(std::begin(buf->efw), std::end(buf->efw), -7.0f);
        update_divergence(buf);
        EXPECT_EQ(buf->aec_inst.divergeState, s.state_after) << "se " << s.se;
        // While diverged the block is built from the near-end spectrum.
        const float *expect_efw = s.state_after ? buf->dfw : nullptr;
        for (int i = 0; i < 258; ++i) {
            ASSERT_EQ(buf->efw[i], expect_efw ? expect_efw[i] : -7.0f) << "float " << i;
        }
    }
}

TEST(Nlp, CoherencesWithZeroNearEndPowerAreZero) {
    auto inst = qtest::make_instance(8000);
    aec_t &aec = inst->get()->aec_inst;
    for (int i = 0; i < 129; ++i) {
        aec.sde[i][0] = 3.0f;
        aec.sde[i][1] = 4.0f;  // |sde|^2 = 25
        aec.syd[i][0] = 1.0f;
        aec.syd[i][1] = -2.0f;  // |syd|^2 = 5
        aec.sd[i] = i == 7 ? 0.0f : 5.0f;
        aec.se[i] = 10.0f;
        aec.sy[i] = 2.5f;
    }
    float cohde[129], cohyd[129];
    coherences(inst->get(), cohde, cohyd);
    for (int i = 0; i < 129; ++i) {
        EXPECT_FLOAT_EQ(cohde[i], i == 7 ? 0.0f : 0.5f) << "bin " << i;
        EXPECT_FLOAT_EQ(cohyd[i], i == 7 ? 0.0f : 0.4f) << "bin " << i;
    }
}

// An instance past its first echo (hNlXdAvgMin below 1) with no near-end talk.
std::unique_ptr<qtest::InstanceBlock> echo_seen(int rate) {
    auto inst = qtest::make_instance(rate);
    inst->get()->aec_inst.hNlXdAvgMin = 0.5f;
    return inst;
}

// Gains of the preferred band from its odd bins only, scrambled, with zeros elsewhere.
nlp_gain_t quantiles_of(int rate, const std::vector<float> &pref) {
    auto inst = echo_seen(rate);
    const nlp_pref_band_t band = nlp_pref_band(rate / 8000);
    float cohde[129] = {}, cohyd[129] = {};
    for (int n = 0; n < band.size; ++n) {
        cohde[nlp_pref_bin(band, n)] = pref[n];
    }
    return gains(inst->get(), cohde, cohyd);
}

TEST(Nlp, FeedbackGainsAreQuantilesOfTheOddPreferredBins) {
    // 48 kHz: bins 1, 3, ..., 15; sorted indices 5 and 3.
    nlp_gain_t g = quantiles_of(48000, {0.7f, 0.1f, 0.5f, 0.3f, 0.8f, 0.2f, 0.6f, 0.4f});
    EXPECT_FLOAT_EQ(g.hNlFb, 0.6f);
    EXPECT_FLOAT_EQ(g.hNlFbLow, 0.4f);

    // 8 kHz: 48 bins 11..105; sorted indices 35 and 23.
    std::vector<float> pref(48);
    for (int n = 0; n < 48; ++n) {
        pref[n] = static_cast<float>((n * 29) % 48 + 1) / 100.0f;  // a permutation of 0.01..0.48
    }
    g = quantiles_of(8000, pref);
    EXPECT_FLOAT_EQ(g.hNlFb, 0.36f);
    EXPECT_FLOAT_EQ(g.hNlFbLow, 0.24f);
}

TEST(Nlp, EchoIncoherenceAveragesOnlyTheOddBins) {
    auto inst = qtest::make_instance(48000);
    float cohde[129] = {}, cohyd[129];
    std::fill(std::begin(cohyd), std::end(cohyd), 0.9f);
    for (int bin = 1; bin <= 15; bin += 2) {
        cohyd[bin] = 0.4f;
    }
    const nlp_gain_t g = gains(inst->get(), cohde, cohyd);
    // hNlXdAvg = 0.6 is below 0.75, so it becomes the minimum and the echo branch applies.
    EXPECT_FLOAT_EQ(inst->get()->aec_inst.hNlXdAvgMin, 0.6f);
    EXPECT_EQ(g.hNlFb, 0.0f);  // min(cohde = 0, 1 - cohyd)
}

TEST(Nlp, BeforeAnyEchoOverdriveStaysAtItsFloor) {
    auto inst = qtest::make_instance(16000);
    aec_t &aec = inst->get()->aec_inst;
    for (int b = 0; b < 7; ++b) {
        aec.minOverDrive[b] = 1.0f + b;
    }
    // No near-end power at all: zero coherences, full gains.
    float cohde[129], cohyd[129];
    std::fill(std::begin(aec.sd), std::end(aec.sd), 0.0f);
    coherences(inst->get(), cohde, cohyd);
    nlp_gain_t g = gains(inst->get(), cohde, cohyd);
    EXPECT_EQ(aec.hNlXdAvgMin, 1.0f);
    EXPECT_EQ(g.hNlFb, 1.0f);
    EXPECT_EQ(g.hNlFbLow, 1.0f);
    for (int b = 0; b < 7; ++b) {
        EXPECT_EQ(aec.overDrive[b], 1.0f + b);
    }
    for (float h : inst->get()->hNl) {
        ASSERT_EQ(h, 1.0f);
    }

    // Near-end talk (d and e coherent, y incoherent with d): gains follow cohde.
    std::vector<float> de(129, 0.99f), yd(129, 0.0f);
    de[0] = 0.2f;  // outside the preferred band
    g = gains(inst->get(), de.data(), yd.data());
    EXPECT_NEAR(g.hNlFb, 0.99f, 1e-6f);
    EXPECT_EQ(g.hNlFbLow, g.hNlFb);
    EXPECT_EQ(inst->get()->hNl[0], 0.2f);
    EXPECT_EQ(inst->get()->hNl[64], 0.99f);
}

TEST(Nlp, NewMinimumSetsOverdriveTwoBlocksLater) {
    auto inst = qtest::make_instance(16000);  // mult 2
    aec_t &aec = inst->get()->aec_inst;
    const float target[7] = {-3.0f, 0.0f, -3.0f, -6.9f, -80.0f, -1.0f, -30.0f};
    const float floor[7] = {1.0f, 2.0f, 5.0f, 1.0f, 90.0f, 0.0f, 8.0f};
    std::copy(target, target + 7, aec.targetSupp);
    std::copy(floor, floor + 7, aec.minOverDrive);
    aec.hNlXdAvgMin = 0.5f;

    track_minimum(inst->get(), 0.6f);  // not strictly below 0.6: ignored
    EXPECT_EQ(aec.hNlNewMin, 0);
    EXPECT_FLOAT_EQ(aec.hNlFbMin, 1.0f);
    EXPECT_EQ(aec.hNlFbLocalMin, 1.0f);
    EXPECT_FLOAT_EQ(aec.hNlXdAvgMin, 0.5f + 0.0002f);

    track_minimum(inst->get(), 0.3f);
    EXPECT_EQ(aec.hNlFbMin, 0.3f);
    EXPECT_FLOAT_EQ(aec.hNlFbLocalMin, 0.3f + 0.0004f);
    EXPECT_EQ(aec.hNlNewMin, 1);
    EXPECT_EQ(aec.hNlMinCtr, 1);
    EXPECT_EQ(aec.overDrive[0], 2.0f);  // not yet accepted

    track_minimum(inst->get(), 0.9f);
    EXPECT_EQ(aec.hNlNewMin, 0);
    EXPECT_EQ(aec.hNlMinCtr, 0);
    EXPECT_FLOAT_EQ(aec.hNlFbLocalMin, 0.3f + 0.0008f);
    for (int b = 0; b < 7; ++b) {
        const double q = target[b] / std::log(0.3);
        EXPECT_NEAR(aec.overDrive[b], std::max<double>(q, floor[b]), 1e-5) << "band " << b;
    }
}

// From overDriveSm = 2 towards the overdrive used (four times overDrive while the near end is
// saturated): rising by 10% of the gap a block, falling by 1%.
TEST(Nlp, SaturatedNearEndQuadruplesTheOverdriveUsed) {
    const float od[7] = {1.0f, 2.0f, 3.0f, 0.5f, 8.0f, 0.0f, 90.0f};
    for (int saturated : {0, 1}) {
        auto inst = qtest::make_instance(16000);
        aec_workingbuf_t *buf = inst->get();
        aec_t &aec = buf->aec_inst;
        buf->aec_saturated_flag.nearend_saturated_ind = saturated;
        std::copy(od, od + 7, aec.overDrive);
        double sm[7] = {2, 2, 2, 2, 2, 2, 2};
        for (int block = 0; block < 2; ++block) {
            smooth_overdrive(buf);
            for (int b = 0; b < 7; ++b) {
                const double used = od[b] * (saturated ? 4.0 : 1.0);
                sm[b] += (used - sm[b]) * (sm[b] <= used ? 0.1 : 0.01);
                EXPECT_NEAR(aec.overDriveSm[b], sm[b], 1e-4 * sm[b])
                    << "saturated " << saturated << " block " << block << " band " << b;
                EXPECT_EQ(aec.overDrive[b], od[b]);  // the stored overdrive is not scaled
            }
        }
    }
}

TEST(Nlp, WithoutEchoTheBlockPassesThroughOneBlockLate) {
    auto inst = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst->get();
    aec_t &aec = buf->aec_inst;
    aec.nearEndFrmPtr = buf->AudioNearEnd[0];
    const std::vector<float> s = qtest::uniform_noise(128 * 12, 10000.0f, 11);
    float *pair = buf->AudioNearEnd[0];
    for (int t = 0; t < 12; ++t) {
        std::copy(pair + 128, pair + 256, pair);
        std::copy(s.begin() + 128 * t, s.begin() + 128 * (t + 1), pair + 128);
        std::copy(pair, pair + 256, aec.eBuf);  // the linear stage removed nothing
        std::fill(std::begin(aec.yBuf), std::end(aec.yBuf), 0.0f);
        Aec_NLP_process(buf, nullptr, nullptr);
        if (t == 0) {
            continue;
        }
        for (int i = 0; i < 128; ++i) {
            // Unit gains through the approximate power carry a small excess.
            const float expect = s[128 * (t - 1) + i];
            ASSERT_NEAR(pair[i], expect, 0.005f * 10000.0f) << "block " << t << " sample " << i;
        }
    }
    EXPECT_EQ(aec.divergeState, 0);
}

TEST(Nlp, NeverLinearStagedInstanceUsesFirstNearEndBuffer) {
    auto inst = qtest::make_instance(8000);
    aec_workingbuf_t *buf = inst->get();
    ASSERT_EQ(buf->aec_inst.nearEndFrmPtr, nullptr);
    const std::vector<float> s = qtest::uniform_noise(256, 1000.0f, 12);
    std::copy(s.begin(), s.end(), buf->AudioNearEnd[0]);
    Aec_NLP_process(buf, buf->AudioNearEnd[1], buf->AudioNearEnd[1]);
    // The near end was analysed from that buffer, and the (silent) error output written over
    // its first block.
    float dfw_energy = 0.0f;
    for (float v : buf->dfw) {
        dfw_energy += v * v;
    }
    EXPECT_GT(dfw_energy, 0.0f);
    for (int i = 0; i < 128; ++i) {
        ASSERT_EQ(buf->AudioNearEnd[0][i], 0.0f) << "sample " << i;
        ASSERT_EQ(buf->AudioNearEnd[0][128 + i], s[128 + i]);
    }
}

// Output of one block over silent buffers with comfort noise on and the noise floor at `pow`.
std::vector<float> comfort_block(float pow) {
    auto inst = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst->get();
    buf->aec_data_property.comfort_noise_channel = 1;
    buf->aec_data_property.comfort_noise_min_pwr = 1e-6f;
    std::fill(std::begin(buf->aec_inst.dInitMinPow), std::end(buf->aec_inst.dInitMinPow), pow);
    comfort_noise_set_positions(0, 0);
    Aec_NLP_process(buf, nullptr, nullptr);
    return {buf->AudioNearEnd[0], buf->AudioNearEnd[0] + 128};
}

TEST(Nlp, ComfortNoiseFollowsTheCoreNoiseFloor) {
    const std::vector<float> quiet = comfort_block(100.0f);
    const std::vector<float> loud = comfort_block(400.0f);
    double energy = 0.0;
    for (int i = 0; i < 128; ++i) {
        energy += quiet[i] * quiet[i];
        ASSERT_NEAR(loud[i], 2.0f * quiet[i], 1e-4f * 32767.0f) << "sample " << i;
    }
    EXPECT_GT(energy, 0.0);
}

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
    coherences(inst->get(), cohde, cohyd);
    for (int i = 0; i < kAecBins; ++i) {
        ASSERT_EQ(cohyd[i], 1.0f) << "bin " << i;
    }
    // Both branches: no echo seen yet, and an echo minimum already found.
    for (float xd_min : {1.0f, 0.5f}) {
        aec.hNlXdAvgMin = xd_min;
        const nlp_gain_t g = gains(inst->get(), cohde, cohyd);
        EXPECT_GE(g.hNlFbLow, 0.0f);
        EXPECT_GE(g.hNlFb, 0.0f);
        for (int i = 0; i < kAecBins; ++i) {
            ASSERT_GE(inst->get()->hNl[i], 0.0f) << "bin " << i;
        }
        track_minimum(inst->get(), g.hNlFbLow);
        ASSERT_GE(aec.hNlFbMin, 0.0f);
        for (int b = 0; b < 7; ++b) {
            ASSERT_TRUE(std::isfinite(aec.overDrive[b])) << "band " << b;
        }
    }
}

}  // namespace
