// Suppression kernels against scalar references written out here: exact division and power
// for the smoothing and the last bin, the scalar form of the approximate power for the grouped
// bins 0..127.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "approx_reference.h"
#include "fixture.h"
#include "core/nlp.h"

namespace {

void fill_random(float *v, int n, std::mt19937 &rng, float scale) {
    std::uniform_real_distribution<float> d(-scale, scale);
    for (int i = 0; i < n; ++i) {
        v[i] = d(rng);
    }
}

// Random spectra and smoothed state. The DC and Nyquist imaginary parts are random too, so
// that the cross terms of the lone last bin are exercised.
void randomise(aec_workingbuf_t *buf, unsigned seed) {
    std::mt19937 rng(seed);
    for (float *s : {buf->dfw, buf->efw, buf->yfw}) {
        fill_random(s, 258, rng, 3000.0f);
    }
    aec_t &a = buf->aec_inst;
    for (float *s : {a.sd, a.se, a.sy}) {
        fill_random(s, 129, rng, 1e6f);
        for (int k = 0; k < 129; ++k) {
            s[k] = std::fabs(s[k]);
        }
    }
    fill_random(&a.sde[0][0], 258, rng, 1e6f);
    fill_random(&a.syd[0][0], 258, rng, 1e6f);
}

struct Smoothed {
    float sd[129], se[129], sy[129], sde[129][2], syd[129][2];
};

// This frame's value of every smoothed quantity, in double; the reference power floored at 15.
Smoothed frame_values(const aec_workingbuf_t *buf) {
    Smoothed v{};
    for (int k = 0; k < 129; ++k) {
        const double dr = buf->dfw[2 * k], di = buf->dfw[2 * k + 1];
        const double er = buf->efw[2 * k], ei = buf->efw[2 * k + 1];
        const double yr = buf->yfw[2 * k], yi = buf->yfw[2 * k + 1];
        v.sd[k] = float(dr * dr + di * di);
        v.se[k] = float(er * er + ei * ei);
        v.sy[k] = float(std::max(yr * yr + yi * yi, 15.0));
        v.sde[k][0] = float(dr * er + di * ei);
        v.sde[k][1] = float(dr * ei - di * er);
        v.syd[k][0] = float(dr * yr + di * yi);
        v.syd[k][1] = float(dr * yi - di * yr);
    }
    return v;
}

// One smoothing step S + alpha * (v - S) / 256 of every quantity.
Smoothed reference_smooth(const aec_workingbuf_t *buf) {
    const double alpha = (double(buf->Recursive_Ratio) - 0.03) * 256.0;
    const aec_t &a = buf->aec_inst;
    const Smoothed v = frame_values(buf);
    auto step = [&](double s, double x) { return float(s + alpha * (x - s) / 256.0); };
    Smoothed r{};
    for (int k = 0; k < 129; ++k) {
        r.sd[k] = step(a.sd[k], v.sd[k]);
        r.se[k] = step(a.se[k], v.se[k]);
        r.sy[k] = step(a.sy[k], v.sy[k]);
        for (int c = 0; c < 2; ++c) {
            r.sde[k][c] = step(a.sde[k][c], v.sde[k][c]);
            r.syd[k][c] = step(a.syd[k][c], v.syd[k][c]);
        }
    }
    return r;
}

// Largest power a frame of randomise() can carry (two components of at most 3000).
constexpr double kFramePower = 2.0 * 3000.0 * 3000.0;

// Tolerance relative to the largest magnitude the step combines: old state, result, and the
// part of the frame's power the step takes in.
void expect_all_smoothed(const aec_workingbuf_t *buf, const Smoothed &want, const Smoothed &old,
                         double step_share) {
    auto check = [&](float got, float w, float o, const char *what, int k) {
        const double mag =
            std::max({std::fabs(double(w)), std::fabs(double(o)), kFramePower * step_share});
        EXPECT_NEAR(got, w, 2e-6 * mag) << what << "[" << k << "]";
    };
    const aec_t &a = buf->aec_inst;
    for (int k = 0; k < 129; ++k) {
        check(a.sd[k], want.sd[k], old.sd[k], "sd", k);
        check(a.se[k], want.se[k], old.se[k], "se", k);
        check(a.sy[k], want.sy[k], old.sy[k], "sy", k);
        for (int c = 0; c < 2; ++c) {
            check(a.sde[k][c], want.sde[k][c], old.sde[k][c], "sde", k);
            check(a.syd[k][c], want.syd[k][c], old.syd[k][c], "syd", k);
        }
    }
}

Smoothed snapshot(const aec_workingbuf_t *buf) {
    const aec_t &a = buf->aec_inst;
    Smoothed s{};
    std::copy(a.sd, a.sd + 129, s.sd);
    std::copy(a.se, a.se + 129, s.se);
    std::copy(a.sy, a.sy + 129, s.sy);
    std::copy(&a.sde[0][0], &a.sde[0][0] + 258, &s.sde[0][0]);
    std::copy(&a.syd[0][0], &a.syd[0][0] + 258, &s.syd[0][0]);
    return s;
}

TEST(SmoothPSD, MatchesReferenceForSeveralRatios) {
    for (float ratio : {0.1f, 0.5f, 0.9f}) {
        qtest::InstanceBlock block;
        aec_workingbuf_t *buf = block.get();
        randomise(buf, unsigned(ratio * 100));
        buf->Recursive_Ratio = ratio;
        const Smoothed old = snapshot(buf);
        const Smoothed want = reference_smooth(buf);
        EXPECT_EQ(VelFuncAec_SmoothPSD(buf, 1), AUDIO_MATH_RET_SUCCESS);
        SCOPED_TRACE(ratio);
        expect_all_smoothed(buf, want, old, ratio - 0.03);
    }
}

TEST(SmoothPSD, RatioEndsKeepOrReplaceTheState) {
    // 0.03 gives alpha 0 (up to 0.03f's representation): the state stays.
    {
        qtest::InstanceBlock block;
        aec_workingbuf_t *buf = block.get();
        randomise(buf, 7);
        buf->Recursive_Ratio = 0.03f;
        const Smoothed old = snapshot(buf);
        VelFuncAec_SmoothPSD(buf, 0);
        expect_all_smoothed(buf, old, old, 1e-3);
    }
    // 1.03 gives alpha 256: the state becomes the frame's own values.
    {
        qtest::InstanceBlock block;
        aec_workingbuf_t *buf = block.get();
        randomise(buf, 8);
        buf->Recursive_Ratio = 1.03f;
        const Smoothed old = snapshot(buf);
        const Smoothed frame = frame_values(buf);
        VelFuncAec_SmoothPSD(buf, 0);
        expect_all_smoothed(buf, frame, old, 1.0);
    }
}

TEST(SmoothPSD, SilentReferenceSmoothsTowardsFifteen) {
    qtest::InstanceBlock block;
    aec_workingbuf_t *buf = block.get();
    randomise(buf, 3);
    std::fill(buf->yfw, buf->yfw + 258, 0.0f);
    buf->yfw[20] = 3.0f;  // power 9, still under the floor
    std::fill(buf->aec_inst.sy, buf->aec_inst.sy + 129, 100.0f);
    buf->Recursive_Ratio = 0.53f;  // alpha 128: halfway
    VelFuncAec_SmoothPSD(buf, 0);
    for (int k = 0; k < 129; ++k) {
        EXPECT_NEAR(buf->aec_inst.sy[k], 57.5f, 1e-4f) << k;
    }
}

// Per-band overdrive exponents for the bins, from explicit band ranges (last bin of each).
std::vector<float> band_of_bins(const std::vector<int> &last_bins) {
    std::vector<float> band(129);
    int b = 0;
    for (int i = 0; i < 129; ++i) {
        band[i] = float(b);
        if (b < int(last_bins.size()) && i == last_bins[b]) {
            ++b;
        }
    }
    return band;
}

// Blend above the feedback gain, then raise to overDriveSm[band] * curve: the scalar
// approximate power for bins 0..127, the exact one for bin 128.
std::vector<float> reference_overdrive(const float *hNl, float fb, const float *overDriveSm,
                                       const std::vector<float> &band) {
    std::vector<float> out(129);
    for (int i = 0; i < 129; ++i) {
        const float w = VelFuncAec_weightCurve[i];
        const float h = hNl[i] > fb ? w * fb + (1.0f - w) * hNl[i] : hNl[i];
        const float e = overDriveSm[int(band[i])] * VelFuncAec_overDriveCurve[i];
        out[i] = i < 128 ? qtest::approx_pow(h, e) : float(std::pow(double(h), double(e)));
    }
    return out;
}

void expect_gains(const float *got, const std::vector<float> &want, const char *what) {
    for (int i = 0; i < 129; ++i) {
        EXPECT_NEAR(got[i], want[i], 2e-5 * std::fabs(want[i]) + 1e-30) << what << " bin " << i;
    }
}

TEST(Overdrive, ZeroExponentGivesUnitGains) {
    qtest::InstanceBlock block;
    aec_workingbuf_t *buf = block.get();
    for (int i = 0; i < 129; ++i) {
        buf->hNl[i] = 0.01f + 0.007f * i;
    }
    Overdrive(buf, buf->hNl, 0.3f);  // overDriveSm all 0
    for (int i = 0; i < 128; ++i) {
        EXPECT_NEAR(buf->hNl[i], 1.0f, 0.002f) << i;  // the approximate power's accuracy
    }
    EXPECT_EQ(buf->hNl[128], 1.0f);
}

TEST(Overdrive, BandScanWithDefaultAndRepeatedEdges) {
    struct Case {
        std::vector<uint32_t> edges;
        std::vector<int> last_bins;  // the bands these edges must produce
    };
    const Case cases[] = {
        {{4, 6, 36, 49, 50, 51}, {4, 6, 36, 49, 50, 51}},
        // A repeated edge is never matched: every bin above 4 stays in band 1.
        {{4, 4, 36, 49, 50, 51}, {4}},
        {{10, 20, 20, 30, 40, 50}, {10, 20}},
        {{1, 2, 3, 4, 5, 126}, {1, 2, 3, 4, 5, 126}},
    };
    const float overDriveSm[7] = {1.0f, 2.0f, 3.5f, 5.0f, 7.0f, 9.0f, 12.0f};
    for (const Case &c : cases) {
        qtest::InstanceBlock block;
        aec_workingbuf_t *buf = block.get();
        std::copy(c.edges.begin(), c.edges.end(), buf->aec_data_property.Supp_Mode_Frq);
        std::copy(overDriveSm, overDriveSm + 7, buf->aec_inst.overDriveSm);
        std::fill(buf->hNl, buf->hNl + 129, 0.97f);
        const auto want =
            reference_overdrive(buf->hNl, 1.0f, overDriveSm, band_of_bins(c.last_bins));
        Overdrive(buf, buf->hNl, 1.0f);  // no gain above 1: no blending
        SCOPED_TRACE(c.edges[1]);
        expect_gains(buf->hNl, want, "hNl");
    }
}

TEST(Suppress, ScalesAndConjugatesEveryBin) {
    qtest::InstanceBlock block;
    aec_workingbuf_t *buf = block.get();
    std::mt19937 rng(11);
    fill_random(buf->efw, 258, rng, 5000.0f);
    buf->efw[1] = buf->efw[257] = 0.0f;
    float gains[129];
    for (int i = 0; i < 129; ++i) {
        gains[i] = 0.002f + 0.0077f * i;
    }
    std::vector<float> before(buf->efw, buf->efw + 258);
    Suppress(buf, gains, 0.5f, buf->efw);
    for (int k = 0; k < 129; ++k) {
        EXPECT_EQ(buf->efw[2 * k], before[2 * k] * gains[k]) << k;
        EXPECT_EQ(buf->efw[2 * k + 1], -(before[2 * k + 1] * gains[k])) << k;
    }
    EXPECT_EQ(buf->efw[1], 0.0f);
    EXPECT_EQ(buf->efw[257], 0.0f);
}

TEST(OverdriveAndSuppress, RunsOverdriveThenSuppressOnTheInstance) {
    qtest::InstanceBlock block;
    aec_workingbuf_t *buf = block.get();
    const uint32_t edges[6] = {4, 6, 36, 49, 50, 51};
    std::copy(edges, edges + 6, buf->aec_data_property.Supp_Mode_Frq);
    const float overDriveSm[7] = {1.5f, 1.0f, 2.0f, 1.2f, 3.0f, 1.0f, 2.5f};
    std::copy(overDriveSm, overDriveSm + 7, buf->aec_inst.overDriveSm);
    std::mt19937 rng(5);
    fill_random(buf->efw, 258, rng, 1000.0f);
    // Gains equal to, below and above the feedback gain: only those above are blended.
    const float fb = 0.4f;
    for (int i = 0; i < 129; ++i) {
        buf->hNl[i] = i % 3 == 0 ? fb : (i % 3 == 1 ? 0.05f + 0.003f * i : 0.45f + 0.004f * i);
    }
    const auto gains =
        reference_overdrive(buf->hNl, fb, overDriveSm, band_of_bins({4, 6, 36, 49, 50, 51}));
    std::vector<float> before(buf->efw, buf->efw + 258);
    EXPECT_EQ(VelFuncAec_OverdriveAndSuppress(buf, fb, 0), AUDIO_MATH_RET_SUCCESS);
    expect_gains(buf->hNl, gains, "hNl");
    for (int k = 0; k < 129; ++k) {
        const float re = before[2 * k] * gains[k], im = -before[2 * k + 1] * gains[k];
        EXPECT_NEAR(buf->efw[2 * k], re, 3e-5f * std::fabs(re) + 1e-6f) << k;
        EXPECT_NEAR(buf->efw[2 * k + 1], im, 3e-5f * std::fabs(im) + 1e-6f) << k;
    }
}

}  // namespace
