// Nonlinear processing: coherence-based suppression of the residual echo left by the linear
// stage, with per-band overdrive, comfort noise and windowed overlap-add synthesis.
//
// The documented entry points take the instance; each is an adapter (nlp_adapters.cpp) that
// picks out what its step reads and writes. NonLinearProcessing lists the steps of a block with
// their arrays; the steps themselves are the array functions below and the kernels of
// kernels/coherence.h and kernels/suppress.h.
#pragma once

#include <cstdint>

#include "dsp/fft.h"
#include "dsp/vector_math.h"

struct aec_workingbuf_t;

// Frame driver entry: ignores its sample pointers and processes the core's near-end pair
// (nearEndFrmPtr, or the first near-end buffer before any linear stage ran), writing the
// block's output over its first 128 samples.
void Aec_NLP_process(aec_workingbuf_t *aec_internal_buf_in, float *nearend, float *nearend_ch2);
// One block: spectra, smoothing, divergence check, coherences, gains and their minimum
// tracking, overdrive, suppression, comfort noise and synthesis into `output` (128 samples).
// `channel` steers nothing (always 1).
void NonLinearProcessing(aec_workingbuf_t *aec_internal_buf_in, float *output, unsigned channel);

// The kernels of the nonlinear stage under their documented names, on the instance's dfw, efw,
// yfw, hNl, Recursive_Ratio, the smoothed spectra and overDriveSm of the core and the band
// edges. `channel` selects nothing: the same fields serve either channel.
AUDIO_MATH_RET VelFuncAec_SmoothPSD(aec_workingbuf_t *aec_internal_buf_in, unsigned short channel);
void SmoothPSD_Neon(aec_workingbuf_t *aec_internal_buf_in, unsigned short channel);
AUDIO_MATH_RET VelFuncAec_OverdriveAndSuppress(aec_workingbuf_t *aec_internal_buf_in,
                                               const float hNlFb, unsigned short channel);
void OverdriveAndSuppress_Neon(aec_workingbuf_t *aec_internal_buf_in, const float hNlFb,
                               unsigned short channel);
void Overdrive(aec_workingbuf_t *aec_internal_buf_in, float *hNl, const float hNlFb);
void Suppress(aec_workingbuf_t *aec_internal_buf_in, const float *hNl, const float hNlFb,
              float *efw);

// The preferred band: prefBandSize bins read at odd bins 2k - 1,
// k = minPrefBand .. minPrefBand + prefBandSize - 1.
struct nlp_pref_band_t {
    int size;      // prefBandSize = 48 / mult
    int min_band;  // minPrefBand = 6 / mult
};
nlp_pref_band_t nlp_pref_band(int mult);
inline int nlp_pref_bin(nlp_pref_band_t band, int n) {
    return 2 * (band.min_band + n) - 1;
}

struct nlp_gain_t {
    float hNlFb;
    float hNlFbLow;
};

// Windowed spectra of the near-end pair `near`, the error pair `eBuf` and the echo pair `yBuf`
// into `dfw`, `efw` and `yfw`, each windowed in `scratch` (256 floats) first.
void nlp_analyse(const fft_ctx_t &fft, float *scratch, const float *near, const float *eBuf,
                 const float *yBuf, float *dfw, float *efw, float *yfw);
// Divergence hysteresis on the sums of the smoothed powers `sd` and `se`; while diverged,
// `efw` is replaced by `dfw`.
void nlp_update_divergence(const float *sd, const float *se, int16_t *divergeState,
                           const float *dfw, float *efw);
// Band averages of the coherences, the near-end state and the per-bin gains into `hNl`, with
// the feedback gains. Updates the echo-incoherence minimum `hNlXdAvgMin`; before any echo was
// seen it pins `overDrive` to `minOverDrive` (7 bands each).
nlp_gain_t nlp_gains(const float *cohde, const float *cohyd, int mult, float *hNlXdAvgMin,
                     const float *minOverDrive, float *overDrive, float *hNl);

// The minima of the core (aec_t) that the gain rule tracks from block to block.
struct nlp_minima_t {
    float *hNlFbMin;
    float *hNlFbLocalMin;
    float *hNlXdAvgMin;
    int *hNlNewMin;
    uint16_t *hNlMinCtr;
};
// Minimum tracking of the feedback gain, and the overdrive per band (from `targetSupp` and
// `minOverDrive`) it implies two blocks after a new minimum.
void nlp_track_minimum(float hNlFbLow, int mult, nlp_minima_t minima, const float *targetSupp,
                       const float *minOverDrive, float *overDrive);
// The overdrive used (x4 while the near end is `saturated`) and its smoothed value per band.
void nlp_smooth_overdrive(const float *overDrive, bool saturated, float *overDriveSm);
// Inverse transform of the conjugated `efw` (prepared in the transform's spectrum stage) into
// `scratch` (256 floats), windowed overlap-add with `outBuf` (128, the previous block's tail)
// into `output` (128); the new tail stays in `outBuf`.
void nlp_synthesis(const fft_ctx_t &fft, float *scratch, const float *efw, float *outBuf,
                   float *output);
