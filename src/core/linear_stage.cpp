// Far-end buffering and the linear stage of the core: far-end spectra, stereo merge, the
// adaptive-filter call with the echo dump, the block-pair hand-over, the near-end noise floor
// and the far-end level. Owns no state of its own; everything lives in the instance.
#include "core/linear_stage.h"

#include <cmath>
#include <cstdint>
#include <cstdio>

#include "core/window.h"
#include "dsp/vector_math.h"
#include "instance.h"
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

namespace {

short saturate_to_pcm(float v) {
    // Saturating before the conversion gives the same result as truncate-then-clamp for every
    // finite value and keeps the conversion defined; NaN becomes 0.
    if (std::isnan(v)) {
        return 0;
    }
    if (v > 32767.0f) {
        return 32767;
    }
    if (v < -32768.0f) {
        return -32768;
    }
    return static_cast<short>(v);
}

}  // namespace

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

void Noise_Power_Estimation(aec_workingbuf_t *buf) {
    constexpr float kStep = 0.1f;
    constexpr float kRamp = 1.0003f;
    constexpr int kHoldBlocks = 50;  // dMinPow stays at its start value this long
    aec_t *aec = &buf->aec_inst;
    float df[kAecSpectrum];
    aec_pair_spectrum(buf, aec->nearEndFrmPtr, df);

    for (int j = 0; j < kAecBins; ++j) {
        const float re = df[2 * j] / 2.0f;
        const float im = df[2 * j + 1] / 2.0f;
        aec->dPow[j] += (re * re + im * im - aec->dPow[j]) * kStep;
    }
    if (aec->noiseEstCtr > kHoldBlocks) {
        for (int j = 0; j < kAecBins; ++j) {
            if (aec->dMinPow[j] <= aec->dPow[j]) {
                aec->dMinPow[j] = aec->dMinPow[j] * kRamp;
            } else {
                aec->dMinPow[j] = (aec->dPow[j] + (aec->dMinPow[j] - aec->dPow[j]) * kStep) * kRamp;
            }
        }
    }
    if (aec->noiseEstCtr < 500 * aec->mult) {
        // Start-up estimate: takes a lower minimum at once and follows a higher one slowly.
        ++aec->noiseEstCtr;
        for (int j = 0; j < kAecBins; ++j) {
            if (aec->dMinPow[j] <= aec->dInitMinPow[j]) {
                aec->dInitMinPow[j] = aec->dMinPow[j];
            } else {
                aec->dInitMinPow[j] += (aec->dMinPow[j] - aec->dInitMinPow[j]) * kStep;
            }
        }
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
