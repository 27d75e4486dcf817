// The per-frame steps of the core that run before nonlinear processing: the far-end spectra,
// the near-end stereo merge, the adaptive filter call and the hand-over of its error and echo
// estimate into the core's block-pair buffers, the near-end noise-floor tracker that feeds
// comfort noise, and the far-end level measure.
//
// The documented entry points take the instance; each is an adapter (linear_adapters.cpp)
// that picks out what its step reads and writes and hands it to the array functions below.
#pragma once

#include <cstdint>
#include <cstdio>

#include "dsp/fft.h"

struct aec_workingbuf_t;

// Spectra of a 256-sample far-end pair: unwindowed into `xf`, windowed into `xfw`.
void VelFuncAec_BufferFarendPartition(aec_workingbuf_t *aec_internal_buf_in, float *farend);
// The linear stage of one frame on the near-end pairs of channels 1 and 2: records them as the
// core's near-end pairs, takes the frame's saturation decision, merges two channels into the
// first and runs AdaptiveFilter_ProcessBlock.
void Aec_NLMS_process(aec_workingbuf_t *aec_internal_buf_in, float *nearend, float *nearend_ch2);
// Noise floor (with comfort noise on), the adaptive filter on the current blocks of the first
// near-end and far-end channels, the echo dump, and the hand-over of channel 1's outputs.
void AdaptiveFilter_ProcessBlock(aec_workingbuf_t *aec_internal_buf_in);
// hand_over_block on the instance's mdf_error/mdf_echo and the core's eBuf/yBuf. `channel` is
// not used.
void SentBuffToWorkingBuff(aec_workingbuf_t *aec_internal_buf_in, float *error, float *echo,
                           unsigned short channel);
// noise_floor_update on the core's near-end pair, noise-floor state and transform scratch.
void Noise_Power_Estimation(aec_workingbuf_t *aec_internal_buf_in);

// nearend[i] = (nearend[i] + nearend_ch2[i]) / 2 in place; the second channel is unchanged.
void MergeSteroToMono(float *nearend, float *nearend_ch2, int length);

// Mean absolute value of `length` samples, in single precision. `length` must not be 0.
float FarEndMean_Compute(float *input, int length);

// Shifts the 256-float histories `mdf_error` and `mdf_echo` by one block and appends this
// block's `error` and `echo` (128 each); then copies both whole pairs to `eBuf` and `yBuf`,
// which nonlinear processing reads.
void hand_over_block(const float *error, const float *echo, float *mdf_error, float *mdf_echo,
                     float *eBuf, float *yBuf);

// The near-end noise floor of the core (aec_t), carried from frame to frame: smoothed power,
// tracked minimum and start-up estimate (129 bins each), the blocks seen, and which of the
// two estimates comfort noise uses.
struct noise_floor_t {
    float *dPow;
    float *dMinPow;
    float *dInitMinPow;
    float **noisePow;
    int *noiseEstCtr;
};

// One block of the tracker on the unwindowed near-end `pair`, transformed in `scratch` (258
// floats). The start-up estimate serves the first 500 x `mult` blocks (8 s at every rate).
void noise_floor_update(const fft_ctx_t &fft, const float *pair, float *scratch, int mult,
                        noise_floor_t floor);

// Writes one block of echo estimate to `stream` as 16-bit PCM (saturated, truncated toward
// zero), at most 128 samples. Nothing unless `dump_flag` is set and the stream is open.
void echo_dump_write(int32_t dump_flag, FILE *stream, uint32_t point_number, const float *echo);
