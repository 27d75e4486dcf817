// Far-end buffering and the linear stage of the core: far-end spectra, stereo merge, the
// adaptive-filter call with the echo dump, the block-pair hand-over, the near-end noise floor
// and the far-end level. Owns no state of its own; everything lives in the instance.
#include "core/linear_stage.h"

#include <cmath>
#include <cstdint>
#include <cstdio>

#include "core/window.h"
#include "dsp/stream.h"
#include "dsp/vector_math.h"
#include "instance.h"
#include "kernels/simd.h"
#include "mdf/mdf.h"

void VelFuncAec_BufferFarendPartition(aec_workingbuf_t *buf, float *farend) {
    // Only the two spectra are produced; the partition ring (xfBuf) is not advanced here.
    aec_pair_spectrum(buf, farend, buf->xf);
    aec_windowed_pair_spectrum(buf, farend, buf->xfw);
}

void Aec_NLMS_process(aec_workingbuf_t *buf, float *nearend, float *nearend_ch2) {
    aec_t *aec = &buf->aec_inst;
    aec->nearEndFrmPtr = nearend;
    aec->nearEndFrmPtr_ch2 = nearend_ch2;
    aec->nearEndDiffFrmPtr = buf->AudioNearEndSub;
    // The frame driver's saturation decision, read again by nonlinear processing.
    buf->aec_saturated_flag.nearend_saturated_ind = buf->aec_saturated_flag.isCurrNearEndSat;
    if (buf->aec_data_property.nearend_channel == 2) {
        // The whole pair is averaged, so the older half (already averaged last frame) is
        // averaged again with the untouched second channel. Intended.
        MergeSteroToMono(nearend, nearend_ch2, kAecFft);
    }
    AdaptiveFilter_ProcessBlock(buf);
}

void MergeSteroToMono(float *nearend, float *nearend_ch2, int length) {
    for (int i = 0; i < length; ++i) {
        nearend[i] = (nearend[i] + nearend_ch2[i]) / 2.0f;
    }
}

void echo_dump_write(aec_workingbuf_t *buf, const float *echo) {
    if (buf->dump_flag == 0 || buf->echo_dump == nullptr) {
        return;
    }
    short b[kAecBlock];
    int n = static_cast<int>(buf->aec_data_property.point_number);
    if (n > kAecBlock) {
        n = kAecBlock;
    }
    for (int i = 0; i < n; ++i) {
        b[i] = saturate_to_pcm(echo[i]);
    }
    fwrite(b, sizeof(short), static_cast<size_t>(n), buf->echo_dump);
}

void AdaptiveFilter_ProcessBlock(aec_workingbuf_t *buf) {
    float EstmatedEcho[kAecBlock];
    float EstmatedEcho_ch2[kAecBlock];
    float Error[kAecBlock];
    float Error_ch2[kAecBlock];

    if (buf->aec_data_property.comfort_noise_channel == 1) {
        // Reads the near-end pair before the filter runs.
        Noise_Power_Estimation(buf);
    }
    mdf_echo_cancellation(buf, &buf->AudioNearEnd[0][kAecBlock], &buf->AudioNearEnd[1][kAecBlock],
                          &buf->AudioFarEnd[0][kAecBlock], Error, Error_ch2, EstmatedEcho,
                          EstmatedEcho_ch2);
    echo_dump_write(buf, EstmatedEcho);
    // Only channel 1 reaches nonlinear processing; the second channel's outputs are dropped.
    SentBuffToWorkingBuff(buf, Error, EstmatedEcho, 1);
}

void SentBuffToWorkingBuff(aec_workingbuf_t *buf, float *error, float *echo,
                           unsigned short channel) {
    (void)channel;
    constexpr size_t kBlockBytes = kAecBlock * sizeof(float);
    memcpy_fast(buf->mdf_echo, &buf->mdf_echo[kAecBlock], kBlockBytes);
    memcpy_fast(buf->mdf_error, &buf->mdf_error[kAecBlock], kBlockBytes);
    memcpy_fast(&buf->mdf_echo[kAecBlock], echo, kBlockBytes);
    memcpy_fast(&buf->mdf_error[kAecBlock], error, kBlockBytes);
    memcpy_fast(buf->aec_inst.eBuf, buf->mdf_error, 2 * kBlockBytes);
    memcpy_fast(buf->aec_inst.yBuf, buf->mdf_echo, 2 * kBlockBytes);
}

