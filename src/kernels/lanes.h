// The vocabulary the per-bin kernels are written in, so that each formula has one source for
// both widths: four bins at a time (float32x4_t, NEON) and a single bin (float). The operations
// are overloaded on the lane type; where the library has always computed the two widths
// differently, the overloads keep that difference: one bin divides and raises to a power
// exactly, four lanes through the approximations of neon_approx.h. Only the .cpp files of this
// folder include it.
#pragma once

#include <cmath>
#include <cstdint>

#include "kernels/neon_approx.h"
#include "kernels/simd.h"

namespace lanes {

// Bins [0, bins) go four at a time while four remain, the rest one at a time: for the 129
// bins of a packed spectrum, 32 groups and then the Nyquist bin alone.
constexpr int grouped_bins(int bins) {
    return bins / 4 * 4;
}

// Calls body(k, V{}) with k the first bin of each step and V the lane type of the step.
template <typename Body>
inline void for_each_bin(int bins, Body &&body) {
    const int grouped = grouped_bins(bins);
    // Two groups a step where they fit: the loop's own instructions are a large part of a
    // short body. The groups still go in order.
#pragma GCC unroll 2
    for (int k = 0; k < grouped; k += 4) {
        body(k, float32x4_t{});
    }
    for (int k = grouped; k < bins; ++k) {
        body(k, 0.0f);
    }
}

// The same walk over the n elements of a sample block or any plain array.
template <typename Body>
inline void for_each_element(int n, Body &&body) {
    for_each_bin(n, static_cast<Body &&>(body));
}

template <typename V>
V load(const float *p);
template <>
inline float load<float>(const float *p) {
    return *p;
}
template <>
inline float32x4_t load<float32x4_t>(const float *p) {
    return vld1q_f32(p);
}
inline void store(float *p, float v) {
    *p = v;
}
inline void store(float *p, float32x4_t v) {
    vst1q_f32(p, v);
}

// p[0], p[-1], p[-2], p[-3]: four elements read downwards, as a window's falling half.
template <typename V>
V load_reversed(const float *p);
template <>
inline float load_reversed<float>(const float *p) {
    return *p;
}
template <>
inline float32x4_t load_reversed<float32x4_t>(const float *p) {
    const float32x4_t v = vrev64q_f32(vld1q_f32(p - 3));
    return vcombine_f32(vget_high_f32(v), vget_low_f32(v));
}

template <typename V>
V splat(float x);
template <>
inline float splat<float>(float x) {
    return x;
}
template <>
inline float32x4_t splat<float32x4_t>(float x) {
    return vdupq_n_f32(x);
}

// Bins of a packed spectrum, (re, im) pairs, with the real and imaginary parts apart.
template <typename V>
struct complex_t {
    V re;
    V im;
};
template <typename V>
complex_t<V> load_complex(const float *p);
template <>
inline complex_t<float> load_complex<float>(const float *p) {
    return {p[0], p[1]};
}
template <>
inline complex_t<float32x4_t> load_complex<float32x4_t>(const float *p) {
    const float32x4x2_t v = vld2q_f32(p);
    return {v.val[0], v.val[1]};
}
inline void store_complex(float *p, complex_t<float> c) {
    p[0] = c.re;
    p[1] = c.im;
}
inline void store_complex(float *p, complex_t<float32x4_t> c) {
    const float32x4x2_t v = {{c.re, c.im}};
    vst2q_f32(p, v);
}

inline float add(float a, float b) {
    return a + b;
}
inline float32x4_t add(float32x4_t a, float32x4_t b) {
    return vaddq_f32(a, b);
}
inline float sub(float a, float b) {
    return a - b;
}
inline float32x4_t sub(float32x4_t a, float32x4_t b) {
    return vsubq_f32(a, b);
}
inline float mul(float a, float b) {
    return a * b;
}
inline float32x4_t mul(float32x4_t a, float32x4_t b) {
    return vmulq_f32(a, b);
}
inline float neg(float a) {
    return -a;
}
inline float32x4_t neg(float32x4_t a) {
    return vnegq_f32(a);
}
// a + b * c and a - b * c, the product rounded first (never fused).
inline float mla(float a, float b, float c) {
    return a + b * c;
}
inline float32x4_t mla(float32x4_t a, float32x4_t b, float32x4_t c) {
    return vmlaq_f32(a, b, c);
}
inline float mls(float a, float b, float c) {
    return a - b * c;
}
inline float32x4_t mls(float32x4_t a, float32x4_t b, float32x4_t c) {
    return vmlsq_f32(a, b, c);
}

// Comparisons give a bool for one lane and a lane mask for four; select(m, a, b) is a where m
// holds, else b.
inline bool eq(float a, float b) {
    return a == b;
}
inline uint32x4_t eq(float32x4_t a, float32x4_t b) {
    return vceqq_f32(a, b);
}
inline bool lt(float a, float b) {
    return a < b;
}
inline uint32x4_t lt(float32x4_t a, float32x4_t b) {
    return vcltq_f32(a, b);
}
inline bool le(float a, float b) {
    return a <= b;
}
inline uint32x4_t le(float32x4_t a, float32x4_t b) {
    return vcleq_f32(a, b);
}
inline bool gt(float a, float b) {
    return a > b;
}
inline uint32x4_t gt(float32x4_t a, float32x4_t b) {
    return vcgtq_f32(a, b);
}
inline float select(bool m, float a, float b) {
    return m ? a : b;
}
inline float32x4_t select(uint32x4_t m, float32x4_t a, float32x4_t b) {
    return vbslq_f32(m, a, b);
}
// v raised to at least `lo`, lowered to at most `hi`; a NaN stays NaN in both widths.
inline float at_least(float v, float lo) {
    return v <= lo ? lo : v;
}
inline float32x4_t at_least(float32x4_t v, float lo) {
    return vmaxq_f32(v, vdupq_n_f32(lo));
}
inline float at_most(float v, float hi) {
    return v > hi ? hi : v;
}
inline float32x4_t at_most(float32x4_t v, float hi) {
    return vminq_f32(v, vdupq_n_f32(hi));
}

// a / b and a^b: exact for the single bin, approximate for four lanes (ARMv7 has no vector
// division or power, and ARM users compare against exactly these approximations).
inline float divide(float a, float b) {
    return a / b;
}
inline float32x4_t divide(float32x4_t a, float32x4_t b) {
    return vdivq_f32(a, b);
}
// a / b exactly in both widths, where the formula needs the correctly rounded quotient: ARMv7
// divides lane by lane in the scalar unit.
inline float divide_exactly(float a, float b) {
    return a / b;
}
inline float32x4_t divide_exactly(float32x4_t a, float32x4_t b) {
#if QENAEC_NATIVE_NEON
    float32x4_t q = a;
    q = vsetq_lane_f32(vgetq_lane_f32(a, 0) / vgetq_lane_f32(b, 0), q, 0);
    q = vsetq_lane_f32(vgetq_lane_f32(a, 1) / vgetq_lane_f32(b, 1), q, 1);
    q = vsetq_lane_f32(vgetq_lane_f32(a, 2) / vgetq_lane_f32(b, 2), q, 2);
    q = vsetq_lane_f32(vgetq_lane_f32(a, 3) / vgetq_lane_f32(b, 3), q, 3);
    return q;
#else
    return a / b;  // the emulation's vector type divides exactly, lane by lane
#endif
}
inline float power(float a, float b) {
    return static_cast<float>(std::pow(static_cast<double>(a), static_cast<double>(b)));
}
inline float32x4_t power(float32x4_t a, float32x4_t b) {
    return vpowq_f32(a, b);
}

}  // namespace lanes
