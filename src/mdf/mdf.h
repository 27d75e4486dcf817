// The fixed-size MDF adaptive filter (8 partitions of 128 samples, foreground and background
// filters): its state record and its operations. Some of the arrays it works on are borrowed
// from the core state and the instance, so every operation takes the instance.
#pragma once

#include <cstdint>

#include "dims.h"

typedef float mdf_word16_t;  // a sample-scale value
typedef float mdf_word32_t;  // an accumulated energy
typedef float mdf_mem_t;     // filter memory

struct aec_workingbuf_t;

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
    mdf_word16_t input[kAecBins];
    mdf_word16_t last_y[kAecFft];
    mdf_word32_t PHI[kAecSpectrum];
    mdf_word32_t foreground[kAecPartitioned];
    mdf_word32_t Davg1;
    mdf_word32_t Davg2;
    mdf_word32_t Dvar1;
    mdf_word32_t Dvar2;
    mdf_word32_t power[kAecBins];
    mdf_word16_t power_1[kAecBins];
    mdf_word16_t wtmp[kAecFft];
    mdf_word32_t Rf[kAecBins];
    mdf_word32_t Yf[kAecBins];
    mdf_word32_t Eh[kAecBins];
    mdf_word32_t Yh[kAecBins];
    mdf_word32_t Pey;
    mdf_word32_t Pyy;
    mdf_word16_t window[kAecFft];
    mdf_word16_t prop[kAecPartitions];
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
void mdf_warning(const char *str);
void mdf_warning_int(const char *str, int val);

void mdf_echo_cancellation(aec_workingbuf_t *aec_internal_buf_in, mdf_word16_t *in,
                           mdf_word16_t *in_ch2, mdf_word16_t *far_end, mdf_word16_t *out,
                           mdf_word16_t *out_ch2, mdf_word16_t *estimated_echo,
                           mdf_word16_t *estimated_echo_ch2);

void filter_dc_notch16(const mdf_word16_t *in, mdf_word16_t radius, mdf_word16_t *out, int len,
                       mdf_mem_t *mem, unsigned short channel);
void mdf_adjust_prop(const mdf_word32_t *W, int N, int M, mdf_word16_t *prop);
// True when partition j gets the gradient constraint in a frame whose counter (after its
// increment) is cancel_count: partition 0 always, and one other in turn.
bool mdf_constrains_partition(unsigned cancel_count, int j);
void fft_wrap(aec_workingbuf_t *aec_internal_buf_in, float *time_domain, float *frquency_domain);
void ifft_wrap(aec_workingbuf_t *aec_internal_buf_in, float *frquency_domain, float *time_domain);
