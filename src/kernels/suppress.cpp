// Per-bin kernels of the nonlinear stage. SmoothPSD recursively smooths the auto spectra of
// near end, error and reference and the two cross spectra near end x error and near end x
// reference. OverdriveAndSuppress blends each gain towards the feedback gain, raises it to the
// overdrive of its band and applies it to the error spectrum, which leaves conjugated.
//
// Bins 0..127 go 4 at a time with the approximate vector division and power; bin 128 goes
// alone with exact scalar arithmetic. Both paths compute the same formulas.
#include "kernels/suppress.h"

#include <cmath>

#include "instance.h"
#include "kernels/neon_approx.h"
#include "kernels/simd.h"

namespace {

// Packed-spectrum float index bound of the grouped loop and the index of the lone last bin.
constexpr int kGroupedEnd = 251;
constexpr int kLastBinFloat = 256;
constexpr int kLastBin = 128;

// Smoothing weight out of 256, computed in double. The live coefficient row is
// {256 - alpha, alpha}; the fixed row {230.4, 25.6} is never selected, so alpha is all it takes.
float smoothing_alpha(const aec_workingbuf_t *buf) {
    return (float)(((double)buf->Recursive_Ratio - 0.03) * 256.0);
}

// S <- S + alpha * (v - S) / 256, the division through the vector approximation. Its
// refined reciprocal of 256 is the same for every bin, so it is formed once per call
// (reciprocal_256) and each division is the multiplication the approximation ends in.
inline float32x4_t reciprocal_256() {
    return vdivq_f32(vdupq_n_f32(1.0f), vdupq_n_f32(256.0f));
}

inline float32x4_t smooth4(float32x4_t s, float32x4_t v, float32x4_t alpha, float32x4_t inv256) {
    const float32x4_t step = vmulq_f32(vmulq_f32(alpha, vsubq_f32(v, s)), inv256);
    return vaddq_f32(s, step);
}

inline float smooth1(float s, float v, float alpha) {
    return s + alpha * (v - s) / 256.0f;
}

// Real and imaginary parts of conj(a) * b for 4 bins: a_r*b_r + a_i*b_i, a_r*b_i - a_i*b_r.
inline float32x4x2_t cross4(float32x4x2_t a, float32x4x2_t b) {
    float32x4x2_t c;
    c.val[0] = vmlaq_f32(vmulq_f32(a.val[0], b.val[0]), a.val[1], b.val[1]);
    c.val[1] = vmlsq_f32(vmulq_f32(a.val[0], b.val[1]), a.val[1], b.val[0]);
    return c;
}

void smooth_cross4(float (*s)[2], float32x4x2_t v, float32x4_t alpha, float32x4_t inv256) {
    float32x4x2_t old = vld2q_f32(&s[0][0]);
    old.val[0] = smooth4(old.val[0], v.val[0], alpha, inv256);
    old.val[1] = smooth4(old.val[1], v.val[1], alpha, inv256);
    vst2q_f32(&s[0][0], old);
}

void smooth_group(aec_workingbuf_t *buf, int j, float32x4_t alpha, float32x4_t inv256) {
    aec_t *aec = &buf->aec_inst;
    const int k = j / 2;
    const float32x4x2_t d = vld2q_f32(&buf->dfw[j]);
    const float32x4x2_t e = vld2q_f32(&buf->efw[j]);
    const float32x4x2_t y = vld2q_f32(&buf->yfw[j]);

    const float32x4_t dd = vmlaq_f32(vmulq_f32(d.val[0], d.val[0]), d.val[1], d.val[1]);
    const float32x4_t ee = vmlaq_f32(vmulq_f32(e.val[0], e.val[0]), e.val[1], e.val[1]);
    float32x4_t yy = vmlaq_f32(vmulq_f32(y.val[0], y.val[0]), y.val[1], y.val[1]);
    yy = vmaxq_f32(yy, vdupq_n_f32(15.0f));  // the reference power never smooths below 15

    vst1q_f32(&aec->sd[k], smooth4(vld1q_f32(&aec->sd[k]), dd, alpha, inv256));
    vst1q_f32(&aec->se[k], smooth4(vld1q_f32(&aec->se[k]), ee, alpha, inv256));
    vst1q_f32(&aec->sy[k], smooth4(vld1q_f32(&aec->sy[k]), yy, alpha, inv256));
    smooth_cross4(&aec->sde[k], cross4(d, e), alpha, inv256);
    smooth_cross4(&aec->syd[k], cross4(d, y), alpha, inv256);
}

// a_r*b_r + a_i*b_i and a_r*b_i - a_i*b_r, accumulated product by product.
float accu_dot(const float *a, const float *b) {
    float v = 0.0f;
    VelFuncAec_32X32To64_Accu(&v, a[0], b[0]);
    VelFuncAec_32X32To64_Accu(&v, a[1], b[1]);
    return v;
}

float accu_cross(const float *a, const float *b) {
    float v = 0.0f;
    VelFuncAec_32X32To64_Accu(&v, a[0], b[1]);
    VelFuncAec_32X32To64_Accu(&v, -a[1], b[0]);
    return v;
}

void smooth_last_bin(aec_workingbuf_t *buf, float alpha) {
    aec_t *aec = &buf->aec_inst;
    const float *d = &buf->dfw[kLastBinFloat];
    const float *e = &buf->efw[kLastBinFloat];
    const float *y = &buf->yfw[kLastBinFloat];
    const int k = kLastBin;

    float yy = accu_dot(y, y);
    if (yy <= 15.0f) {
        yy = 15.0f;
    }
    aec->sd[k] = smooth1(aec->sd[k], accu_dot(d, d), alpha);
    aec->se[k] = smooth1(aec->se[k], accu_dot(e, e), alpha);
    aec->sy[k] = smooth1(aec->sy[k], yy, alpha);
    aec->sde[k][0] = smooth1(aec->sde[k][0], accu_dot(d, e), alpha);
    aec->sde[k][1] = smooth1(aec->sde[k][1], accu_cross(d, e), alpha);
    aec->syd[k][0] = smooth1(aec->syd[k][0], accu_dot(d, y), alpha);
    aec->syd[k][1] = smooth1(aec->syd[k][1], accu_cross(d, y), alpha);
}

// Bin i takes the current band; the edge test is made once per bin, so an edge equal to the
// previous one never matches and every higher bin stays in that band. The band counter
// stops at 6, the last band, which runs to bin 128.
void band_scale(const aec_workingbuf_t *buf, float *scale) {
    const uint32_t *edges = buf->aec_data_property.Supp_Mode_Frq;
    const float *overDriveSm = buf->aec_inst.overDriveSm;
    int b = 0;
    for (int i = 0; i < kAecBins; ++i) {
        scale[i] = overDriveSm[b];
        if (b < kAecBands - 1 && edges[b] == (uint32_t)i) {
            ++b;
        }
    }
}

}  // namespace

