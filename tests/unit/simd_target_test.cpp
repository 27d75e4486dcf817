// Which 4-lane path this build compiled, and the lane operations the kernels build their
// division and square root on. The ARM build must run the native NEON instructions (an
// emulated path there would test the wrong code); both paths must give estimates good enough
// for the Newton-Raphson refinements the kernels apply.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "kernels/simd.h"

#if defined(__arm__)
static_assert(QENAEC_NATIVE_NEON == 1, "the ARM build must compile the native NEON path");
#endif

namespace {

TEST(SimdTarget, ArmBuildIsNativeNeonArmv7HardFloat) {
#if defined(__arm__)
    EXPECT_EQ(QENAEC_NATIVE_NEON, 1);
    EXPECT_EQ(__ARM_ARCH, 7);
#if !defined(__ARM_PCS_VFP)
    ADD_FAILURE() << "ARM build does not use the hard-float calling convention";
#endif
#else
    EXPECT_EQ(QENAEC_NATIVE_NEON, 0) << "host build should use the emulation layer";
#endif
}

float32x4_t load(float a, float b, float c, float d) {
    const float v[4] = {a, b, c, d};
    return vld1q_f32(v);
}

void store(float32x4_t v, float out[4]) {
    vst1q_f32(out, v);
}

TEST(SimdTarget, ArithmeticLanesAreIndependent) {
    float out[4];
    store(vmulq_f32(vaddq_f32(load(1, 2, 3, 4), load(10, 20, 30, 40)), load(2, -1, 0.5f, 0)), out);
    const float expected[4] = {22, -22, 16.5f, 0};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(out[i], expected[i]) << "lane " << i;
    }
    store(vmlaq_f32(load(1, 1, 1, 1), load(2, 3, 4, 5), load(3, 3, 3, 3)), out);
    const float mla[4] = {7, 10, 13, 16};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(out[i], mla[i]) << "lane " << i;
    }
}

// Comparisons give all-ones lanes where they hold, also across signed zeros and never for a
// NaN; negation flips the sign of zero too. On ARMv7 these are the library's own
// instructions, not the compiler header's.
TEST(SimdTarget, ComparisonsAndNegationPerLane) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float32x4_t a = load(1.0f, 2.0f, -0.0f, nan);
    const float32x4_t b = load(2.0f, 2.0f, 0.0f, 1.0f);
    struct Case {
        const char *name;
        uint32x4_t mask;
        bool expected[4];
    };
    const Case cases[] = {
        {"a > b", vcgtq_f32(a, b), {false, false, false, false}},
        {"a >= b", vcgeq_f32(a, b), {false, true, true, false}},
        {"a < b", vcltq_f32(a, b), {true, false, false, false}},
        {"a <= b", vcleq_f32(a, b), {true, true, true, false}},
        {"b > a", vcgtq_f32(b, a), {true, false, false, false}},
    };
    for (const Case &c : cases) {
        uint32_t lanes[4];
        vst1q_u32(lanes, c.mask);
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(lanes[i], c.expected[i] ? 0xFFFFFFFFu : 0u) << c.name << " lane " << i;
        }
    }
    float out[4];
    store(vnegq_f32(load(1.5f, -2.0f, 0.0f, -0.0f)), out);
    const float negated[4] = {-1.5f, 2.0f, -0.0f, 0.0f};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(out[i], negated[i]) << "lane " << i;
        EXPECT_EQ(std::signbit(out[i]), std::signbit(negated[i])) << "lane " << i;
    }
}

// The estimate instructions are only about 8 bits exact; the kernels' refinement steps
// assume no worse. Values span the magnitudes of spectral powers.
TEST(SimdTarget, ReciprocalEstimatesHaveEightBits) {
    const float values[] = {1e-6f, 0.3f, 1.0f, 1.5f, 7.0f, 1000.0f, 3.3e5f, 2.5e9f};
    for (float v : values) {
        float recip[4];
        float rsqrt[4];
        store(vrecpeq_f32(vdupq_n_f32(v)), recip);
        store(vrsqrteq_f32(vdupq_n_f32(v)), rsqrt);
        EXPECT_NEAR(recip[0] * v, 1.0f, 1.0f / 256) << v;
        EXPECT_NEAR(rsqrt[0] * std::sqrt(v), 1.0f, 1.0f / 256) << v;
    }
}

// The square-root kernel replaces the infinite estimate at zero by 0; that relies on the
// estimate of 0 being +infinity on every path.
TEST(SimdTarget, ReciprocalSqrtEstimateOfZeroIsInfinity) {
    float out[4];
    store(vrsqrteq_f32(vdupq_n_f32(0.0f)), out);
    for (float lane : out) {
        EXPECT_EQ(lane, std::numeric_limits<float>::infinity());
    }
}

}  // namespace
