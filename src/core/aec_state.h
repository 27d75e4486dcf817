// The echo-canceller core state (aec_t), its constant tables and its initialisation. The record
// lives inside the instance; nothing here allocates. "State" marks what carries from frame to
// frame, "work" what a frame writes before it reads it; fields the frame path does not use
// carry no mark.
#pragma once

#include <cstdint>

#include "dims.h"

struct aec_workingbuf_t;

struct aec_t {
    // Work of the filter step; then the linear stage's error and echo pairs, which nonlinear
    // processing reads (and whose error half it shifts).
    float eBuf[kAecFft];
    float yBuf[kAecFft];
    float xPow[kAecBins];  // the filter's far-end power of this frame
    // State: the near-end noise floor, and which of its estimates comfort noise uses.
    float dPow[kAecBins];
    float dMinPow[kAecBins];
    float dInitMinPow[kAecBins];
    float *noisePow;
    float xfBuf[kAecPartitioned];
    float wfBuf[kAecPartitioned];  // state: the background filter's weights W
    float wfBuf_lpf[kAecPartitioned];
    // State: the smoothed spectra of the nonlinear stage.
    float sde[kAecBins][2];
    float syd[kAecBins][2];
    float sy[kAecBins];
    float sd[kAecBins];
    float se[kAecBins];
    // State: the gain minima and the overdrive of the nonlinear stage.
    float hNlFbMin;
    float hNlFbLocalMin;
    float hNlXdAvgMin;
    int hNlNewMin;
    uint16_t hNlMinCtr;
    float overDrive[kAecBands];
    float overDriveSm[kAecBands];
    // Settings from the band intensities.
    float targetSupp[kAecBands];
    float minOverDrive[kAecBands];
    float outBuf[kAecBlock];  // state: the synthesis tail for the overlap-add
    int delayIdx;
    int16_t divergeState;  // state
    int xfBufBlockPos;
    int system_delay;
    int mult;
    int sampFreq;
    uint32_t seed;
    float errThresh;
    int noiseEstCtr;  // state: blocks seen by the noise floor
    // Per frame: the near-end pairs the stages work on, set by the linear stage.
    float *nearEndFrmPtr;
    float *nearEndFrmPtr_ch2;
    float *nearEndDiffFrmPtr;
    int is_dtd;
};

// sin(pi * i / 256), i = 0..128: the rising half of the square-root Hann window of 256 points.
extern const float FloatingFftInWindow256[kAecBins];
extern const float *const sqrtHanning;
// 0.1 + 0.3 * sqrt((i - 1) / 127) to 4 decimals (w[0] = 0), and 1 + sqrt(i / 128) to 4 decimals.
extern const float VelFuncAec_weightCurve[kAecBins];
extern const float VelFuncAec_overDriveCurve[kAecBins];

// Documented entry points, adapters in state_adapters.cpp: InitAec sets up the instance's FFT
// and then the core state (aec_core_init) and returns 0; FreeAec releases nothing and returns
// -1 for a null pointer, else 0.
int VelFuncAec_InitAec(int sampFreq, aec_workingbuf_t *aec_internal_buf_in);
int VelFuncAec_FreeAec(aec_workingbuf_t *aec_internal_buf_in);

// The start state of the core at `sampFreq`. The three per-frame pointers and is_dtd are not
// touched.
void aec_core_init(aec_t *aec, int sampFreq);
