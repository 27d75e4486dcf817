// The adaptive filter's per-bin step control, each formula written once over the lane type:
// bins four at a time while four remain, then one by one. The two running sums of the leak
// estimate are left to the caller, which adds the terms in its own order.
#include "kernels/step_control.h"

#include "kernels/lanes.h"

using namespace lanes;

void smooth_far_power(float *power, const float *Xf, float ss, int bins) {
    const float keep = 1 - ss;
    for_each_bin(bins, [&](int i, auto lane) {
        using V = decltype(lane);
        const V kept = add(mul(splat<V>(keep), load<V>(&power[i])), splat<V>(1.0f));
        store(&power[i], mla(kept, splat<V>(ss), load<V>(&Xf[i])));
    });
}

void leak_terms(const float *Rf, const float *Yf, float a, float *Eh, float *Yh, float *pey,
                float *pyy, int bins) {
    const float keep = 1 - a;
    for_each_bin(bins, [&](int i, auto lane) {
        using V = decltype(lane);
        const V rf = load<V>(&Rf[i]);
        const V yf = load<V>(&Yf[i]);
        const V eh = load<V>(&Eh[i]);
        const V yh = load<V>(&Yh[i]);
        const V de = sub(rf, eh);
        const V dy = sub(yf, yh);
        store(&pey[i], mul(de, dy));
        store(&pyy[i], mul(dy, dy));
        store(&Eh[i], mla(mul(splat<V>(keep), eh), splat<V>(a), rf));
        store(&Yh[i], mla(mul(splat<V>(keep), yh), splat<V>(a), yf));
    });
}

void step_sizes_adapted(const float *Rf, const float *Yf, const float *power, float leak, float RER,
                        float *power_1, int bins) {
    const float rer3 = 0.3f * RER;
    for_each_bin(bins, [&](int i, auto lane) {
        using V = decltype(lane);
        const V e = add(load<V>(&Rf[i]), splat<V>(1.0f));
        const V half_e = mul(splat<V>(0.5f), e);
        V r = mul(splat<V>(leak), load<V>(&Yf[i]));
        r = select(gt(r, half_e), half_e, r);
        const V num = mla(mul(splat<V>(0.7f), r), splat<V>(rer3), e);
        const V den = mul(add(load<V>(&power[i]), splat<V>(10.0f)), e);
        store(&power_1[i], divide_exactly(num, den));
    });
}

void step_sizes_fixed(const float *power, float rate, float *power_1, int bins) {
    for_each_bin(bins, [&](int i, auto lane) {
        using V = decltype(lane);
        const V den = add(load<V>(&power[i]), splat<V>(10.0f));
        store(&power_1[i], divide_exactly(splat<V>(rate), den));
    });
}

namespace {

// Lane k of the result holds element j of row k, for four rows of a partitioned array.
struct columns_t {
    float32x4_t c[4];
};

inline columns_t transpose(const float *r0, const float *r1, const float *r2, const float *r3) {
    const float32x4x2_t t01 = vtrnq_f32(vld1q_f32(r0), vld1q_f32(r1));
    const float32x4x2_t t23 = vtrnq_f32(vld1q_f32(r2), vld1q_f32(r3));
    return {{vcombine_f32(vget_low_f32(t01.val[0]), vget_low_f32(t23.val[0])),
             vcombine_f32(vget_low_f32(t01.val[1]), vget_low_f32(t23.val[1])),
             vcombine_f32(vget_high_f32(t01.val[0]), vget_high_f32(t23.val[0])),
             vcombine_f32(vget_high_f32(t01.val[1]), vget_high_f32(t23.val[1]))}};
}

}  // namespace

void partition_energies(const float *W, int n, int m, float *energy) {
    // Four partitions side by side, one per lane, so that each keeps its own order of
    // additions: four elements of each are read and turned into four columns.
    int i = 0;
    for (; i + 3 < m; i += 4) {
        const float *r[4] = {W + i * n, W + (i + 1) * n, W + (i + 2) * n, W + (i + 3) * n};
        float32x4_t acc = vdupq_n_f32(1.0f);
        int j = 0;
        for (; j + 3 < n; j += 4) {
            const columns_t col = transpose(r[0] + j, r[1] + j, r[2] + j, r[3] + j);
            for (const float32x4_t &c : col.c) {
                acc = vmlaq_f32(acc, c, c);
            }
        }
        for (; j < n; ++j) {
            const float column[4] = {r[0][j], r[1][j], r[2][j], r[3][j]};
            const float32x4_t c = vld1q_f32(column);
            acc = vmlaq_f32(acc, c, c);
        }
        vst1q_f32(&energy[i], acc);
    }
    for (; i < m; ++i) {
        float acc = 1.0f;
        for (int j = 0; j < n; ++j) {
            acc = mla(acc, W[i * n + j], W[i * n + j]);
        }
        energy[i] = acc;
    }
}
