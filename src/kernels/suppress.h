// Per-bin kernels of the nonlinear stage: recursive smoothing of the auto and cross power
// spectra, and the overdrive-then-suppress gain stage applied to the error spectrum.
#pragma once

#include "dsp/vector_math.h"

struct aec_workingbuf_t;

// `channel` selects nothing: the same instance fields serve either channel.
AUDIO_MATH_RET VelFuncAec_SmoothPSD(aec_workingbuf_t *aec_internal_buf_in, unsigned short channel);
AUDIO_MATH_RET VelFuncAec_OverdriveAndSuppress(aec_workingbuf_t *aec_internal_buf_in,
                                               const float hNlFb, unsigned short channel);

void SmoothPSD_Neon(aec_workingbuf_t *aec_internal_buf_in, unsigned short channel);
void OverdriveAndSuppress_Neon(aec_workingbuf_t *aec_internal_buf_in, const float hNlFb,
                               unsigned short channel);
void Overdrive(aec_workingbuf_t *aec_internal_buf_in, float *hNl, const float hNlFb);
void Suppress(aec_workingbuf_t *aec_internal_buf_in, const float *hNl, const float hNlFb,
              float *efw);
