// The linear stage's documented entry points. Each is an adapter: it picks out of the instance
// the arrays its step reads and writes and passes them to the array functions of
// linear_stage.cpp, the adaptive filter (mdf/) and the transforms.
#include "core/aec_state.h"
#include "core/linear_stage.h"
#include "core/window.h"
#include "instance.h"
#include "mdf/mdf.h"

void VelFuncAec_BufferFarendPartition(aec_workingbuf_t *buf, float *farend) {
    // Only the two spectra are produced; the partition ring (xfBuf) is not advanced here.
    const fft_ctx_t fft = instance_fft(buf);
    aec_pair_spectrum(fft, farend, buf->xf);
    aec_windowed_pair_spectrum(fft, farend, buf->fft_aec_buf, buf->xfw);
}

void Aec_NLMS_process(aec_workingbuf_t *buf, float *nearend, float *nearend_ch2) {
    aec_t *aec = &buf->aec_inst;
    // The pairs this frame works on; nonlinear processing finds the near end through these.
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
    echo_dump_write(buf->dump_flag, buf->echo_dump, buf->aec_data_property.point_number,
                    EstmatedEcho);
    // Only channel 1 reaches nonlinear processing; the second channel's outputs are dropped.
    SentBuffToWorkingBuff(buf, Error, EstmatedEcho, 1);
}

void SentBuffToWorkingBuff(aec_workingbuf_t *buf, float *error, float *echo,
                           unsigned short /*channel*/) {
    hand_over_block(error, echo, buf->mdf_error, buf->mdf_echo, buf->aec_inst.eBuf,
                    buf->aec_inst.yBuf);
}

void Noise_Power_Estimation(aec_workingbuf_t *buf) {
    aec_t *aec = &buf->aec_inst;
    const noise_floor_t floor = {aec->dPow, aec->dMinPow, aec->dInitMinPow, &aec->noisePow,
                                 &aec->noiseEstCtr};
    noise_floor_update(instance_fft(buf), aec->nearEndFrmPtr, buf->fft_aec_buf, aec->mult, floor);
}
