// The inner product in four lanes (lane l sums the products of indices l mod 4, the lanes are
// added in order, then the remainder one by one), the element-wise kernels, and the vector
// block copy of memcpy_fast.
#include "kernels/vector.h"

#include "dsp/vector_math.h"
#include "kernels/lanes.h"

using namespace lanes;

void InnerProduct_neon(float *input1, float *input2, float *output, int length) {
    *output = 0.0f;
    float32x4_t lanes = vdupq_n_f32(0.0f);
    int i = 0;
    for (; i + 3 < length; i += 4) {
        lanes = vmlaq_f32(lanes, vld1q_f32(input1 + i), vld1q_f32(input2 + i));
    }
    *output = *output +
              (((vgetq_lane_f32(lanes, 0) + vgetq_lane_f32(lanes, 1)) + vgetq_lane_f32(lanes, 2)) +
               vgetq_lane_f32(lanes, 3));
    for (; i < length; ++i) {
        *output += input1[i] * input2[i];
    }
}

void vec_scale(const float *x, float s, float *out, int n) {
    for_each_element(n, [&](int i, auto lane) {
        using V = decltype(lane);
        store(&out[i], mul(load<V>(&x[i]), splat<V>(s)));
    });
}

void vec_add(const float *a, const float *b, float *out, int n) {
    for_each_element(n, [&](int i, auto lane) {
        using V = decltype(lane);
        store(&out[i], add(load<V>(&a[i]), load<V>(&b[i])));
    });
}

void vec_sub(const float *a, const float *b, float *out, int n) {
    for_each_element(n, [&](int i, auto lane) {
        using V = decltype(lane);
        store(&out[i], sub(load<V>(&a[i]), load<V>(&b[i])));
    });
}

void vec_crossfade(const float *wa, const float *a, const float *wb, const float *b, float *out,
                   int n) {
    for_each_element(n, [&](int i, auto lane) {
        using V = decltype(lane);
        const V fa = mul(load<V>(&wa[i]), load<V>(&a[i]));
        store(&out[i], mla(fa, load<V>(&wb[i]), load<V>(&b[i])));
    });
}

void vec_preemphasis(const float *x, float prev, float c, float *out, int n) {
    // Each step reads its four inputs and the last one of the step before, kept from before
    // it was overwritten, so that `out` may be `x`.
    const int grouped = grouped_bins(n);
    float32x4_t last = vdupq_n_f32(prev);
    for (int i = 0; i < grouped; i += 4) {
        const float32x4_t v = vld1q_f32(&x[i]);
        vst1q_f32(&out[i], mls(v, vextq_f32(last, v, 3), splat<float32x4_t>(c)));
        last = v;
    }
    float before = grouped > 0 ? vgetq_lane_f32(last, 3) : prev;
    for (int i = grouped; i < n; ++i) {
        const float v = x[i];
        out[i] = mls(v, before, c);
        before = v;
    }
}

void vec_range(const float *x, int n, float *lo, float *hi) {
    // Each lane scans its own quarter of the groups; the lanes and the tail are then taken in
    // turn by the same rule, which gives the same values as one scan.
    float32x4_t lanes_lo = vdupq_n_f32(x[0]);
    float32x4_t lanes_hi = lanes_lo;
    const int grouped = grouped_bins(n);
    for (int i = 0; i < grouped; i += 4) {
        const float32x4_t v = vld1q_f32(&x[i]);
        lanes_lo = select(lt(v, lanes_lo), v, lanes_lo);
        lanes_hi = select(gt(v, lanes_hi), v, lanes_hi);
    }
    float l[4];
    float h[4];
    vst1q_f32(l, lanes_lo);
    vst1q_f32(h, lanes_hi);
    float low = x[0];
    float high = x[0];
    for (int k = 0; k < 4; ++k) {
        low = l[k] < low ? l[k] : low;
        high = h[k] > high ? h[k] : high;
    }
    for (int i = grouped; i < n; ++i) {
        low = x[i] < low ? x[i] : low;
        high = x[i] > high ? x[i] : high;
    }
    *lo = low;
    *hi = high;
}

void vec_window_pair(const float *pair, const float *w, float *out, int half) {
    for_each_element(half, [&](int i, auto lane) {
        using V = decltype(lane);
        store(&out[i], mul(load<V>(&pair[i]), load<V>(&w[i])));
        store(&out[half + i], mul(load<V>(&pair[half + i]), load_reversed<V>(&w[half - i])));
    });
}

void vec_conjugate(const float *x, float *out, int bins) {
    for_each_bin(bins, [&](int k, auto lane) {
        using V = decltype(lane);
        complex_t<V> c = load_complex<V>(&x[2 * k]);
        c.im = neg(c.im);
        store_complex(&out[2 * k], c);
    });
}

void copy_64byte_blocks(unsigned char *dst, const unsigned char *src, size_t blocks,
                        size_t prefetch) {
    for (size_t b = 0; b < blocks; ++b, dst += 64, src += 64) {
        __builtin_prefetch(src + prefetch);
        vst1q_u8(dst, vld1q_u8(src));
        vst1q_u8(dst + 16, vld1q_u8(src + 16));
        vst1q_u8(dst + 32, vld1q_u8(src + 32));
        vst1q_u8(dst + 48, vld1q_u8(src + 48));
    }
}