void SmoothPSD_Neon(aec_workingbuf_t *aec_internal_buf_in, unsigned short channel) {
    (void)channel;
    const float alpha = smoothing_alpha(aec_internal_buf_in);
    const float32x4_t alpha4 = vdupq_n_f32(alpha);
    const float32x4_t inv256 = reciprocal_256();
    for (int j = 0; j < kGroupedEnd; j += 8) {
        smooth_group(aec_internal_buf_in, j, alpha4, inv256);
    }
    smooth_last_bin(aec_internal_buf_in, alpha);
}

AUDIO_MATH_RET VelFuncAec_SmoothPSD(aec_workingbuf_t *aec_internal_buf_in, unsigned short channel) {
    SmoothPSD_Neon(aec_internal_buf_in, channel);
    return AUDIO_MATH_RET_SUCCESS;
}

void Overdrive(aec_workingbuf_t *aec_internal_buf_in, float *hNl, const float hNlFb) {
    float scale[kAecBins];
    band_scale(aec_internal_buf_in, scale);

    const float32x4_t fb = vdupq_n_f32(hNlFb);
    const float32x4_t one = vdupq_n_f32(1.0f);
    for (int j = 0; j < kGroupedEnd; j += 8) {
        const int i = j / 2;
        const float32x4_t w = vld1q_f32(&VelFuncAec_weightCurve[i]);
        float32x4_t h = vld1q_f32(&hNl[i]);
        // Only gains strictly above the feedback gain are pulled towards it.
        const float32x4_t blended = vmlaq_f32(vmulq_f32(w, fb), vsubq_f32(one, w), h);
        h = vbslq_f32(vcgtq_f32(h, fb), blended, h);
        const float32x4_t power =
            vmulq_f32(vld1q_f32(&scale[i]), vld1q_f32(&VelFuncAec_overDriveCurve[i]));
        vst1q_f32(&hNl[i], vpowq_f32(h, power));
    }

    const int i = kLastBin;
    const float w = VelFuncAec_weightCurve[i];
    if (hNl[i] > hNlFb) {
        hNl[i] = w * hNlFb + (1.0f - w) * hNl[i];
    }
    hNl[i] = (float)pow((double)hNl[i], (double)(scale[i] * VelFuncAec_overDriveCurve[i]));
}

// The imaginary part is negated in every bin: the spectrum leaves conjugated, as the inverse
// transform of the nonlinear stage expects.
void Suppress(aec_workingbuf_t *aec_internal_buf_in, const float *hNl, const float hNlFb,
              float *efw) {
    (void)aec_internal_buf_in;
    (void)hNlFb;
    for (int j = 0; j < kGroupedEnd; j += 8) {
        const float32x4_t h = vld1q_f32(&hNl[j / 2]);
        float32x4x2_t e = vld2q_f32(&efw[j]);
        e.val[0] = vmulq_f32(e.val[0], h);
        e.val[1] = vnegq_f32(vmulq_f32(e.val[1], h));
        vst2q_f32(&efw[j], e);
    }
    efw[kLastBinFloat] = efw[kLastBinFloat] * hNl[kLastBin];
    efw[kLastBinFloat + 1] = -(efw[kLastBinFloat + 1] * hNl[kLastBin]);
}

void OverdriveAndSuppress_Neon(aec_workingbuf_t *aec_internal_buf_in, const float hNlFb,
                               unsigned short channel) {
    (void)channel;
    Overdrive(aec_internal_buf_in, aec_internal_buf_in->hNl, hNlFb);
    Suppress(aec_internal_buf_in, aec_internal_buf_in->hNl, hNlFb, aec_internal_buf_in->efw);
}

AUDIO_MATH_RET VelFuncAec_OverdriveAndSuppress(aec_workingbuf_t *aec_internal_buf_in,
                                               const float hNlFb, unsigned short channel) {
    OverdriveAndSuppress_Neon(aec_internal_buf_in, hNlFb, channel);
    return AUDIO_MATH_RET_SUCCESS;
}
