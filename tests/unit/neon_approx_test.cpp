// Self-test of the approximate 4-lane division, square root and power against the exact
// library functions over sweeps of inputs, and of the power against its scalar restatement.
// Prints the worst relative error measured for each.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

#include "approx_reference.h"
#include "kernels/neon_approx.h"

namespace {

using Vec4Op = std::function<float32x4_t(float32x4_t, float32x4_t)>;

// Runs `op` over the inputs four lanes at a time, each lane a different value.
std::vector<float> run4(const Vec4Op &op, const std::vector<float> &a,
                        const std::vector<float> &b) {
    std::vector<float> out(a.size());
    for (size_t i = 0; i + 4 <= a.size(); i += 4) {
        vst1q_f32(&out[i], op(vld1q_f32(&a[i]), vld1q_f32(&b[i])));
    }
    return out;
}

// Magnitudes 1e-30 .. 1e30, 20 per decade, with a perturbed mantissa per lane.
std::vector<float> log_sweep() {
    std::vector<float> v;
    for (int i = -600; i < 600; ++i) {
        v.push_back(float(std::pow(10.0, i / 20.0) * (1.0 + 0.37 * (i & 3))));
    }
    return v;
}

double rel(double got, double want) {
    return std::fabs(got - want) / std::fabs(want);
}

TEST(NeonApprox, DivisionMatchesExactOverMagnitudeSweep) {
    auto b = log_sweep();
    std::vector<float> a(b.size());
    for (size_t i = 0; i < b.size(); ++i) {
        a[i] = float(i % 7) - 3.3f;
        if (i % 2) {
            b[i] = -b[i];
        }
    }
    auto q = run4([](float32x4_t x, float32x4_t y) { return vdivq_f32(x, y); }, a, b);
    double worst = 0;
    for (size_t i = 0; i < b.size(); ++i) {
        if (a[i] != 0.0f) {
            worst = std::max(worst, rel(q[i], double(a[i]) / b[i]));
        }
    }
    std::printf("vdivq_f32 worst relative error: %.3g\n", worst);
    EXPECT_LT(worst, 5e-7);
}

TEST(NeonApprox, SquareRootMatchesExactAndIsZeroAtZero) {
    auto s = log_sweep();
    s[0] = s[5] = 0.0f;  // zero in two different lanes
    auto r = run4([](float32x4_t x, float32x4_t) { return vsqrtq_f32(x); }, s, s);
    double worst = 0;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == 0.0f) {
            EXPECT_EQ(r[i], 0.0f) << "lane " << i % 4;
        } else {
            worst = std::max(worst, rel(r[i], std::sqrt(double(s[i]))));
        }
    }
    std::printf("vsqrtq_f32 worst relative error: %.3g\n", worst);
    EXPECT_LT(worst, 5e-7);
}

struct PowSweep {
    std::vector<float> a, b;
};

// Bases 0.001..2 against exponents 0..100, keeping results in the normal range.
PowSweep pow_sweep() {
    PowSweep s;
    for (int ia = 1; ia <= 2000; ia += 3) {
        for (int ib = 0; ib <= 400; ib += 3) {
            const float a = ia / 1000.0f;
            const float b = ib * 0.25f;
            const double z = b * std::log2(double(a));
            if (z > -125.0 && z < 127.0) {
                s.a.push_back(a);
                s.b.push_back(b);
            }
        }
    }
    s.a.resize(s.a.size() / 4 * 4);
    s.b.resize(s.a.size());
    return s;
}

TEST(NeonApprox, PowerFollowsItsMethodAndStaysNearExact) {
    const auto s = pow_sweep();
    auto p = run4([](float32x4_t x, float32x4_t y) { return vpowq_f32(x, y); }, s.a, s.b);
    double worst = 0, worst_a = 0, worst_b = 0;
    for (size_t i = 0; i < s.a.size(); ++i) {
        const float method = qtest::approx_pow(s.a[i], s.b[i]);
        ASSERT_NEAR(p[i], method, 2e-6 * std::fabs(method)) << s.a[i] << "^" << s.b[i];
        const double e = rel(p[i], std::pow(double(s.a[i]), double(s.b[i])));
        if (e > worst) {
            worst = e, worst_a = s.a[i], worst_b = s.b[i];
        }
    }
    std::printf("vpowq_f32 worst relative error: %.3g (at %g^%g)\n", worst, worst_a, worst_b);
    // The quadratic for 2^f is fitted on [0, 1] and is used on about [-0.5, 1.5], which
    // costs up to about 7%.
    EXPECT_LT(worst, 0.075);
}

TEST(NeonApprox, PowerOfExactPowersOfTwoAndZeroExponent) {
    // 2^k from a power-of-two base: log2 is exact, so only the quadratic's error remains.
    const std::vector<float> a = {0.5f, 0.25f, 2.0f, 4.0f, 0.001f, 0.7f, 1.0f, 0.0f};
    const std::vector<float> b = {3.0f, 10.0f, 5.0f, 2.0f, 0.0f, 0.0f, 0.0f, 0.0f};
    auto p = run4([](float32x4_t x, float32x4_t y) { return vpowq_f32(x, y); }, a, b);
    for (size_t i = 0; i < 4; ++i) {
        const double want = std::pow(double(a[i]), double(b[i]));
        EXPECT_NEAR(p[i], want, 0.0035 * want) << a[i] << "^" << b[i];
    }
    for (size_t i = 4; i < 8; ++i) {
        EXPECT_NEAR(p[i], 1.0f, 0.002f) << a[i] << "^0";
    }
}

}  // namespace
