// Power spectrum, partitioned multiply-accumulate and weighted conjugate product on packed
// spectra of any even length. Bins go four at a time (real and imaginary parts de-interleaved)
// while four remain, the rest alone: for 258 floats, bins 0..127 and then the Nyquist bin.
#include "kernels/spectral.h"

#include "kernels/lanes.h"
#include "kernels/vector.h"

using namespace lanes;

void PowerSpectrum_Neon(const float *X, float *ps, int length) {
    for_each_bin(length / 2, [&](int k, auto lane) {
        using V = decltype(lane);
        const complex_t<V> x = load_complex<V>(X + 2 * k);
        store(ps + k, mla(mul(x.re, x.re), x.im, x.im));
    });
}

void ScaledPowerSpectrum(float *X, float s, float *ps, int length) {
    for_each_bin(length / 2, [&](int k, auto lane) {
        using V = decltype(lane);
        complex_t<V> x = load_complex<V>(X + 2 * k);
        x.re = mul(x.re, splat<V>(s));
        x.im = mul(x.im, splat<V>(s));
        store_complex(X + 2 * k, x);
        store(ps + k, mla(mul(x.re, x.re), x.im, x.im));
    });
}

namespace {

// acc += X * Y for one group of 4 bins (floats j..j+7) of one partition.
inline float32x4x2_t mul_accum4(float32x4x2_t s, const float *x, const float *y) {
    const float32x4x2_t a = vld2q_f32(x);
    const float32x4x2_t b = vld2q_f32(y);
    s.val[0] = vmlsq_f32(vmlaq_f32(s.val[0], a.val[0], b.val[0]), a.val[1], b.val[1]);
    s.val[1] = vmlaq_f32(vmlaq_f32(s.val[1], a.val[0], b.val[1]), a.val[1], b.val[0]);
    return s;
}

}  // namespace

void SpectralMulAccum_Neon(const float *X, const float *Y, float *acc, int N, int M) {
    zero_floats(acc, N);
    const int groups_end = 2 * grouped_bins(N / 2);
    // The tail's imaginary terms land on floats 1..M. The groups holding those floats, and the
    // tail itself, go partition by partition so that every float sees its additions in the
    // same order as ever; the other groups keep their sums in registers across partitions.
    const int ordered_end = groups_end < (M / 8 + 1) * 8 ? groups_end : (M / 8 + 1) * 8;
    for (int i = 0; i < M; ++i) {
        const float *x = X + i * N;
        const float *y = Y + i * N;
        for (int j = 0; j < ordered_end; j += 8) {
            vst2q_f32(acc + j, mul_accum4(vld2q_f32(acc + j), x + j, y + j));
        }
        for (int j = groups_end; j < N; j += 2) {
            acc[j] += x[j] * y[j] - x[j + 1] * y[j + 1];
            // The tail's imaginary term lands at index i + 1 (zero for real-signal spectra,
            // whose Nyquist bin has no imaginary part); kept as the filter has always done it.
            acc[i + 1] += x[j] * y[j + 1] + x[j + 1] * y[j];
        }
    }
    for (int j = ordered_end; j < groups_end; j += 8) {
        float32x4x2_t s = {{vdupq_n_f32(0.0f), vdupq_n_f32(0.0f)}};
        // Still one partition after another; unrolled only to spare the loop's own steps.
#pragma GCC unroll 4
        for (int i = 0; i < M; ++i) {
            s = mul_accum4(s, X + i * N + j, Y + i * N + j);
        }
        vst2q_f32(acc + j, s);
    }
}

namespace {

// The bins from k on of conj(X) * Y, each scaled by w[k] * p (the products rounded in this
// order).
template <typename V>
inline complex_t<V> weighted_conj_product(const float *w, float p, const float *X, const float *Y,
                                          int k) {
    const V pw = mul(load<V>(w + k), splat<V>(p));
    const complex_t<V> a = load_complex<V>(X + 2 * k);
    const complex_t<V> b = load_complex<V>(Y + 2 * k);
    const V re = mla(mul(a.re, b.re), a.im, b.im);
    const V im = mls(mul(a.re, b.im), a.im, b.re);
    return {mul(pw, re), mul(pw, im)};
}

}  // namespace

void WeightedSpectralMulConj_Neon(const float *w, const float p, const float *X, const float *Y,
                                  float *prod, int N) {
    for_each_bin(N / 2, [&](int k, auto lane) {
        using V = decltype(lane);
        store_complex(prod + 2 * k, weighted_conj_product<V>(w, p, X, Y, k));
    });
}

void WeightedSpectralMulConjAccum(const float *w, float p, const float *X, const float *Y,
                                  float *acc, int N) {
    for_each_bin(N / 2, [&](int k, auto lane) {
        using V = decltype(lane);
        const complex_t<V> prod = weighted_conj_product<V>(w, p, X, Y, k);
        const complex_t<V> sum = load_complex<V>(acc + 2 * k);
        store_complex(acc + 2 * k, complex_t<V>{add(sum.re, prod.re), add(sum.im, prod.im)});
    });
}

AUDIO_MATH_RET VelFunAec_PowerSpectrum(const float *X, float *ps, int length) {
    PowerSpectrum_Neon(X, ps, length);
    return AUDIO_MATH_RET_SUCCESS;
}

AUDIO_MATH_RET VelFunc_SpectralMulAccum(const float *X, const float *Y, float *acc, int N, int M) {
    SpectralMulAccum_Neon(X, Y, acc, N, M);
    return AUDIO_MATH_RET_SUCCESS;
}

AUDIO_MATH_RET VelFunc_WeightedSpectralMulConj(const float *w, const float p, const float *X,
                                               const float *Y, float *prod, int N) {
    WeightedSpectralMulConj_Neon(w, p, X, Y, prod, N);
    return AUDIO_MATH_RET_SUCCESS;
}
