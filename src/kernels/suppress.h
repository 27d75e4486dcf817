// Per-bin kernels of the nonlinear stage on arrays: recursive smoothing of the auto and cross
// power spectra (SmoothPSD), and the overdrive-then-suppress gain stage on the error spectrum.
// Their documented entry points take the instance and sit with their caller in core/nlp.h.
#pragma once

#include <cstdint>

// The smoothed spectra of the nonlinear stage, 129 bins each, carried from frame to frame:
// auto spectra of near end, error and reference, cross spectra near end x error and near end x
// reference as (re, im) pairs.
struct psd_t {
    float *sd;
    float *se;
    float *sy;
    float (*sde)[2];
    float (*syd)[2];
};

// One smoothing step of every spectrum in `psd` towards this frame's packed spectra of near
// end `dfw`, error `efw` and reference `yfw` (the reference power floored at 15). The weight of
// the new frame is ratio - 0.03.
void smooth_psd(const float *dfw, const float *efw, const float *yfw, float ratio, psd_t psd);

// Gains hNl (129) in place: those strictly above hNlFb are blended towards it by `weight`, then
// each is raised to the overdrive of its band (from the six band `edges` and the seven
// `overDriveSm`) times `curve`.
void overdrive_gains(float *hNl, float hNlFb, const uint32_t *edges, const float *overDriveSm,
                     const float *weight, const float *curve);

// efw (258 floats) times the gains hNl (129), conjugated: every imaginary part changes sign.
void suppress_spectrum(const float *hNl, float *efw);
