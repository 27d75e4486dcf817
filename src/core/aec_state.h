// The echo-canceller core state (aec_t), its fixed dimensions and constant tables, and its
// initialisation. The record lives inside the instance; nothing here allocates.
#pragma once

#include <cstdint>

constexpr int kAecBlock = 128;         // samples per channel per frame, and the analysis hop
constexpr int kAecFft = 256;           // real transform length
constexpr int kAecBins = 129;          // kAecFft / 2 + 1
constexpr int kAecSpectrum = 258;      // packed spectrum floats
constexpr int kAecPartitions = 8;      // far-end partitions of the linear filter
constexpr int kAecPartitioned = 2064;  // kAecPartitions * kAecSpectrum
constexpr int kAecBands = 7;           // suppression bands

struct aec_workingbuf_t;

struct aec_t {
    float eBuf[256];
    float yBuf[256];
    float xPow[129];
    float dPow[129];
    float dMinPow[129];
    float dInitMinPow[129];
    float *noisePow;
    float xfBuf[2064];
    float wfBuf[2064];
    float wfBuf_lpf[2064];
    float sde[129][2];
    float syd[129][2];
    float sy[129];
    float sd[129];
    float se[129];
    float hNlFbMin;
    float hNlFbLocalMin;
    float hNlXdAvgMin;
    int hNlNewMin;
    uint16_t hNlMinCtr;
    float overDrive[7];
    float overDriveSm[7];
    float targetSupp[7];
    float minOverDrive[7];
    float outBuf[128];
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
extern const float FloatingFftInWindow256[129];
extern const float *const sqrtHanning;
// 0.1 + 0.3 * sqrt((i - 1) / 127) to 4 decimals (w[0] = 0), and 1 + sqrt(i / 128) to 4 decimals.
extern const float VelFuncAec_weightCurve[129];
extern const float VelFuncAec_overDriveCurve[129];

int VelFuncAec_InitAec(int sampFreq, aec_workingbuf_t *aec_internal_buf_in);
int VelFuncAec_FreeAec(aec_workingbuf_t *aec_internal_buf_in);
