// The fixed-size MDF adaptive filter (8 partitions of 128 samples, foreground and background
// filters): its state record, the arrays it borrows from the instance, and its operations.
//
// The documented entry points take the instance; each is an adapter (mdf_adapters.cpp) that
// picks out the state record, the borrowed arrays and the transform, and calls the array
// functions declared after them.
#pragma once

#include <cstdint>

#include "dims.h"
#include "dsp/fft.h"

typedef float mdf_word16_t;  // a sample-scale value
typedef float mdf_word32_t;  // an accumulated energy
typedef float mdf_mem_t;     // filter memory

struct aec_workingbuf_t;

// Fields marked "work" are written by a frame before it reads them; the others carry from frame
// to frame, or are settings (spec_average, beta0, beta_max, window, preemph, notch_radius).
struct MdfEchoState {
    uint16_t cancel_count;
    int adapted;
    int saturated;
    uint16_t screwed_up;
    mdf_word16_t spec_average;
    mdf_word16_t beta0;
    mdf_word16_t beta_max;
    mdf_word32_t sum_adapt;
    mdf_word16_t leak_estimate;
    mdf_word16_t x[kAecFft];
    mdf_word16_t X[kAecRing];
    mdf_word16_t input[kAecBins];  // work
    mdf_word16_t last_y[kAecFft];
    mdf_word32_t PHI[kAecSpectrum];  // work
    mdf_word32_t foreground[kAecPartitioned];
    mdf_word32_t Davg1;
    mdf_word32_t Davg2;
    mdf_word32_t Dvar1;
    mdf_word32_t Dvar2;
    mdf_word32_t power[kAecBins];
    mdf_word16_t power_1[kAecBins];
    mdf_word16_t wtmp[kAecFft];  // work
    mdf_word32_t Rf[kAecBins];   // work
    mdf_word32_t Yf[kAecBins];   // work
    mdf_word32_t Eh[kAecBins];
    mdf_word32_t Yh[kAecBins];
    mdf_word32_t Pey;
    mdf_word32_t Pyy;
    mdf_word16_t window[kAecFft];
    mdf_word16_t prop[kAecPartitions];  // work
    mdf_word16_t memX;
    mdf_word16_t memD;
    mdf_word16_t memE;
    mdf_word16_t preemph;
    mdf_word16_t notch_radius;
    mdf_mem_t notch_mem[2];
};

int mdf_echo_state_init(aec_workingbuf_t *aec_internal_buf_in, int frame_size, int filter_length);
void mdf_echo_state_reset(aec_workingbuf_t *aec_internal_buf_in);
int mdf_echo_ctl(aec_workingbuf_t *aec_internal_buf_in, int request, void *ptr);
void mdf_echo_cancellation(aec_workingbuf_t *aec_internal_buf_in, mdf_word16_t *in,
                           mdf_word16_t *in_ch2, mdf_word16_t *far_end, mdf_word16_t *out,
                           mdf_word16_t *out_ch2, mdf_word16_t *estimated_echo,
                           mdf_word16_t *estimated_echo_ch2);
void fft_wrap(aec_workingbuf_t *aec_internal_buf_in, float *time_domain, float *frquency_domain);
void ifft_wrap(aec_workingbuf_t *aec_internal_buf_in, float *frquency_domain, float *time_domain);

void mdf_warning(const char *str);
void mdf_warning_int(const char *str, int val);

// The arrays of the instance the filter works on besides its own record. W and E carry state
// from frame to frame. e, y and Y are the step's work space: each is written before it is read
// within a frame, and what the step leaves there is what the instance shows afterwards (until
// the linear stage rewrites e and y). Xf is this frame's far-end power.
struct mdf_borrowed_t {
    mdf_word32_t *W;  // background weights, kAecPartitioned floats (aec_t.wfBuf)
    float *E;         // error spectrum of the last frame, kAecSpectrum (instance ef)
    float *Xf;        // far-end power spectrum, kAecBins (aec_t.xPow)
    float *e;         // time-domain error, kAecFft (aec_t.eBuf)
    float *y;         // time-domain echo estimate, kAecFft (aec_t.yBuf)
    float *Y;         // echo-estimate spectrum, kAecSpectrum (instance yf)
};

// Set-up (init steps 1 to 11, at `rate`) and divergence reset of the state and the weights W;
// the reset also clears the error spectrum E. Both clear only N x M floats of the weights: the
// last 16 keep what they held.
void mdf_state_setup(MdfEchoState *st, mdf_word32_t *W, int rate);
void mdf_state_clear(MdfEchoState *st, mdf_word32_t *W, float *E);
// The control requests on the state and the stored rate `sampFreq`; 0, or -1 for an unknown
// request (with its warning).
int mdf_control(MdfEchoState *st, int *sampFreq, int request, int *value);

// One frame: `in` and `far_end` (128 samples each) in, the residual into `out` and the
// background filter's echo estimate into `estimated_echo` (128 each). Counter overflows are
// reported at error level of `dbg_level`.
void mdf_step(MdfEchoState *st, const mdf_borrowed_t &borrowed, const fft_ctx_t &fft, int dbg_level,
              const float *in, const float *far_end, float *out, float *estimated_echo);

// The transform pair on the filter's 1/256 spectrum scale: forward into the 258 floats of
// `frequency_domain`, inverse into the 256 floats of `time_domain` (the two may not overlap),
// the inverse's spectrum scaled into the transform's spectrum stage. The inverse of the
// forward of a block returns the block.
void mdf_forward(const fft_ctx_t &fft, const float *time_domain, float *frequency_domain);
void mdf_inverse(const fft_ctx_t &fft, const float *frequency_domain, float *time_domain);
// mdf_inverse for a caller that reads only the upper 128 samples: those come out the same,
// the lower half stays on the engine's scale (1/256 of mdf_inverse's).
void mdf_inverse_upper(const fft_ctx_t &fft, const float *frequency_domain, float *time_domain);
// The gradient constraint of one partition of W (258 floats) through `wtmp` (256): the
// partition's impulse response with its upper half cleared, transformed back, bit for bit as
// mdf_forward(mdf_inverse(W)) with the upper half cleared between them.
void mdf_constrain(const fft_ctx_t &fft, float *W, float *wtmp);

void filter_dc_notch16(const mdf_word16_t *in, mdf_word16_t radius, mdf_word16_t *out, int len,
                       mdf_mem_t *mem, unsigned short channel);
void mdf_adjust_prop(const mdf_word32_t *W, int N, int M, mdf_word16_t *prop);
// True when partition j gets the gradient constraint in a frame whose counter (after its
// increment) is cancel_count: partition 0 always, and one other in turn.
bool mdf_constrains_partition(unsigned cancel_count, int j);
