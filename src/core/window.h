// Analysis and synthesis windowing of 256-sample block pairs, and the forward transforms of
// such pairs into packed spectra. Every stage that windows a block pair calls this one helper,
// so the core has one definition of its square-root Hann convention.
#pragma once

#include "dsp/fft.h"

// out[i] = pair[i] * sqrtHanning[i], out[128 + i] = pair[128 + i] * sqrtHanning[128 - i],
// i = 0..127. `out` may be `pair` (in place).
void aec_window_pair(const float *pair, float *out);

// Forward transform of a pair into the 258-float packed `spectrum`, which must not overlap
// `pair`: unwindowed, or windowed first into `scratch` (256 floats, the instance's transform
// scratch).
void aec_pair_spectrum(const fft_ctx_t &fft, const float *pair, float *spectrum);
void aec_windowed_pair_spectrum(const fft_ctx_t &fft, const float *pair, float *scratch,
                                float *spectrum);
