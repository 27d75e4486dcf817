// The inner product in four lanes (lane l sums the products of indices l mod 4, the lanes are
// added in order, then the remainder one by one), the element-wise kernels, and the bulk
// copies and clears.
#include "kernels/vector.h"

#include <cstring>

#include "dsp/stream.h"
#include "dsp/vector_math.h"
#include "kernels/lanes.h"

using namespace lanes;

void InnerProduct_neon(float *input1, float *input2, float *output, int length) {
    *output = 0.0f;
    float32x4_t lanes = vdupq_n_f32(0.0f);
    int i = 0;
#pragma GCC unroll 2
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

void vec_average(const float *a, const float *b, float *out, int n) {
    for_each_element(n, [&](int i, auto lane) {
        using V = decltype(lane);
        store(&out[i], mul(add(load<V>(&a[i]), load<V>(&b[i])), splat<V>(0.5f)));
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

void vec_raise_to(const float *x, float lo, float *out, int n) {
    for_each_element(n, [&](int i, auto lane) {
        using V = decltype(lane);
        const V v = load<V>(&x[i]);
        store(&out[i], select(lt(splat<V>(lo), v), v, splat<V>(lo)));
    });
}

void vec_add_conjugate_noise(float *spectrum, const int16_t *x, const int16_t *y, const float *a,
                             float s, int bins) {
    int k = 0;
    for (; k + 3 < bins; k += 4) {
        const float32x4_t amplitude = vld1q_f32(&a[k]);
        const float32x4_t xf = vcvtq_f32_s32(vmovl_s16(vld1_s16(&x[k])));
        const float32x4_t yf = vcvtq_f32_s32(vmovl_s16(vld1_s16(&y[k])));
        const complex_t<float32x4_t> bin = load_complex<float32x4_t>(&spectrum[2 * k]);
        const float32x4_t re = mla(bin.re, mul(xf, amplitude), splat<float32x4_t>(s));
        const float32x4_t im = mls(bin.im, mul(yf, amplitude), splat<float32x4_t>(s));
        store_complex(&spectrum[2 * k], complex_t<float32x4_t>{re, im});
    }
    for (; k < bins; ++k) {
        spectrum[2 * k] += static_cast<float>(x[k]) * a[k] * s;
        spectrum[2 * k + 1] -= static_cast<float>(y[k]) * a[k] * s;
    }
}

void vec_from_pcm(const short *pcm, int channels, int ch, float *out, int n) {
    int k = 0;
    // Four frames at a time, read from the frame's start, so nothing past the last frame.
    for (; k + 3 < n; k += 4) {
        int16x4_t v;
        if (channels == 1) {
            v = vld1_s16(&pcm[k]);
        } else {
            const int16x4x2_t pair = vld2_s16(&pcm[2 * k]);
            v = ch == 0 ? pair.val[0] : pair.val[1];
        }
        vst1q_f32(&out[k], vcvtq_f32_s32(vmovl_s16(v)));
    }
    for (; k < n; ++k) {
        out[k] = static_cast<float>(pcm[k * channels + ch]);
    }
}

void vec_to_pcm(const float *x, short *out, int n) {
    int k = 0;
    for (; k + 3 < n; k += 4) {
        const float32x4_t v = vld1q_f32(&x[k]);
        // NaN lanes become 0 after the clamp, which would let them through as NaN.
        const float32x4_t clamped = at_most(at_least(v, -32768.0f), 32767.0f);
        const float32x4_t t = select(eq(v, v), clamped, splat<float32x4_t>(0.0f));
        vst1_s16(&out[k], vmovn_s32(vcvtq_s32_f32(t)));
    }
    for (; k < n; ++k) {
        out[k] = saturate_to_pcm(x[k]);
    }
}

int count_clipped_pairs(const float *x, int n) {
    const float32x4_t high = vdupq_n_f32(32767.0f);
    const float32x4_t low = vdupq_n_f32(-32768.0f);
    uint32x4_t counts = vdupq_n_u32(0);
    int k = 1;
    for (; k + 3 < n; k += 4) {
        const float32x4_t a = vld1q_f32(&x[k - 1]);
        const float32x4_t b = vld1q_f32(&x[k]);
        const uint32x4_t both_high = vandq_u32(eq(a, high), eq(b, high));
        const uint32x4_t both_low = vandq_u32(eq(a, low), eq(b, low));
        counts = vsubq_u32(counts, vorrq_u32(both_high, both_low));  // a true lane is all ones
    }
    int count = static_cast<int>(vgetq_lane_u32(counts, 0) + vgetq_lane_u32(counts, 1) +
                                 vgetq_lane_u32(counts, 2) + vgetq_lane_u32(counts, 3));
    for (; k < n; ++k) {
        const bool both_high = x[k - 1] == 32767.0f && x[k] == 32767.0f;
        const bool both_low = x[k - 1] == -32768.0f && x[k] == -32768.0f;
        count += both_high || both_low ? 1 : 0;
    }
    return count;
}

bool pcm_exceeds(const short *pcm, int n, int threshold) {
    const int32x4_t limit = vdupq_n_s32(threshold);
    uint32x4_t any = vdupq_n_u32(0);
    int k = 0;
    for (; k + 3 < n; k += 4) {
        const int32x4_t magnitude = vabsq_s32(vmovl_s16(vld1_s16(&pcm[k])));
        any = vorrq_u32(any, vcgtq_s32(magnitude, limit));
    }
    bool found = (vgetq_lane_u32(any, 0) | vgetq_lane_u32(any, 1) | vgetq_lane_u32(any, 2) |
                  vgetq_lane_u32(any, 3)) != 0;
    for (; k < n; ++k) {
        const int magnitude = pcm[k] < 0 ? -static_cast<int>(pcm[k]) : pcm[k];
        found = found || magnitude > threshold;
    }
    return found;
}

void vec_window_pair(const float *pair, const float *w, float *out, int half) {
    // Pointers that the loads and stores advance: the rising half upwards from w[0], the
    // falling half downwards from w[half].
    const float *rising = w;
    const float *falling = w + half;
    const float *first = pair;
    const float *second = pair + half;
    float *out_first = out;
    float *out_second = out + half;
    const int grouped = grouped_bins(half);
    for (int i = 0; i < grouped; i += 4) {
        const float32x4_t a = mul(load<float32x4_t>(first), load<float32x4_t>(rising));
        const float32x4_t b = mul(load<float32x4_t>(second), load_reversed<float32x4_t>(falling));
        store(out_first, a);
        store(out_second, b);
        first += 4;
        second += 4;
        rising += 4;
        falling -= 4;
        out_first += 4;
        out_second += 4;
    }
    for (int i = grouped; i < half; ++i) {
        out[i] = pair[i] * w[i];
        out[half + i] = pair[half + i] * w[half - i];
    }
}

void vec_conjugate(const float *x, float *out, int bins) {
    for_each_bin(bins, [&](int k, auto lane) {
        using V = decltype(lane);
        complex_t<V> c = load_complex<V>(&x[2 * k]);
        c.im = neg(c.im);
        store_complex(&out[2 * k], c);
    });
}

void copy_bytes_fast(unsigned char *dst, const unsigned char *src, size_t n) {
#if QENAEC_NATIVE_NEON && defined(__arm__)
    // GCC's intrinsics load at most 16 bytes an instruction on ARMv7; a 4-register vld1 takes 32.
    size_t blocks = n / 64;
    if (blocks > 0) {
        __asm__ volatile(
            "1:\n\t"
            "vld1.8 {d16-d19}, [%[s]]!\n\t"
            "vld1.8 {d20-d23}, [%[s]]!\n\t"
            "subs %[b], %[b], #1\n\t"
            "vst1.8 {d16-d19}, [%[d]]!\n\t"
            "vst1.8 {d20-d23}, [%[d]]!\n\t"
            "bne 1b"
            : [d] "+r"(dst), [s] "+r"(src), [b] "+r"(blocks)
            :
            : "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "cc", "memory");
    }
    n %= 64;
#endif
    if (n > 0) {
        memcpy(dst, src, n);
    }
}

void copy_floats(float *dst, const float *src, int n) {
    if (n > 0) {
        copy_bytes_fast(reinterpret_cast<unsigned char *>(dst),
                        reinterpret_cast<const unsigned char *>(src), sizeof(float) * n);
    }
}

void zero_floats(float *dst, int n) {
    if (n <= 0) {
        return;
    }
    size_t bytes = sizeof(float) * static_cast<size_t>(n);
#if QENAEC_NATIVE_NEON && defined(__arm__)
    size_t blocks = bytes / 64;
    if (blocks > 0) {
        __asm__ volatile(
            "vmov.i32 q8, #0\n\t"
            "vmov.i32 q9, #0\n\t"
            "1:\n\t"
            "subs %[b], %[b], #1\n\t"
            "vst1.8 {d16-d19}, [%[d]]!\n\t"
            "vst1.8 {d16-d19}, [%[d]]!\n\t"
            "bne 1b"
            : [d] "+r"(dst), [b] "+r"(blocks)
            :
            : "d16", "d17", "d18", "d19", "cc", "memory");
    }
    bytes %= 64;
#endif
    if (bytes > 0) {
        memset(dst, 0, bytes);
    }
}
