// Approximate 4-lane division, square root and power for ARMv7 NEON, which has only
// reciprocal and reciprocal-square-root estimates. ARM users compare against exactly this
// arithmetic, so the refinement counts and polynomial coefficients are fixed, and the grouped
// kernel paths use these even where an exact operation would be at hand (the SIMDe layer on
// other hosts).
#pragma once

#include <cmath>
#include <cstdint>

#include "kernels/simd.h"

#if defined(__aarch64__)
#error "AArch64 has exact vdivq_f32/vsqrtq_f32 under these names; these kernels target ARMv7"
#endif

// a / b: reciprocal estimate of b refined by five Newton-Raphson steps x <- x * (2 - b * x).
static inline float32x4_t vdivq_f32(float32x4_t a, float32x4_t b) {
    float32x4_t x = vrecpeq_f32(b);
    for (int step = 0; step < 5; ++step) {
        x = vmulq_f32(x, vrecpsq_f32(b, x));
    }
    return vmulq_f32(a, x);
}

// sqrt(s) = s * rsqrt(s): estimate, two Newton-Raphson steps x <- x * (3 - s * x^2) / 2.
// The estimate of 0 is +inf; it is replaced by 0 so that sqrt(0) is 0 and not 0 * inf.
static inline float32x4_t vsqrtq_f32(float32x4_t s) {
    float32x4_t x = vrsqrteq_f32(s);
    const uint32x4_t is_inf = vceqq_f32(x, vdupq_n_f32(INFINITY));
    x = vbslq_f32(is_inf, vdupq_n_f32(0.0f), x);
    for (int step = 0; step < 2; ++step) {
        x = vmulq_f32(x, vrsqrtsq_f32(vmulq_f32(s, x), x));
    }
    return vmulq_f32(s, x);
}

// log2(a) = n + (y - 1) * P(y): n the unbiased exponent, y the mantissa in [1, 2).
static inline float32x4_t neon_approx_log2(float32x4_t a) {
    const uint32x4_t bits = vreinterpretq_u32_f32(a);
    // The exponent field moved into the mantissa of 256.0 reads as 256 + field; minus 383
    // leaves field - 127, with no integer-to-float conversion.
    const uint32x4_t field = vshrq_n_u32(vandq_u32(bits, vdupq_n_u32(0x7F800000u)), 8);
    const float32x4_t n = vsubq_f32(
        vreinterpretq_f32_u32(vorrq_u32(field, vdupq_n_u32(0x43800000u))), vdupq_n_f32(383.0f));
    const float32x4_t y = vreinterpretq_f32_u32(
        vorrq_u32(vandq_u32(bits, vdupq_n_u32(0x007FFFFFu)), vdupq_n_u32(0x3F800000u)));

    float32x4_t p = vdupq_n_f32(-0.034436006f);
    p = vmlaq_f32(vdupq_n_f32(0.31821337f), p, y);
    p = vmlaq_f32(vdupq_n_f32(-1.2315303f), p, y);
    p = vmlaq_f32(vdupq_n_f32(2.5988452f), p, y);
    p = vmlaq_f32(vdupq_n_f32(-3.3241990f), p, y);
    p = vmlaq_f32(vdupq_n_f32(3.1157899f), p, y);
    return vmlaq_f32(n, vsubq_f32(y, vdupq_n_f32(1.0f)), p);
}

// 2^z = 2^n * Q(f), n = trunc(z - 0.5), f = z - n, with z clamped to [-126.99999, 129].
static inline float32x4_t neon_approx_exp2(float32x4_t z) {
    z = vminq_f32(vmaxq_f32(z, vdupq_n_f32(-126.99999f)), vdupq_n_f32(129.0f));
    const int32x4_t n = vcvtq_s32_f32(vsubq_f32(z, vdupq_n_f32(0.5f)));
    const float32x4_t two_n =
        vreinterpretq_f32_s32(vshlq_n_s32(vaddq_s32(n, vdupq_n_s32(127)), 23));
    const float32x4_t f = vsubq_f32(z, vcvtq_f32_s32(n));

    float32x4_t q = vdupq_n_f32(0.33718944f);
    q = vmlaq_f32(vdupq_n_f32(0.65763628f), q, f);
    q = vmlaq_f32(vdupq_n_f32(1.0017247f), q, f);
    return vmulq_f32(two_n, q);
}

// a^b = 2^(b * log2 a), for a > 0 (a = 0 reads as 2^-127).
static inline float32x4_t vpowq_f32(float32x4_t a, float32x4_t b) {
    return neon_approx_exp2(vmulq_f32(b, neon_approx_log2(a)));
}
