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

namespace {

template <typename V>
struct leak_terms_t {
    V ey;
    V yy;
};

// The two terms of bins i.. (one or four) and the update of their smoothed powers.
template <typename V>
inline leak_terms_t<V> leak_step(const float *Rf, const float *Yf, float a, float *Eh, float *Yh,
                                 int i) {
    const V rf = load<V>(&Rf[i]);
    const V yf = load<V>(&Yf[i]);
    const V eh = load<V>(&Eh[i]);
    const V yh = load<V>(&Yh[i]);
    const V de = sub(rf, eh);
    const V dy = sub(yf, yh);
    store(&Eh[i], mla(mul(splat<V>(1 - a), eh), splat<V>(a), rf));
    store(&Yh[i], mla(mul(splat<V>(1 - a), yh), splat<V>(a), yf));
    return {mul(de, dy), mul(dy, dy)};
}

}  // namespace

void leak_sums(const float *Rf, const float *Yf, float a, float *Eh, float *Yh, int bins,
               float *pey, float *pyy) {
    float sum_ey = *pey;
    float sum_yy = *pyy;
    const int grouped = grouped_bins(bins);
    for (int i = bins - 1; i >= grouped; --i) {
        const leak_terms_t<float> t = leak_step<float>(Rf, Yf, a, Eh, Yh, i);
        sum_ey += t.ey;
        sum_yy += t.yy;
    }
    // Four bins' terms at once, then added from the highest lane down.
    for (int i = grouped - 4; i >= 0; i -= 4) {
        const leak_terms_t<float32x4_t> t = leak_step<float32x4_t>(Rf, Yf, a, Eh, Yh, i);
        float ey[4];
        float yy[4];
        vst1q_f32(ey, t.ey);
        vst1q_f32(yy, t.yy);
        for (int k = 3; k >= 0; --k) {
            sum_ey += ey[k];
            sum_yy += yy[k];
        }
    }
    *pey = sum_ey;
    *pyy = sum_yy;
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

void partition_energies(const float *W, int n, int m, float *energy) {
    // Four partitions side by side, each keeping its own order of additions: four elements
    // of each row are read and transposed in pairs, so that partitions 0, 1 and 2, 3 of the
    // four sum in the two lanes of a 64-bit accumulator each.
    int i = 0;
    for (; i + 3 < m; i += 4) {
        // Each row is walked by its own pointer, which the loads advance.
        const float *r0 = W + i * n;
        const float *r1 = r0 + n;
        const float *r2 = r1 + n;
        const float *r3 = r2 + n;
        float32x2_t acc01 = vdup_n_f32(1.0f);
        float32x2_t acc23 = vdup_n_f32(1.0f);
        int j = 0;
        for (; j + 3 < n; j += 4, r0 += 4, r1 += 4, r2 += 4, r3 += 4) {
            // val[0] holds elements 0 and 2 of both rows, val[1] elements 1 and 3.
            const float32x4x2_t t01 = vtrnq_f32(vld1q_f32(r0), vld1q_f32(r1));
            const float32x4x2_t t23 = vtrnq_f32(vld1q_f32(r2), vld1q_f32(r3));
            const float32x2_t c01[4] = {vget_low_f32(t01.val[0]), vget_low_f32(t01.val[1]),
                                        vget_high_f32(t01.val[0]), vget_high_f32(t01.val[1])};
            const float32x2_t c23[4] = {vget_low_f32(t23.val[0]), vget_low_f32(t23.val[1]),
                                        vget_high_f32(t23.val[0]), vget_high_f32(t23.val[1])};
            for (int k = 0; k < 4; ++k) {
                acc01 = vmla_f32(acc01, c01[k], c01[k]);
                acc23 = vmla_f32(acc23, c23[k], c23[k]);
            }
        }
        for (; j < n; ++j, ++r0, ++r1, ++r2, ++r3) {
            const float pair01[2] = {*r0, *r1};
            const float pair23[2] = {*r2, *r3};
            const float32x2_t c01 = vld1_f32(pair01);
            const float32x2_t c23 = vld1_f32(pair23);
            acc01 = vmla_f32(acc01, c01, c01);
            acc23 = vmla_f32(acc23, c23, c23);
        }
        vst1q_f32(&energy[i], vcombine_f32(acc01, acc23));
    }
    for (; i < m; ++i) {
        float acc = 1.0f;
        for (int j = 0; j < n; ++j) {
            acc = mla(acc, W[i * n + j], W[i * n + j]);
        }
        energy[i] = acc;
    }
}
