// Per-bin kernels of the nonlinear stage, on arrays. smooth_psd recursively smooths the auto
// spectra of near end, error and reference and the two cross spectra near end x error and near
// end x reference. overdrive_gains blends each gain towards the feedback gain and raises it to
// the overdrive of its band; suppress_spectrum applies the gains to the error spectrum, which
// leaves conjugated.
//
// Each formula is written once over the lane type: bins 0..127 four at a time with the
// approximate vector division and power, bin 128 alone with exact scalar arithmetic.
#include "kernels/suppress.h"

#include "dims.h"
#include "dsp/vector_math.h"
#include "kernels/lanes.h"

using namespace lanes;

namespace {

// The smoothing weight is kept out of 256, as the coefficient table it comes from.
constexpr double kWeightScale = 256.0;

// Weight of the new frame out of 256, computed in double. The live coefficient row is
// {256 - alpha, alpha}; the fixed row {230.4, 25.6} is never selected, so alpha is all it takes.
float smoothing_alpha(float ratio) {
    return static_cast<float>((static_cast<double>(ratio) - 0.03) * kWeightScale);
}

// x / 256: exact for one bin; for four lanes through the approximate division, whose refined
// reciprocal of 256 is the same for every group, so it is formed once (`inv256`) and each
// division is the multiplication the approximation ends in.
inline float per_256(float x, float32x4_t /*inv256*/) {
    return x / static_cast<float>(kWeightScale);
}
inline float32x4_t per_256(float32x4_t x, float32x4_t inv256) {
    return vmulq_f32(x, inv256);
}

// S <- S + alpha * (v - S) / 256.
template <typename V>
inline V smooth(V s, V v, V alpha, float32x4_t inv256) {
    return add(s, per_256(mul(alpha, sub(v, s)), inv256));
}

template <typename V>
inline void smooth_cross(float (*s)[2], complex_t<V> v, V alpha, float32x4_t inv256) {
    complex_t<V> old = load_complex<V>(&s[0][0]);
    old.re = smooth(old.re, v.re, alpha, inv256);
    old.im = smooth(old.im, v.im, alpha, inv256);
    store_complex(&s[0][0], old);
}

// |a|^2 and conj(a) * b. The single bin accumulates product by product into a zeroed float
// (VelFuncAec_32X32To64_Accu), four lanes multiply and then multiply-accumulate.
inline float norm(complex_t<float> a) {
    float v = 0.0f;
    VelFuncAec_32X32To64_Accu(&v, a.re, a.re);
    VelFuncAec_32X32To64_Accu(&v, a.im, a.im);
    return v;
}
inline float32x4_t norm(complex_t<float32x4_t> a) {
    return mla(mul(a.re, a.re), a.im, a.im);
}
inline complex_t<float> conj_mul(complex_t<float> a, complex_t<float> b) {
    complex_t<float> c = {0.0f, 0.0f};
    VelFuncAec_32X32To64_Accu(&c.re, a.re, b.re);
    VelFuncAec_32X32To64_Accu(&c.re, a.im, b.im);
    VelFuncAec_32X32To64_Accu(&c.im, a.re, b.im);
    VelFuncAec_32X32To64_Accu(&c.im, -a.im, b.re);
    return c;
}
inline complex_t<float32x4_t> conj_mul(complex_t<float32x4_t> a, complex_t<float32x4_t> b) {
    return {mla(mul(a.re, b.re), a.im, b.im), mls(mul(a.re, b.im), a.im, b.re)};
}

// Bin i takes the current band; the edge test is made once per bin, so an edge equal to the
// previous one never matches and every higher bin stays in that band. The band counter
// stops at 6, the last band, which runs to bin 128.
void band_scale(const uint32_t *edges, const float *overDriveSm, float *scale) {
    int b = 0;
    for (int i = 0; i < kAecBins; ++i) {
        scale[i] = overDriveSm[b];
        if (b < kAecBandEdges && edges[b] == static_cast<uint32_t>(i)) {
            ++b;
        }
    }
}

}  // namespace

void smooth_psd(const float *dfw, const float *efw, const float *yfw, float ratio, psd_t psd) {
    const float alpha = smoothing_alpha(ratio);
    const float32x4_t inv256 =
        vdivq_f32(vdupq_n_f32(1.0f), vdupq_n_f32(static_cast<float>(kWeightScale)));
    for_each_bin(kAecBins, [&](int k, auto lane) {
        using V = decltype(lane);
        const V a = splat<V>(alpha);
        const complex_t<V> d = load_complex<V>(&dfw[2 * k]);
        const complex_t<V> e = load_complex<V>(&efw[2 * k]);
        const complex_t<V> y = load_complex<V>(&yfw[2 * k]);
        // The reference power never smooths below 15.
        const V yy = at_least(norm(y), 15.0f);
        store(&psd.sd[k], smooth(load<V>(&psd.sd[k]), norm(d), a, inv256));
        store(&psd.se[k], smooth(load<V>(&psd.se[k]), norm(e), a, inv256));
        store(&psd.sy[k], smooth(load<V>(&psd.sy[k]), yy, a, inv256));
        smooth_cross(&psd.sde[k], conj_mul(d, e), a, inv256);
        smooth_cross(&psd.syd[k], conj_mul(d, y), a, inv256);
    });
}

void overdrive_gains(float *hNl, float hNlFb, const uint32_t *edges, const float *overDriveSm,
                     const float *weight, const float *curve) {
    float scale[kAecBins];
    band_scale(edges, overDriveSm, scale);
    for_each_bin(kAecBins, [&](int i, auto lane) {
        using V = decltype(lane);
        const V fb = splat<V>(hNlFb);
        const V w = load<V>(&weight[i]);
        V h = load<V>(&hNl[i]);
        // Only gains strictly above the feedback gain are pulled towards it.
        const V blended = mla(mul(w, fb), sub(splat<V>(1.0f), w), h);
        h = select(gt(h, fb), blended, h);
        store(&hNl[i], power(h, mul(load<V>(&scale[i]), load<V>(&curve[i]))));
    });
}

// The imaginary part is negated in every bin: the spectrum leaves conjugated, as the inverse
// transform of the nonlinear stage expects.
void suppress_spectrum(const float *hNl, float *efw) {
    for_each_bin(kAecBins, [&](int k, auto lane) {
        using V = decltype(lane);
        const V h = load<V>(&hNl[k]);
        complex_t<V> e = load_complex<V>(&efw[2 * k]);
        e.re = mul(e.re, h);
        e.im = neg(mul(e.im, h));
        store_complex(&efw[2 * k], e);
    });
}