namespace {

constexpr float kNoiseStep = 0.1f;
constexpr float kNoiseRamp = 1.0003f;
constexpr int kNoiseHoldBlocks = 50;  // dMinPow stays at its start value this long
constexpr int kGroupedBins = 128;     // bins 0..127 go 4 at a time, bin 128 alone

// Per bin, in both widths with the same operations in the same order. Smoothed power of the
// pair's spectrum at half amplitude:
inline float smooth_power(float p, float re, float im) {
    re = re / 2.0f;
    im = im / 2.0f;
    return p + (re * re + im * im - p) * kNoiseStep;
}
inline float32x4_t smooth_power4(float32x4_t p, float32x4x2_t bins) {
    const float32x4_t re = vmulq_n_f32(bins.val[0], 0.5f);  // exact, as the division by 2
    const float32x4_t im = vmulq_n_f32(bins.val[1], 0.5f);
    const float32x4_t power = vaddq_f32(vmulq_f32(re, re), vmulq_f32(im, im));
    return vaddq_f32(p, vmulq_n_f32(vsubq_f32(power, p), kNoiseStep));
}

// The minimum creeps up by the ramp, or falls by 90% of the gap to a lower power first.
inline float track_min(float m, float p) {
    return m <= p ? m * kNoiseRamp : (p + (m - p) * kNoiseStep) * kNoiseRamp;
}
inline float32x4_t track_min4(float32x4_t m, float32x4_t p) {
    const float32x4_t up = vmulq_n_f32(m, kNoiseRamp);
    const float32x4_t down =
        vmulq_n_f32(vaddq_f32(p, vmulq_n_f32(vsubq_f32(m, p), kNoiseStep)), kNoiseRamp);
    return vbslq_f32(vcleq_f32(m, p), up, down);
}

// The start-up estimate takes a lower minimum at once and follows a higher one slowly.
inline float follow_min(float init, float m) {
    return m <= init ? m : init + (m - init) * kNoiseStep;
}
inline float32x4_t follow_min4(float32x4_t init, float32x4_t m) {
    const float32x4_t rise = vaddq_f32(init, vmulq_n_f32(vsubq_f32(m, init), kNoiseStep));
    return vbslq_f32(vcleq_f32(m, init), m, rise);
}

}  // namespace

void Noise_Power_Estimation(aec_workingbuf_t *buf) {
    aec_t *aec = &buf->aec_inst;
    // The spectrum is read only here, so it stays in the transform scratch.
    float *df = buf->fft_aec_buf;
    aec_pair_spectrum(buf, aec->nearEndFrmPtr, df);

    for (int j = 0; j < kGroupedBins; j += 4) {
        vst1q_f32(&aec->dPow[j], smooth_power4(vld1q_f32(&aec->dPow[j]), vld2q_f32(&df[2 * j])));
    }
    aec->dPow[kGroupedBins] =
        smooth_power(aec->dPow[kGroupedBins], df[2 * kGroupedBins], df[2 * kGroupedBins + 1]);

    if (aec->noiseEstCtr > kNoiseHoldBlocks) {
        for (int j = 0; j < kGroupedBins; j += 4) {
            vst1q_f32(&aec->dMinPow[j],
                      track_min4(vld1q_f32(&aec->dMinPow[j]), vld1q_f32(&aec->dPow[j])));
        }
        aec->dMinPow[kGroupedBins] = track_min(aec->dMinPow[kGroupedBins], aec->dPow[kGroupedBins]);
    }
    if (aec->noiseEstCtr < 500 * aec->mult) {
        ++aec->noiseEstCtr;
        for (int j = 0; j < kGroupedBins; j += 4) {
            vst1q_f32(&aec->dInitMinPow[j],
                      follow_min4(vld1q_f32(&aec->dInitMinPow[j]), vld1q_f32(&aec->dMinPow[j])));
        }
        aec->dInitMinPow[kGroupedBins] =
            follow_min(aec->dInitMinPow[kGroupedBins], aec->dMinPow[kGroupedBins]);
        aec->noisePow = aec->dInitMinPow;
    } else {
        aec->noisePow = aec->dMinPow;
    }
}

float FarEndMean_Compute(float *input, int length) {
    float sum = 0.0f;
    for (int m = 0; m < length; ++m) {
        sum += std::fabs(input[m]);
    }
    return sum / static_cast<float>(length);
}
