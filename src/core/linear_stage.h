// The per-frame steps of the core that run before nonlinear processing: the far-end spectra,
// the near-end stereo merge, the adaptive filter call and the hand-over of its error and echo
// estimate into the core's block-pair buffers, the near-end noise-floor tracker that feeds
// comfort noise, and the far-end level measure.
#pragma once

struct aec_workingbuf_t;

// Spectra of a 256-sample far-end pair: unwindowed into `xf`, windowed into `xfw`.
void VelFuncAec_BufferFarendPartition(aec_workingbuf_t *aec_internal_buf_in, float *farend);

// The linear stage of one frame on the near-end pairs of channels 1 and 2.
void Aec_NLMS_process(aec_workingbuf_t *aec_internal_buf_in, float *nearend, float *nearend_ch2);

// nearend[i] = (nearend[i] + nearend_ch2[i]) / 2 in place; the second channel is unchanged.
void MergeSteroToMono(float *nearend, float *nearend_ch2, int length);

void AdaptiveFilter_ProcessBlock(aec_workingbuf_t *aec_internal_buf_in);

// Appends one block of error and echo estimate to `mdf_error`/`mdf_echo` and copies both
// pairs to the core's `eBuf`/`yBuf`. `channel` is not used.
void SentBuffToWorkingBuff(aec_workingbuf_t *aec_internal_buf_in, float *error, float *echo,
                           unsigned short channel);

// Near-end noise floor by minimum tracking; selects the core's `noisePow`.
void Noise_Power_Estimation(aec_workingbuf_t *aec_internal_buf_in);

// Mean absolute value of `length` samples, in single precision. `length` must not be 0.
float FarEndMean_Compute(float *input, int length);

// Writes one block of echo estimate to the echo dump as 16-bit PCM (saturated, truncated
// toward zero). Does nothing unless dumping is on and the echo dump stream is open.
void echo_dump_write(aec_workingbuf_t *aec_internal_buf_in, const float *echo);
