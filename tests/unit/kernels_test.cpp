// Kernels on arrays against mathematics (true functions, defining formulas in double, a direct
// DFT, plain references), over odd tails and from misaligned pointers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <iterator>
#include <utility>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include "core/linear_stage.h"
#include "core/nlp.h"
#include "dsp/comfort_noise.h"
#include "dsp/fft.h"
#include "dsp/stream.h"
#include "dsp/vector_math.h"
#include "kernels/coherence.h"
#include "kernels/step_control.h"
#include "kernels/vector.h"
#include "kernels/neon_approx.h"
#include "kernels/noise_floor.h"
#include "kernels/spectral.h"
#include "kernels/suppress.h"
#include "mdf/mdf.h"

namespace {

using cd = std::complex<double>;
constexpr int kBins = 129;

std::vector<float> noise(size_t n, double lo, double hi, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(lo, hi);
    std::vector<float> v(n);
    for (float &x : v) {
        x = static_cast<float>(u(rng));
    }
    return v;
}

const auto bin = [](const float *p, int k) { return cd(p[2 * k], p[2 * k + 1]); };

// Bin counts with every tail length after the groups of four, and the library's 129.
const int kBinCounts[] = {1, 2, 3, 4, 7, 129, 130, 131};

template <typename Op>
std::vector<float> lanes4(Op op, const std::vector<float> &a, const std::vector<float> &b) {
    std::vector<float> out(a.size());
    for (size_t i = 0; i + 4 <= a.size(); i += 4) {
        vst1q_f32(&out[i], op(vld1q_f32(&a[i]), vld1q_f32(&b[i])));
    }
    return out;
}

TEST(Approximations, DivisionAndSquareRootHaveFloatPrecision) {
    std::vector<float> a, b, s;
    for (int i = -600; i < 600; ++i) {  // 1e-30 .. 1e30, a different mantissa per lane
        const float m = static_cast<float>(std::pow(10.0, i / 20.0) * (1.0 + 0.37 * (i & 3)));
        a.push_back(static_cast<float>(i % 7) - 3.3f);
        b.push_back(i % 2 ? -m : m);
        s.push_back(i % 11 == 5 ? 0.0f : m);
    }
    const auto q = lanes4([](float32x4_t x, float32x4_t y) { return vdivq_f32(x, y); }, a, b);
    const auto r = lanes4([](float32x4_t x, float32x4_t) { return vsqrtq_f32(x); }, s, s);
    for (size_t i = 0; i < a.size(); ++i) {
        const double quotient = double(a[i]) / b[i], root = std::sqrt(double(s[i]));
        ASSERT_NEAR(q[i], quotient, 3e-7 * std::fabs(quotient)) << a[i] << " / " << b[i];
        ASSERT_NEAR(r[i], root, 3e-7 * root) << "sqrt " << s[i];
    }
}

// vpowq_f32(a, b) = 2^z, z = b log2 a (clamped), through the quadratic Q below; its log2 is
// within 1e-5, so the result lies between the values at z -+ dz.
double pow2_by_quadratic(double z) {
    z = std::clamp(z, -126.99999, 129.0);
    const double n = std::trunc(z - 0.5), f = z - n;
    return std::ldexp((0.33718944 * f + 0.65763628) * f + 1.0017247, static_cast<int>(n));
}

testing::AssertionResult is_approx_pow(float got, float a, float b) {
    const double log_a = std::log2(double(a)), z = b * log_a;
    const double dz = std::fabs(b) * (1e-5 + 3e-7 * std::fabs(log_a)) + 3e-7 * std::fabs(z);
    const double lo = pow2_by_quadratic(z - dz) * (1 - 2e-6) - 1e-37;
    const double hi = pow2_by_quadratic(z + dz) * (1 + 2e-6) + 1e-37;
    if (got >= lo && got <= hi) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << a << "^" << b << " = " << got << ", not in [" << lo << ", " << hi << "]";
}

TEST(Approximations, PowerIsTwoToTheExactLogThroughItsQuadratic) {
    std::vector<float> a, b;
    for (int i = 1; i <= 2000; i += 7) {
        for (float e : {0.0f, 0.25f, 0.5f, 1.0f, 1.7f, 3.0f, 8.0f, 20.0f}) {
            a.push_back(i / 1000.0f);
            b.push_back(e);
        }
    }
    // The clamps: far below the smallest normal float the result is 0, far above it is inf.
    a.insert(a.end(), {1e-6f, 0.0f, 4.0f, 0.5f});
    b.insert(b.end(), {10.0f, 3.0f, 70.0f, 0.0f});
    const auto p = lanes4([](float32x4_t x, float32x4_t y) { return vpowq_f32(x, y); }, a, b);
    for (size_t i = 0; i + 4 < a.size(); ++i) {
        ASSERT_TRUE(is_approx_pow(p[i], a[i], b[i]));
    }
    const size_t end = a.size() - 4;
    EXPECT_LT(std::fabs(p[end]), 1e-37f);
    EXPECT_LT(std::fabs(p[end + 1]), 1e-37f);  // a zero base reads as 2^-127
    EXPECT_EQ(p[end + 2], INFINITY);
    EXPECT_NEAR(p[end + 3], 1.0017247f, 1e-6f);  // b = 0 gives Q(0)
}

// Power spectrum; acc = sum of X_i Y_i, past the last group of four the imaginary term landing on
// float i + 1; p w conj(X) Y.
TEST(SpectralKernels, PowerMulAccumAndWeightedConjugateProduct) {
    for (int bins : kBinCounts) {
        for (int off : {0, 1}) {
            const std::vector<float> x = noise(2 * bins + off, -3000, 3000, bins);
            std::vector<float> ps(bins + off + 1, -1.0f);
            EXPECT_EQ(VelFunAec_PowerSpectrum(x.data() + off, ps.data() + off, 2 * bins),
                      AUDIO_MATH_RET_SUCCESS);
            for (int k = 0; k < bins; ++k) {
                const double want = std::norm(bin(x.data() + off, k));
                ASSERT_NEAR(ps[off + k], want, 1e-6 * want) << bins << " bins, bin " << k;
            }
            EXPECT_EQ(ps.back(), -1.0f) << "wrote past " << bins << " bins";
        }
        for (int M : {0, 1, 3, 8, 9, 17}) {
            const int N = 2 * bins, off = M % 2;
            if (M >= N) {
                continue;  // the tail's imaginary terms land at index M, within the output
            }
            const std::vector<float> X = noise(N * M + off, -2, 2, M), Y = noise(N * M, -2, 2, 7);
            std::vector<double> want(N, 0.0), scale(N, 1e-9);
            const int tail = bins / 4 * 4;
            for (int i = 0; i < M; ++i) {
                for (int k = 0; k < bins; ++k) {
                    const cd x = bin(&X[off + i * N], k), y = bin(&Y[i * N], k), p = x * y;
                    const int im = k < tail ? 2 * k + 1 : i + 1;
                    want[2 * k] += p.real();
                    want[im] += p.imag();
                    scale[2 * k] += std::abs(x) * std::abs(y);
                    scale[im] += std::abs(x) * std::abs(y);
                }
            }
            std::vector<float> acc(N, 99.0f);
            EXPECT_EQ(VelFunc_SpectralMulAccum(X.data() + off, Y.data(), acc.data(), N, M), 0);
            for (int j = 0; j < N; ++j) {
                ASSERT_NEAR(acc[j], want[j], 1e-6 * scale[j]) << N << " floats, M " << M;
            }
        }
        for (float p : {0.37f, 0.0f}) {
            const int N = 2 * bins;
            std::vector<float> w = noise(bins + 1, 0, 1, 3), X = noise(N + 1, -9, 9, 4);
            const std::vector<float> Y = noise(N, -9, 9, 5);
            w[0] = 0.0f;
            std::vector<float> prod(N + 1, 7.0f);
            EXPECT_EQ(VelFunc_WeightedSpectralMulConj(&w[1], p, &X[1], Y.data(), prod.data(), N),
                      0);
            for (int k = 0; k < bins; ++k) {
                const cd x = bin(&X[1], k), y = bin(Y.data(), k);
                const cd want = double(p) * w[1 + k] * std::conj(x) * y;
                const double tol = 1e-6 * p * w[1 + k] * std::abs(x) * std::abs(y) + 1e-30;
                ASSERT_NEAR(prod[2 * k], want.real(), tol) << bins << " bins, bin " << k;
                ASSERT_NEAR(prod[2 * k + 1], want.imag(), tol) << bins << " bins, bin " << k;
            }
            EXPECT_EQ(prod[N], 7.0f);
        }
    }
}

// The accumulating form adds the very product the plain form stores (checked above), rounded
// before the addition; the scaled power spectrum gives what scaling and then the power
// spectrum give. Both bit for bit: the filter's update must not change by the fusions.
TEST(SpectralKernels, FusedFormsMatchTheirTwoPassesExactly) {
    for (int bins : kBinCounts) {
        const int N = 2 * bins;
        const std::vector<float> w = noise(bins, 0, 1, 13), X = noise(N, -9, 9, 14),
                                 Y = noise(N, -9, 9, 15), acc0 = noise(N + 1, -5, 5, 16);
        std::vector<float> prod(N), acc = acc0;
        VelFunc_WeightedSpectralMulConj(w.data(), 0.37f, X.data(), Y.data(), prod.data(), N);
        WeightedSpectralMulConjAccum(w.data(), 0.37f, X.data(), Y.data(), acc.data(), N);
        for (int i = 0; i < N; ++i) {
            ASSERT_EQ(acc[i], acc0[i] + prod[i]) << bins << " bins, float " << i;
        }
        EXPECT_EQ(acc[N], acc0[N]);

        std::vector<float> scaled = X, inplace = X, want(bins), ps(bins + 1, -7.0f);
        for (float &v : scaled) {
            v *= 0.00390625f;
        }
        VelFunAec_PowerSpectrum(scaled.data(), want.data(), N);
        ScaledPowerSpectrum(inplace.data(), 0.00390625f, ps.data(), N);
        EXPECT_EQ(inplace, scaled) << bins << " bins";
        for (int k = 0; k < bins; ++k) {
            ASSERT_EQ(ps[k], want[k]) << bins << " bins, bin " << k;
        }
        EXPECT_EQ(ps[bins], -7.0f);
    }
}

struct Psd {
    std::vector<float> sd, se, sy, sde, syd;
    explicit Psd(unsigned seed)
        : sd(noise(kBins, 0, 5e6, seed)),
          se(noise(kBins, 0, 5e6, seed + 1)),
          sy(noise(kBins, 15, 5e6, seed + 2)),
          sde(noise(2 * kBins, -2e6, 2e6, seed + 3)),
          syd(noise(2 * kBins, -2e6, 2e6, seed + 4)) {}
    psd_t view() {
        return {sd.data(), se.data(), sy.data(), reinterpret_cast<float(*)[2]>(sde.data()),
                reinterpret_cast<float(*)[2]>(syd.data())};
    }
};

// Each spectrum moves (ratio - 0.03) of the way to this frame's; the reference floored at 15.
TEST(NlpKernels, SmoothingMovesEverySpectrumTowardsThisFrame) {
    const std::vector<float> d = noise(2 * kBins, -3000, 3000, 1),
                             e = noise(2 * kBins, -3000, 3000, 2);
    std::vector<float> y = noise(2 * kBins, -3000, 3000, 3);
    y[0] = y[1] = y[256] = y[257] = y[100] = 0.0f;  // silent reference bins, Nyquist among them
    y[101] = 3.0f;
    for (float ratio : {0.03f, 0.1f, 0.55f, 1.0f, 1.03f}) {
        Psd s(10);
        s.sy[0] = s.sy[50] = s.sy[128] = 15.0f;  // at the floor: a tight check of it
        const Psd old = s;
        smooth_psd(d.data(), e.data(), y.data(), ratio, s.view());
        const double w = double(ratio) - 0.03;
        const auto check = [&](float got, float was, double v, const char *what, int k) {
            const double want = was + w * (v - was);
            ASSERT_NEAR(got, want, 2e-6 * (std::fabs(was) + std::fabs(v)))
                << what << "[" << k << "] at ratio " << ratio;
        };
        for (int k = 0; k < kBins; ++k) {
            const cd dk = bin(d.data(), k), ek = bin(e.data(), k), yk = bin(y.data(), k);
            const cd de = std::conj(dk) * ek, yd = std::conj(dk) * yk;
            check(s.sd[k], old.sd[k], std::norm(dk), "sd", k);
            check(s.se[k], old.se[k], std::norm(ek), "se", k);
            check(s.sy[k], old.sy[k], std::max(std::norm(yk), 15.0), "sy", k);
            check(s.sde[2 * k], old.sde[2 * k], de.real(), "sde.re", k);
            check(s.sde[2 * k + 1], old.sde[2 * k + 1], de.imag(), "sde.im", k);
            check(s.syd[2 * k], old.syd[2 * k], yd.real(), "syd.re", k);
            check(s.syd[2 * k + 1], old.syd[2 * k + 1], yd.imag(), "syd.im", k);
        }
    }
}

TEST(NlpKernels, CoherencesAndGains) {
    Psd s(20);
    s.sd[5] = s.sd[128] = 0.0f;   // no near-end power: both coherences 0
    s.syd[20] = s.sy[10] = 1e3f;  // a coherence that would exceed 1 is held at 1
    std::vector<float> cohde(kBins), cohyd(kBins), hNl(kBins), hNl2(kBins);
    coherence(s.view(), cohde.data(), cohyd.data());
    for (int k = 0; k < kBins; ++k) {
        const double de =
            s.sd[k] == 0 ? 0
                         : std::norm(bin(s.sde.data(), k)) / (double(s.sd[k]) * s.se[k] + 1e-10);
        const double yd =
            s.sd[k] == 0 ? 0
                         : std::norm(bin(s.syd.data(), k)) / (double(s.sy[k]) * s.sd[k] + 1e-10);
        ASSERT_NEAR(cohde[k], de, 1e-6 * de) << "bin " << k;
        ASSERT_NEAR(cohyd[k], std::min(yd, 1.0), 1e-6) << "bin " << k;
    }
    EXPECT_EQ(cohyd[10], 1.0f);
    gains_min_of_coherences(cohde.data(), cohyd.data(), hNl.data());
    gains_from_echo_coherence(cohyd.data(), hNl2.data());
    for (int k = 0; k < kBins; ++k) {
        ASSERT_EQ(hNl[k], std::min(cohde[k], 1.0f - cohyd[k])) << "bin " << k;
        ASSERT_EQ(hNl2[k], 1.0f - cohyd[k]) << "bin " << k;
    }
}

// Gains above the feedback gain are blended towards it, then raised to band overdrive x curve
// (approximate power below bin 128); equal edges make an empty band, the seventh runs to 128.
TEST(NlpKernels, OverdriveBlendsThenRaisesToTheBandsPower) {
    const uint32_t edge_sets[][7] = {{4, 6, 36, 49, 50, 51, 60},
                                     {10, 10, 20, 30, 40, 126, 60},
                                     {1, 2, 3, 4, 5, 6, 7},
                                     {126, 126, 126, 126, 126, 126, 127}};
    const float over[8] = {0.5f, 1.0f, 1.5f, 2.5f, 3.0f, 0.0f, 4.0f, 9.0f};
    const std::vector<float> weight = noise(kBins, 0, 0.4, 31), curve = noise(kBins, 1, 2, 32);
    for (const uint32_t *edges : edge_sets) {
        std::vector<float> h = noise(kBins, 0.01, 1, 33);
        const float fb = 0.4f;
        h[7] = h[128] = fb;  // not blended: the test is strict
        h[64] = 0.9f;
        const std::vector<float> in = h;
        overdrive_gains(h.data(), fb, edges, over, weight.data(), curve.data());
        int band = 0;
        for (int i = 0; i < kBins; ++i) {
            const float od = over[band];
            if (band < 6 && edges[band] == static_cast<uint32_t>(i)) {
                ++band;
            }
            const double blended = in[i] > fb ? weight[i] * fb + (1.0 - weight[i]) * in[i] : in[i];
            const float exponent = od * curve[i];
            if (i < 128) {
                ASSERT_TRUE(is_approx_pow(h[i], static_cast<float>(blended), exponent))
                    << "bin " << i << " edges " << edges[0] << ".." << edges[5];
            } else {
                ASSERT_NEAR(h[i], std::pow(blended, double(exponent)), 1e-6);
            }
        }
    }
}

// Every bin, DC and Nyquist included, is scaled by its gain and conjugated.
TEST(NlpKernels, SuppressScalesAndConjugatesEveryBin) {
    const std::vector<float> hNl = noise(kBins, 0, 1, 41), in = noise(2 * kBins, -500, 500, 42);
    std::vector<float> efw = in;
    suppress_spectrum(hNl.data(), efw.data());
    for (int k = 0; k < kBins; ++k) {
        ASSERT_FLOAT_EQ(efw[2 * k], in[2 * k] * hNl[k]) << "bin " << k;
        ASSERT_FLOAT_EQ(efw[2 * k + 1], -in[2 * k + 1] * hNl[k]) << "bin " << k;
    }
}

// Smoothed power; a minimum that falls 90% of the way (else creeps by 1.0003); a start-up
// estimate that takes a lower minimum at once and follows a higher one by 10%.
TEST(NlpKernels, NoiseFloorSmoothsTracksAndFollows) {
    const std::vector<float> frame_spectrum = noise(2 * kBins, -2000, 2000, 51);
    std::vector<float> pow = noise(kBins, 0, 1e6, 52), min = noise(kBins, 0, 1e6, 53),
                       init = noise(kBins, 0, 1e6, 54);
    const std::vector<float> pow0 = pow, min0 = min, init0 = init;
    noise_smooth_power(pow.data(), frame_spectrum.data());
    noise_track_minimum(min.data(), pow.data());
    noise_follow_minimum(init.data(), min.data());
    for (int j = 0; j < kBins; ++j) {
        const double p = pow0[j] + (std::norm(bin(frame_spectrum.data(), j)) / 4 - pow0[j]) * 0.1;
        ASSERT_NEAR(pow[j], p, 1e-6 * (p + pow0[j])) << "bin " << j;
        const double m =
            min0[j] <= pow[j] ? min0[j] * 1.0003 : (pow[j] + (min0[j] - pow[j]) * 0.1) * 1.0003;
        ASSERT_NEAR(min[j], m, 1e-6 * (m + min0[j])) << "bin " << j;
        const double s = min[j] <= init0[j] ? min[j] : init0[j] + (min[j] - init0[j]) * 0.1;
        ASSERT_NEAR(init[j], s, 1e-6 * (s + init0[j])) << "bin " << j;
    }
}

// The error spectrum is replaced by the near end's while the error outweighs the near end in
// total smoothed power; that ends only when the near end is 5% above.
TEST(NlpKernels, DivergenceEntersAtOnceAndLeavesWithAMargin) {
    const std::vector<float> sd(kBins, 1.0f), dfw = noise(258, -9, 9, 61),
                                              efw0 = noise(258, -9, 9, 62);
    int16_t state = 0;
    for (const auto &[se, diverged] : {std::pair{1.0f, 0}, {1.001f, 1}, {0.96f, 1}, {0.95f, 0}}) {
        std::vector<float> efw = efw0;
        nlp_update_divergence(sd.data(), std::vector<float>(kBins, se).data(), &state, dfw.data(),
                              efw.data());
        EXPECT_EQ(state, diverged) << "se " << se;
        EXPECT_EQ(efw, diverged ? dfw : efw0) << "se " << se;
    }
}

// Near-end talk takes the d-e coherence; before any echo (minimum still 1) the echo incoherence
// with the overdrive pinned to its floor, after it the smaller; the minimum takes averages < 0.75.
TEST(NlpKernels, GainRuleFollowsTalkAndEcho) {
    struct Case {
        float de, yd, min_in, min_out, gain;
        bool pinned;
    };
    for (const Case c : {Case{0.99f, 0.05f, 1, 1, 0.99f, true},
                         {0.99f, 0.095f, 1, 1, 0.99f, true},
                         {0.975f, 0.05f, 1, 1, 0.95f, true},
                         {0.99f, 0.05f, 0.8f, 0.8f, 0.99f, false},
                         {0.6f, 0.2f, 0.8f, 0.8f, 0.6f, false},
                         {0.9f, 0.24f, 0.8f, 0.8f, 0.76f, false},
                         {0.9f, 0.3f, 0.8f, 0.7f, 0.7f, false},
                         {0.5f, 0.5f, 1, 0.5f, 0.5f, false}}) {
        std::vector<float> cohde(kBins, c.de), cohyd(kBins, c.yd), hNl(kBins);
        float min = c.min_in, overdrive[7] = {9, 9, 9, 9, 9, 9, 9};
        const float floor[7] = {1, 2, 3, 4, 5, 6, 7};
        const nlp_gain_t g =
            nlp_gains(cohde.data(), cohyd.data(), 2, &min, floor, overdrive, hNl.data());
        EXPECT_NEAR(min, c.min_out, 1e-6) << c.de << " " << c.yd;
        EXPECT_NEAR(g.hNlFb, c.gain, 1e-6) << c.de << " " << c.yd;
        EXPECT_NEAR(g.hNlFbLow, c.gain, 1e-6) << c.de << " " << c.yd;
        for (float h : hNl) {
            ASSERT_NEAR(h, c.gain, 1e-6) << c.de << " " << c.yd;
        }
        EXPECT_EQ(overdrive[6], c.pinned ? 7.0f : 9.0f) << c.de << " " << c.yd;
    }
}

TEST(VectorHelpers, InnerProductOverOddTailsAndMisalignedArrays) {
    for (int n : {0, 1, 3, 4, 5, 7, 128, 131}) {
        const std::vector<float> a = noise(n + 1, -100, 100, n), b = noise(n + 1, -100, 100, 9);
        double want = 0, scale = 1e-30;
        for (int i = 0; i < n; ++i) {
            want += double(a[i + 1]) * b[i];
            scale += std::fabs(double(a[i + 1]) * b[i]);
        }
        float got = 123.0f;
        EXPECT_EQ(
            ne10_InnerProduct(const_cast<float *>(&a[1]), const_cast<float *>(b.data()), &got, n),
            AUDIO_MATH_RET_SUCCESS);
        EXPECT_NEAR(got, want, 1e-6 * scale) << "length " << n;
    }
}

TEST(VectorHelpers, FastCopyMatchesMemcpyForEverySizeAndAlignment) {
    std::vector<unsigned char> src(1200), dst(1300);
    for (size_t i = 0; i < src.size(); ++i) {
        src[i] = static_cast<unsigned char>(i * 7 + 3);
    }
    for (size_t num : {0, 1, 63, 255, 256, 257, 300, 1000, 1031}) {
        for (size_t so = 0; so < 8; ++so) {
            for (size_t d = 64; d < 72; ++d) {
                std::fill(dst.begin(), dst.end(), 0xEE);
                ASSERT_EQ(memcpy_fast(&dst[d], &src[so], num), &dst[d]);
                ASSERT_EQ(memcmp(&dst[d], &src[so], num), 0) << num << " bytes " << so << "/" << d;
                ASSERT_EQ(dst[d - 1], 0xEE);
                ASSERT_EQ(dst[d + num], 0xEE) << num << " bytes " << so << "/" << d;
            }
        }
    }
    alignas(64) unsigned char block[128];
    EXPECT_TRUE(is_both_address_align_to(block + 1, block + 9, 4));
    EXPECT_FALSE(is_both_address_align_to(block + 1, block + 2, 4));
    EXPECT_EQ(get_align_pedding(block, 64), 64u);  // an aligned start still pads a full 64
    EXPECT_EQ(get_align_pedding(block + 5, 64), 59u);
}

// The sort serves at most 48 values: its upward scan stops at index 47 whatever the range.
TEST(VectorHelpers, SortOrdersUpToFortyEightValuesOnly) {
    std::mt19937 rng(5);
    for (int n : {1, 2, 3, 8, 24, 47, 48}) {
        for (int round = 0; round < 20; ++round) {
            std::vector<float> v(48, -7.0f);
            for (int i = 0; i < n; ++i) {
                v[i] = static_cast<float>(rng() % 16) * 0.25f;  // duplicates on purpose
            }
            std::vector<float> want = v;
            std::sort(want.begin(), want.begin() + n);
            VelFuncAec_quickSort(v.data(), 0, n - 1);
            ASSERT_EQ(v, want) << n << " values";
        }
    }
    std::vector<float> v(60);
    std::iota(v.rbegin(), v.rend(), 1.0f);  // 60 down to 1
    VelFuncAec_quickSort(v.data(), 0, 59);
    EXPECT_EQ(v[47], 60.0f);  // the largest stops at the bound instead of index 59
}

struct Fft {
    std::vector<unsigned char> area = std::vector<unsigned char>(FFT_GetBufferSize(256) + 64, 0xA5);
    FFTHandle_t h{};
    int ip[128] = {};
    float w[256] = {};
    Fft() {
        h.fft_Ne10_cfg = reinterpret_cast<ne10_fft_r2c_cfg_float32_t>(area.data());
        h.fftSize = 256;
        ne10_init();
        fft_init(&h);
    }
    void run(int isgn, float *a) { VEL_rdft(&h, 256, isgn, a, ip, w); }
};

// Bin k of the unscaled DFT of 256 samples.
cd dft(const std::vector<float> &x, int k) {
    cd s = 0;
    for (int t = 0; t < 256; ++t) {
        s += double(x[t]) * std::polar(1.0, -2 * M_PI * k * t / 256);
    }
    return s;
}

TEST(Fft, ForwardIsTheDftInThePackedLayoutAndInverseUndoesIt) {
    Fft f;
    EXPECT_EQ(FFT_GetBufferSize(256), 6028u);
    EXPECT_EQ(f.h.is_fft_init, 1);
    for (size_t i = FFT_GetBufferSize(256); i < f.area.size(); ++i) {
        ASSERT_EQ(f.area[i], 0xA5) << "the plans overran their area";
    }
    std::vector<float> impulse(258, 0.0f), ones(258, 0.0f), x = noise(258, -1e4, 1e4, 61);
    impulse[0] = 1.0f;
    std::fill_n(ones.begin(), 256, 1.0f);
    x[256] = x[257] = 0.0f;
    // At both float offsets of an 8-byte pair: arrays need only float alignment.
    for (const auto &in : {impulse, ones, x}) {
        for (int offset : {0, 1}) {
            std::vector<float> storage(259);
            float *a = storage.data() + offset;
            std::copy(in.begin(), in.end(), a);
            f.run(1, a);
            for (int k = 0; k <= 128; ++k) {
                const cd want = dft(in, k);
                ASSERT_NEAR(a[2 * k], want.real(), 2e-6 * 1e4 * 256) << "bin " << k;
                ASSERT_NEAR(a[2 * k + 1], want.imag(), 2e-6 * 1e4 * 256) << "bin " << k;
            }
            f.run(-1, a);
            for (int t = 0; t < 256; ++t) {
                ASSERT_NEAR(a[t], in[t], 1e-6 * 1e4) << "sample " << t;
            }
            EXPECT_EQ(std::vector<float>(a + 256, a + 258), std::vector<float>(2, 0.0f));
        }
    }
    EXPECT_EQ(impulse[0], 1.0f);
    std::vector<float> a = x;
    for (int isgn : {0, 2, -2}) {
        f.run(isgn, a.data());
        ASSERT_EQ(a, x) << "isgn " << isgn;
    }
}

// The noise floor's start-up estimate serves mult times as many blocks at mult times the rate.
TEST(NlpKernels, NoiseFloorStartUpLastsInProportionToTheRate) {
    Fft f;
    const std::vector<float> pair = noise(256, -3000, 3000, 55);
    std::vector<float> scratch(258);
    const int mults[3] = {1, 2, 6};  // 8, 16 and 48 kHz
    int blocks[3] = {};
    for (int i = 0; i < 3; ++i) {
        std::vector<float> pow(kBins), min(kBins), init(kBins);
        float *floor = nullptr;
        int ctr = 0;
        const noise_floor_t view = {pow.data(), min.data(), init.data(), &floor, &ctr};
        do {
            noise_floor_update({&f.h, f.ip, f.w}, pair.data(), scratch.data(), mults[i], view);
        } while (floor == init.data() && ++blocks[i] < 100000);
    }
    EXPECT_GT(blocks[0], 1);
    EXPECT_EQ(blocks[1], 2 * blocks[0]);
    EXPECT_EQ(blocks[2], 6 * blocks[0]);
}

TEST(Stream, LoaderSlidesThenLoadsOneChannelWithoutScaling) {
    const short pcm[8] = {1000, -1, 2000, -2, 3000, -3, 4000, -4};
    struct Case {
        uint32_t channels;
        int counter, flag;
        float first;  // the first sample loaded, or 0 when nothing is loaded
    };
    for (const Case c :
         {Case{1, 1, 1, 1000}, Case{2, 0, 1, 1000}, Case{2, 1, 1, -1}, Case{2, 2, 1, 1000},
          Case{2, 1, 0, 0}, Case{2, 0, 0, 1000}, Case{3, 0, 1, 0}, Case{0, 0, 1, 0}}) {
        float buf[9] = {1, 2, 3, 4, 5, 6, 7, 8, 99};
        postInfo_t info = {8, c.channels, 4, c.flag};
        LoadStreamf(buf, const_cast<short *>(pcm), c.counter, &info);
        EXPECT_EQ(buf[8], 99.0f);
        if (c.first == 0) {
            EXPECT_EQ(buf[0], 1.0f) << c.channels << " channels, counter " << c.counter;
            continue;
        }
        const int step = c.channels == 2 ? 2 : 1, ch = c.first < 0 ? 1 : 0;
        for (int k = 0; k < 4; ++k) {
            EXPECT_EQ(buf[k], 5.0f + k);
            EXPECT_EQ(buf[4 + k], pcm[step * k + ch]) << c.channels << " ch, counter " << c.counter;
        }
    }
}

// Saturated to 16 bits and truncated toward zero (NaN becomes silence), the second input
// added first; a stereo output gets the one channel twice, `bias` slots in.
TEST(Stream, OutputStageSaturatesTruncatesAndDuplicates) {
    float in[6] = {32767.4f, -32768.9f, 1.9f, -1.9f, 40000.0f, NAN};
    float in2[6] = {0, 0, 0.5f, -0.5f, -50000.0f, 0};
    short out[14] = {0, 0, 0, 0, 0, 0, 7};  // a sentinel past the mono output
    postInfo_t mono = {6, 1, 0, 1};
    Post_OLA_Process(in, nullptr, out, &mono);
    EXPECT_EQ(std::vector<short>(out, out + 6),
              (std::vector<short>{32767, -32768, 1, -1, 32767, 0}));
    Post_OLA_Process(in, in2, out, &mono);
    EXPECT_EQ(std::vector<short>(out, out + 7),
              (std::vector<short>{32767, -32768, 2, -2, -10000, 0, 7}));
    for (int flag : {1, 0}) {
        std::fill_n(out, 14, 7);
        postInfo_t stereo = {6, 2, 1, flag};
        Post_OLA_Process(in, nullptr, out, &stereo);
        EXPECT_EQ(
            std::vector<short>(out, out + 14),
            flag ? (std::vector<short>{7, 32767, 32767, -32768, -32768, 1, 1, -1, -1, 32767, 32767,
                                       0, 0, 7})
                 : (std::vector<short>{7, 32767, 7, -32768, 7, 1, 7, -1, 7, 32767, 7, 0, 7, 7}));
    }
}

// Bin j adds the table's phasor (conjugated) x sqrt(g p) 2^shift, g = 0.9999 - the bin's
// normalised magnitude, p the floored noise power.
void expect_comfort_noise(const std::vector<float> &in, const std::vector<float> &noise_pow,
                          float min_pwr, int shift, int start) {
    const int bins = static_cast<int>(in.size() / 2);  // of a transform of 2 (bins - 1)
    comfort_noise_set_positions(start, 0);
    std::vector<float> out = in, lambda(bins, 0.5f);
    std::vector<float> pw = noise_pow;
    ComfortNoise_Process(out.data(), pw.data(), lambda.data(), 2 * (bins - 1), min_pwr, shift);
    double lo = 1e300, hi = 0;
    for (int j = 0; j < bins; ++j) {
        lo = std::min(lo, std::abs(bin(in.data(), j)));
        hi = std::max(hi, std::abs(bin(in.data(), j)));
    }
    int pos = start, offset = 0;
    for (int j = 0; j < bins; ++j) {
        const double a = (std::abs(bin(in.data(), j)) - lo) / (hi - lo + 1e-10);
        const double g = std::max(0.9999 - a, 0.0);
        const double amp = std::sqrt(g * std::max(double(noise_pow[j]), double(min_pwr)));
        const cd add = cd(comfortNoiseX[pos], -comfortNoiseY[pos]) * amp * std::ldexp(1.0, shift);
        ASSERT_NEAR(out[2 * j], in[2 * j] + add.real(), 1e-4 * (std::abs(add) + 1)) << "bin " << j;
        ASSERT_NEAR(out[2 * j + 1], in[2 * j + 1] + add.imag(), 1e-4 * (std::abs(add) + 1))
            << "bin " << j;
        if (pos == 1023) {  // restarts at 0..255, from the table itself
            pos = static_cast<uint16_t>(comfortNoiseX[offset++]) & 0xFF;
        } else {
            ++pos;
        }
    }
    EXPECT_EQ(comfort_noise_read_position(), pos);
    EXPECT_EQ(comfort_noise_offset_position(), offset);
}

TEST(ComfortNoise, AddsFloorShapedNoiseWeightedTowardsTheWeakBins) {
    for (int k = 0; k < 1024; ++k) {
        const double m = std::hypot(double(comfortNoiseX[k]), double(comfortNoiseY[k]));
        ASSERT_TRUE(m >= 32767.0 && m <= 32768.7) << "entry " << k;
    }
    const std::vector<float> frame_spectrum = noise(258, -300, 300, 71),
                             pow = noise(kBins, 0, 4e-4, 72);
    std::vector<float> flat(258, 0.0f);
    for (int j = 0; j < kBins; ++j) {
        flat[2 * j] = j % 2 ? 5.0f : -3.0f;
        flat[2 * j + 1] = j % 2 ? 0.0f : 4.0f;
    }
    expect_comfort_noise(frame_spectrum, pow, 2e-4f, -14, 10);
    expect_comfort_noise(frame_spectrum, pow, 1e-3f, 2,
                         1000);  // most powers under the floor; wraps
    expect_comfort_noise(flat, pow, 2e-4f, -2, 1023);
    // A longer spectrum (its range and its second chunk), and the single bin of length 0.
    expect_comfort_noise(noise(602, -300, 300, 73), noise(301, 0, 4e-4, 74), 2e-4f, -14, 900);
    expect_comfort_noise({3.0f, 4.0f}, pow, 2e-4f, 0, 5);
}

// prop_i = 0.99 (sqrt(1 + |W_i|^2) + 0.1 max) / (1 + sum of the numerators).
TEST(MdfHelpers, ProportionalWeightsFollowPartitionEnergy) {
    std::vector<float> W = noise(8 * 258 + 1, -0.5, 0.5, 81);
    std::fill_n(W.begin() + 3 * 258, 258, 0.0f);
    float prop[9] = {};
    mdf_adjust_prop(W.data(), 258, 8, prop);
    double num[8], max = 1, sum = 1;
    for (int i = 0; i < 8; ++i) {
        const float *w = &W[i * 258];
        max = std::max(max, num[i] = std::sqrt(std::inner_product(w, w + 258, w, 1.0)));
    }
    for (double &n : num) {
        n += 0.1 * max;
        sum += n;
    }
    for (int i = 0; i < 8; ++i) {
        EXPECT_NEAR(prop[i], 0.99 * num[i] / sum, 1e-6) << "partition " << i;
    }
    EXPECT_EQ(prop[8], 0.0f);
}

const int kLengths[] = {0, 1, 3, 4, 5, 7, 8, 9, 129, 258};

struct Binary {
    const char *name;
    std::function<void(const float *, const float *, float *, int)> kernel;
    std::function<float(float, float)> formula;
};

TEST(VectorKernels, ElementWiseFormulas) {
    const float wa_value = 0.3f, wb_value = 1.7f;
    const Binary cases[] = {
        {"add", vec_add, [](float a, float b) { return a + b; }},
        {"sub", vec_sub, [](float a, float b) { return a - b; }},
        {"average", vec_average, [](float a, float b) { return (a + b) / 2.0f; }},
        {"scale", [](const float *a, const float *, float *o, int n) { vec_scale(a, 0.37f, o, n); },
         [](float a, float) { return a * 0.37f; }},
        {"raise_to",
         [](const float *a, const float *, float *o, int n) { vec_raise_to(a, 100.0f, o, n); },
         [](float a, float) { return a > 100.0f ? a : 100.0f; }},
        {"crossfade",
         [&](const float *a, const float *b, float *o, int n) {
             const std::vector<float> wa(n + 1, wa_value), wb(n + 1, wb_value);
             vec_crossfade(wa.data(), a, wb.data(), b, o, n);
         },
         [&](float a, float b) { return wa_value * a + wb_value * b; }},
    };
    for (const Binary &c : cases) {
        for (int n : kLengths) {
            for (int offset : {0, 1}) {
                const std::vector<float> a = noise(n + 1, -1000, 1000, 1 + n),
                                         b = noise(n + 1, -1000, 1000, 100 + n);
                std::vector<float> out(n + 2, -5.0f);
                c.kernel(a.data() + offset, b.data() + offset, out.data() + offset, n);
                for (int i = 0; i < n; ++i) {
                    ASSERT_EQ(out[offset + i], c.formula(a[offset + i], b[offset + i]))
                        << c.name << " n=" << n << " offset " << offset << " at " << i;
                }
                EXPECT_EQ(out[offset + n], -5.0f) << c.name << " wrote past n=" << n;
            }
            // In place, into the first operand.
            std::vector<float> a = noise(n + 1, -1000, 1000, 7 + n);
            const std::vector<float> a0 = a, b = noise(n + 1, -1000, 1000, 200 + n);
            c.kernel(a.data(), b.data(), a.data(), n);
            for (int i = 0; i < n; ++i) {
                ASSERT_EQ(a[i], c.formula(a0[i], b[i])) << c.name << " in place n=" << n;
            }
        }
    }
}

// Pre-emphasis takes the previous input (`prev` before the first); the window pair multiplies
// the first half by w rising and the second by w falling. Both in place too.
TEST(VectorKernels, PreemphasisAndWindowPair) {
    for (int n : kLengths) {
        const std::vector<float> x = noise(2 * n + 1, -1000, 1000, 40 + n);
        std::vector<float> w(n + 1), pre(n + 1, -5.0f), pre_in = x, win(2 * n + 1, -5.0f),
                                                        win_in = x;
        for (int i = 0; i <= n; ++i) {
            w[i] = 0.01f * static_cast<float>(i + 1);  // distinct, so a wrong index shows
        }
        vec_preemphasis(x.data(), 321.5f, 0.9f, pre.data(), n);
        vec_preemphasis(pre_in.data(), 321.5f, 0.9f, pre_in.data(), n);
        vec_window_pair(x.data(), w.data(), win.data(), n);
        vec_window_pair(win_in.data(), w.data(), win_in.data(), n);
        for (int i = 0; i < n; ++i) {
            const float want = x[i] - 0.9f * (i == 0 ? 321.5f : x[i - 1]);
            ASSERT_EQ(pre[i], want) << "n=" << n << " at " << i;
            ASSERT_EQ(pre_in[i], want) << "in place, n=" << n << " at " << i;
            ASSERT_EQ(win[i], x[i] * w[i]) << "n=" << n << " at " << i;
            ASSERT_EQ(win[n + i], x[n + i] * w[n - i]) << "n=" << n << " at " << i;
            ASSERT_EQ(win_in[i], win[i]);
            ASSERT_EQ(win_in[n + i], win[n + i]);
        }
        EXPECT_EQ(pre[n], -5.0f);
        EXPECT_EQ(win[2 * n], -5.0f);
    }
}

TEST(VectorKernels, RangeFindsTheExtremesAndSkipsLaterNaNs) {
    for (int n : {1, 3, 4, 5, 7, 8, 9, 129, 258}) {
        std::vector<float> x = noise(n + 1, -1000, 1000, 60 + n);
        x.resize(n);
        float lo = 0, hi = 0;
        vec_range(x.data(), n, &lo, &hi);
        EXPECT_EQ(lo, *std::min_element(x.begin(), x.end())) << "n=" << n;
        EXPECT_EQ(hi, *std::max_element(x.begin(), x.end())) << "n=" << n;
        if (n > 1) {
            const int at = n / 2 + 1 < n ? n / 2 + 1 : 1;  // past x[0], in a group or the tail
            x[at] = NAN;
            float nan_lo = 0, nan_hi = 0;
            vec_range(x.data(), n, &nan_lo, &nan_hi);
            x.erase(x.begin() + at);
            EXPECT_EQ(nan_lo, *std::min_element(x.begin(), x.end())) << "NaN, n=" << n;
            EXPECT_EQ(nan_hi, *std::max_element(x.begin(), x.end())) << "NaN, n=" << n;
        }
    }
}

TEST(VectorKernels, PcmInAndOut) {
    const float specials[] = {NAN,       INFINITY, -INFINITY, 32767.5f, 32768.0f, -32768.9f,
                              -32769.0f, -0.5f,    0.99f,     -1.5f,    1e9f,     -1e9f};
    for (int n : kLengths) {
        std::vector<short> pcm(2 * n + 1);
        for (int k = 0; k < 2 * n + 1; ++k) {
            pcm[k] = static_cast<short>(k * 7919 - 32768);  // walks over the whole range
        }
        for (const auto &[channels, ch] : {std::pair{1, 0}, std::pair{2, 0}, std::pair{2, 1}}) {
            std::vector<float> in(n + 1, -5.0f);
            vec_from_pcm(pcm.data(), channels, ch, in.data(), n);
            for (int k = 0; k < n; ++k) {
                ASSERT_EQ(in[k], static_cast<float>(pcm[k * channels + ch])) << "n=" << n;
            }
            EXPECT_EQ(in[n], -5.0f);
        }
        for (int at = 0; at <= n; ++at) {  // one sample beyond 32700, or none within n
            std::vector<short> quiet(n + 1, -100);
            quiet[at] = -32768;
            ASSERT_EQ(pcm_exceeds(quiet.data(), n, 32700), at < n) << "n=" << n << " at " << at;
        }
        std::vector<float> x = noise(n, -40000.0f, 40000.0f, 5 + n);
        for (int k = 0; k < n; ++k) {
            x[k] = k % 3 == 0 ? specials[(k / 3) % std::size(specials)] : x[k];
        }
        std::vector<short> out(n + 1, 77);
        vec_to_pcm(x.data(), out.data(), n);
        for (int k = 0; k < n; ++k) {
            const short want =
                std::isnan(x[k])
                    ? 0
                    : static_cast<short>(std::trunc(std::clamp(x[k], -32768.0f, 32767.0f)));
            ASSERT_EQ(out[k], want) << "n=" << n << " x=" << x[k];
        }
        EXPECT_EQ(out[n], 77);
    }
}

TEST(VectorKernels, ClippedPairsAreCounted) {
    const float levels[] = {32767.0f, -32768.0f, 32766.0f};
    for (int n : kLengths) {
        for (unsigned seed : {1u, 2u, 3u}) {
            const std::vector<float> r = noise(n, -1.0f, 1.0f, seed * 100 + n);
            std::vector<float> x(n);
            for (int k = 0; k < n; ++k) {
                // Mostly the two rails, so that runs of equal pairs and changes both occur.
                x[k] = levels[r[k] < -0.6f ? 2 : r[k] < 0.2f ? 0 : 1];
            }
            int want = 0;
            for (int k = 1; k < n; ++k) {
                want += x[k] == x[k - 1] && (x[k] == 32767.0f || x[k] == -32768.0f);
            }
            ASSERT_EQ(count_clipped_pairs(x.data(), n), want) << "n=" << n << " seed " << seed;
        }
    }
}

// Conjugation negates the imaginary parts only; the table noise adds x a s to the real parts
// and takes y a s from the imaginary ones.
TEST(VectorKernels, ConjugateAndConjugateNoise) {
    for (int bins : {1, 3, 4, 5, 129}) {
        const std::vector<float> spectrum = noise(2 * bins + 1, -1000, 1000, bins),
                                 a = noise(bins + 1, -1000, 1000, 30 + bins);
        std::vector<int16_t> x(bins), y(bins);
        for (int k = 0; k < bins; ++k) {
            x[k] = static_cast<int16_t>(k * 7919 - 32768);
            y[k] = static_cast<int16_t>(32767 - k * 4111);
        }
        std::vector<float> out = spectrum, conj(2 * bins + 1, -5.0f);
        vec_add_conjugate_noise(out.data(), x.data(), y.data(), a.data(), 0.25f, bins);
        vec_conjugate(spectrum.data(), conj.data(), bins);
        for (int k = 0; k < bins; ++k) {
            const float xf = x[k], yf = y[k];
            ASSERT_EQ(out[2 * k], spectrum[2 * k] + xf * a[k] * 0.25f) << bins << " re " << k;
            ASSERT_EQ(out[2 * k + 1], spectrum[2 * k + 1] - yf * a[k] * 0.25f) << bins << " " << k;
            ASSERT_EQ(conj[2 * k], spectrum[2 * k]) << bins << " re " << k;
            ASSERT_EQ(conj[2 * k + 1], -spectrum[2 * k + 1]) << bins << " im " << k;
        }
        EXPECT_EQ(out[2 * bins], spectrum[2 * bins]);
        EXPECT_EQ(conj[2 * bins], -5.0f);
    }
}

// The far-end power and leak smoothing, the leak sums from the top bin down, and the step sizes
// (a leak of 0.5 caps about half of the bins), all element by element as written.
TEST(StepControl, SmoothingLeakSumsAndStepSizes) {
    for (int n : kBinCounts) {
        const std::vector<float> Xf = noise(n + 1, 0, 1000, n), Rf = noise(n + 1, 0, 1000, 10 + n),
                                 Yf = noise(n + 1, 0, 1000, 20 + n),
                                 power0 = noise(n + 1, 0, 1000, 30 + n),
                                 Eh0 = noise(n + 1, 0, 1000, 40 + n),
                                 Yh0 = noise(n + 1, 0, 1000, 50 + n);
        std::vector<float> power = power0, Eh = Eh0, Yh = Yh0, adapted(n + 1, -5.0f),
                           fixed(n + 1, -5.0f);
        const float ss = 0.35f / 8, a = 0.0625f, leak = 0.5f, RER = 0.25f, rate = 0.0123f;
        smooth_far_power(power.data(), Xf.data(), ss, n);
        float pey = 1.0f, pyy = 1.0f, want_ey = 1.0f, want_yy = 1.0f;
        leak_sums(Rf.data(), Yf.data(), a, Eh.data(), Yh.data(), n, &pey, &pyy);
        step_sizes_adapted(Rf.data(), Yf.data(), power0.data(), leak, RER, adapted.data(), n);
        step_sizes_fixed(power0.data(), rate, fixed.data(), n);
        for (int i = n - 1; i >= 0; --i) {
            const float dE = Rf[i] - Eh0[i], dY = Yf[i] - Yh0[i], e = Rf[i] + 1;
            want_ey += dE * dY;
            want_yy += dY * dY;
            const float r = std::fmin(leak * Yf[i], 0.5f * e);
            ASSERT_EQ(power[i], (1 - ss) * power0[i] + 1 + ss * Xf[i]) << "n=" << n << " " << i;
            ASSERT_EQ(Eh[i], (1 - a) * Eh0[i] + a * Rf[i]) << "n=" << n << " " << i;
            ASSERT_EQ(Yh[i], (1 - a) * Yh0[i] + a * Yf[i]) << "n=" << n << " " << i;
            ASSERT_EQ(adapted[i], (0.7f * r + 0.3f * RER * e) / ((power0[i] + 10) * e)) << i;
            ASSERT_EQ(fixed[i], rate / (power0[i] + 10)) << "n=" << n << " " << i;
        }
        EXPECT_EQ(pey, want_ey) << "n=" << n;
        EXPECT_EQ(pyy, want_yy) << "n=" << n;
        EXPECT_EQ(std::vector<float>({power[n], Eh[n], Yh[n], adapted[n], fixed[n]}),
                  std::vector<float>({power0[n], Eh0[n], Yh0[n], -5.0f, -5.0f}));
    }
}

TEST(StepControl, PartitionEnergiesSumEachPartitionInOrder) {
    for (int n : {1, 3, 4, 5, 258}) {
        for (int m : {1, 3, 4, 5, 8, 9}) {
            const std::vector<float> W = noise(n * m, -300.0f, 300.0f, n * 16 + m);
            std::vector<float> energy(m + 1, -5.0f);
            partition_energies(W.data(), n, m, energy.data());
            for (int k = 0; k < m; ++k) {
                float want = 1.0f;
                for (int j = 0; j < n; ++j) {
                    want += W[k * n + j] * W[k * n + j];
                }
                ASSERT_EQ(energy[k], want) << "n=" << n << " m=" << m << " partition " << k;
            }
            EXPECT_EQ(energy[m], -5.0f);
        }
    }
}

}  // namespace
