// Nonlinear processing's documented entry points, the kernels' included. Each is an adapter: it
// picks out of the instance the arrays its step reads and writes and passes them to the array
// functions of nlp.cpp, the kernels and comfort noise. NonLinearProcessing is the list of the
// block's steps, each with what it reads and writes.
#include "core/aec_state.h"
#include "core/nlp.h"
#include "dsp/comfort_noise.h"
#include "instance.h"
#include "kernels/coherence.h"
#include "kernels/suppress.h"

namespace {

// The near end the linear stage last worked on (the frame driver passes the same pair); before
// any linear stage ran, the buffer it would point at.
float *near_end_pair(aec_workingbuf_t *buf) {
    float *p = buf->aec_inst.nearEndFrmPtr;
    return p != nullptr ? p : buf->AudioNearEnd[0];
}

psd_t smoothed_spectra(aec_t *aec) {
    return {aec->sd, aec->se, aec->sy, aec->sde, aec->syd};
}

}  // namespace

void Aec_NLP_process(aec_workingbuf_t *buf, float * /*nearend*/, float * /*nearend_ch2*/) {
    NonLinearProcessing(buf, near_end_pair(buf), 1);
}

void NonLinearProcessing(aec_workingbuf_t *buf, float *output, unsigned /*channel*/) {
    aec_t *aec = &buf->aec_inst;
    const aec_input_data_property_t &prop = buf->aec_data_property;
    const fft_ctx_t fft = instance_fft(buf);
    float cohde[kAecBins];
    float cohyd[kAecBins];

    nlp_analyse(fft, buf->fft_aec_buf, near_end_pair(buf), aec->eBuf, aec->yBuf, buf->dfw, buf->efw,
                buf->yfw);
    VelFuncAec_SmoothPSD(buf, 1);
    nlp_update_divergence(aec->sd, aec->se, &aec->divergeState, buf->dfw, buf->efw);
    coherence(smoothed_spectra(aec), cohde, cohyd);
    const nlp_gain_t gain = nlp_gains(cohde, cohyd, aec->mult, &aec->hNlXdAvgMin, aec->minOverDrive,
                                      aec->overDrive, buf->hNl);
    const nlp_minima_t minima = {&aec->hNlFbMin, &aec->hNlFbLocalMin, &aec->hNlXdAvgMin,
                                 &aec->hNlNewMin, &aec->hNlMinCtr};
    nlp_track_minimum(gain.hNlFbLow, aec->mult, minima, aec->targetSupp, aec->minOverDrive,
                      aec->overDrive);
    nlp_smooth_overdrive(aec->overDrive, buf->aec_saturated_flag.nearend_saturated_ind == 1,
                         aec->overDriveSm);
    VelFuncAec_OverdriveAndSuppress(buf, gain.hNlFb, 1);
    if (prop.comfort_noise_channel == 1) {
        ComfortNoise_Process(buf->efw, aec->noisePow, buf->hNl, kAecFft, prop.comfort_noise_min_pwr,
                             prop.comfort_noise_mul_left_shift);
    }
    nlp_synthesis(fft, buf->fft_aec_buf, buf->efw, aec->outBuf, output);
    // The error history moves on by a block; the linear stage rewrites it whole next frame.
    memcpy_fast(aec->eBuf, &aec->eBuf[kAecBlock], kAecBlock * sizeof(float));
}

AUDIO_MATH_RET VelFuncAec_SmoothPSD(aec_workingbuf_t *buf, unsigned short channel) {
    SmoothPSD_Neon(buf, channel);
    return AUDIO_MATH_RET_SUCCESS;
}

void SmoothPSD_Neon(aec_workingbuf_t *buf, unsigned short /*channel*/) {
    smooth_psd(buf->dfw, buf->efw, buf->yfw, buf->Recursive_Ratio,
               smoothed_spectra(&buf->aec_inst));
}

AUDIO_MATH_RET VelFuncAec_OverdriveAndSuppress(aec_workingbuf_t *buf, const float hNlFb,
                                               unsigned short channel) {
    OverdriveAndSuppress_Neon(buf, hNlFb, channel);
    return AUDIO_MATH_RET_SUCCESS;
}

void OverdriveAndSuppress_Neon(aec_workingbuf_t *buf, const float hNlFb,
                               unsigned short /*channel*/) {
    Overdrive(buf, buf->hNl, hNlFb);
    Suppress(buf, buf->hNl, hNlFb, buf->efw);
}

void Overdrive(aec_workingbuf_t *buf, float *hNl, const float hNlFb) {
    overdrive_gains(hNl, hNlFb, buf->aec_data_property.Supp_Mode_Frq, buf->aec_inst.overDriveSm,
                    VelFuncAec_weightCurve, VelFuncAec_overDriveCurve);
}

void Suppress(aec_workingbuf_t * /*buf*/, const float *hNl, const float /*hNlFb*/, float *efw) {
    suppress_spectrum(hNl, efw);
}
