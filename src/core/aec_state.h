// The echo-canceller core state (aec_t), its fixed dimensions and constant tables, and its
// initialisation. The record lives inside the instance; nothing here allocates.
#pragma once

#include <cstdint>

#include "dims.h"

struct aec_workingbuf_t;

struct aec_t {
    float eBuf[kAecFft];
    float yBuf[kAecFft];
    float xPow[kAecBins];
    float dPow[kAecBins];
    float dMinPow[kAecBins];
    float dInitMinPow[kAecBins];
    float *noisePow;
    float xfBuf[kAecPartitioned];
    float wfBuf[kAecPartitioned];
    float wfBuf_lpf[kAecPartitioned];
    float sde[kAecBins][2];
    float syd[kAecBins][2];
    float sy[kAecBins];
    float sd[kAecBins];
    float se[kAecBins];
    float hNlFbMin;
    float hNlFbLocalMin;
    float hNlXdAvgMin;
    int hNlNewMin;
    uint16_t hNlMinCtr;
    float overDrive[kAecBands];
    float overDriveSm[kAecBands];
    float targetSupp[kAecBands];
    float minOverDrive[kAecBands];
    float outBuf[kAecBlock];
    int delayIdx;
    int16_t divergeState;
    int xfBufBlockPos;
    int system_delay;
    int mult;
    int sampFreq;
    uint32_t seed;
    float errThresh;
    int noiseEstCtr;
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
