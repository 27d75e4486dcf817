// Real FFT of 256 points on the packed half spectrum: 258 floats, bins 0..128 as (re, im)
// pairs, DC and Nyquist each with their own pair. Forward is unscaled, inverse scaled by 1/N.
// The plans live in caller memory (the area after the instance record); nothing is allocated.
// Stages that transform take an fft_ctx_t (the instance's handle and work arrays).
#pragma once

#include <cstdint>

#include "dims.h"

#if defined(QENAEC_FFT_NE10)
// ARM: Ne10's own types, result codes and the two process-wide entry points it declares.
#include <NE10_dsp.h>
#else
struct ne10_fft_cpx_float32_t {
    float r;
    float i;
};

// The plan built at the start of the caller's area.
struct fft_plan_t;
typedef fft_plan_t *ne10_fft_r2c_cfg_float32_t;

typedef int ne10_result_t;
enum : ne10_result_t { NE10_OK = 0, NE10_ERR = -1 };

// Process-wide engine entry points, installed by ne10_init.
typedef void (*ne10_fft_r2c_fn)(ne10_fft_cpx_float32_t *out, const float *in,
                                ne10_fft_r2c_cfg_float32_t cfg);
typedef void (*ne10_fft_c2r_fn)(float *out, const ne10_fft_cpx_float32_t *in,
                                ne10_fft_r2c_cfg_float32_t cfg);
extern ne10_fft_r2c_fn ne10_fft_r2c_1d_float32;
extern ne10_fft_c2r_fn ne10_fft_c2r_1d_float32;
#endif

struct FFTHandle_t {
    ne10_fft_cpx_float32_t fft_Ne10_out[kAecBins];
    ne10_fft_r2c_cfg_float32_t fft_Ne10_cfg;
    int is_fft_init;
    int fftSize;
};

unsigned int FFT_GetBufferSize(unsigned int nfft);
void fft_init(FFTHandle_t *handle);
// Builds the plan in `area_bytes` bytes at fft_Ne10_cfg; fft_init passes
// FFT_GetBufferSize(fftSize).
void fft_init_in(FFTHandle_t *handle, unsigned int area_bytes);
void VEL_rdft(FFTHandle_t *handle, int n, int isgn, float *a, int *ip, float *w);
void fft_Free(FFTHandle_t *handle);
ne10_result_t ne10_init(void);

// What one instance's transforms use besides the data: its FFT state and the two work arrays
// that VEL_rdft only tests for null.
struct fft_ctx_t {
    FFTHandle_t *handle;
    int *ip;
    float *w;
};

// Out of place on the caller's arrays, with no copy through the handle: the forward transform
// (unscaled) of the kAecFft samples at `signal` into the packed `spectrum` (kAecSpectrum
// floats), and the inverse (scaled by 1/N) of `spectrum`, which it leaves as it was, into
// `signal`. The two must not overlap. A signal the ARM engine cannot take where it is (it
// reads and writes samples as 8-byte pairs) goes through the stage in the plan area.
void fft_forward_to(const fft_ctx_t &fft, const float *signal, float *spectrum);
void fft_inverse_to(const fft_ctx_t &fft, const float *spectrum, float *signal);

// The handle's staging area for a half spectrum (kAecSpectrum floats), free between transforms:
// where a stage prepares the spectrum it hands to fft_inverse_to.
inline float *fft_spectrum_stage(const fft_ctx_t &fft) {
    return &fft.handle->fft_Ne10_out[0].r;
}
