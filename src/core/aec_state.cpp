// The start state of the echo-canceller core.
#include "core/aec_state.h"

#include <cstring>

void aec_core_init(aec_t *aec, int sampFreq) {
    aec->sampFreq = sampFreq;
    aec->errThresh = 1.5e-6f;
    aec->system_delay = 0;
    for (int b = 0; b < kAecBands; ++b) {
        aec->targetSupp[b] = -1.5f;
        aec->minOverDrive[b] = 1.0f;
    }
    aec->mult = sampFreq / 8000;

    memset(aec->eBuf, 0, sizeof aec->eBuf);
    memset(aec->yBuf, 0, sizeof aec->yBuf);
    memset(aec->xPow, 0, sizeof aec->xPow);
    memset(aec->dPow, 0, sizeof aec->dPow);
    memset(aec->dInitMinPow, 0, sizeof aec->dInitMinPow);
    aec->noisePow = aec->dInitMinPow;
    aec->noiseEstCtr = 0;
    for (float &p : aec->dMinPow) {
        p = 500000.0f;
    }

    aec->xfBufBlockPos = 0;
    memset(aec->xfBuf, 0, sizeof aec->xfBuf);
    memset(aec->wfBuf, 0, sizeof aec->wfBuf);
    memset(aec->wfBuf_lpf, 0, sizeof aec->wfBuf_lpf);
    memset(aec->sde, 0, sizeof aec->sde);
    memset(aec->syd, 0, sizeof aec->syd);
    memset(aec->se, 0, sizeof aec->se);
    for (int i = 0; i < kAecBins; ++i) {
        aec->sd[i] = 1.0f;
        aec->sy[i] = 1.0f;
    }
    memset(aec->outBuf, 0, sizeof aec->outBuf);

    aec->hNlFbMin = 1.0f;
    aec->hNlFbLocalMin = 1.0f;
    aec->hNlXdAvgMin = 1.0f;
    aec->hNlNewMin = 0;
    aec->hNlMinCtr = 0;
    for (int b = 0; b < kAecBands; ++b) {
        aec->overDrive[b] = 2.0f;
        aec->overDriveSm[b] = 2.0f;
    }
    aec->delayIdx = 0;
    aec->divergeState = 0;
    aec->seed = 777;
}
