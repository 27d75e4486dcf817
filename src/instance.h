// The instance record: everything one echo canceller owns, at the start of the caller's
// block. The FFT plan area follows it directly in the same block. It is the storage of the
// library: the documented entry points take it, and each picks out of it the arrays its stage
// reads and writes; below them, helpers and kernels see only those arrays. "State" marks what
// carries from frame to frame, "work" what a frame writes before it reads it.
#pragma once

#include <cstdint>
#include <cstdio>

#include "core/aec_state.h"
#include "dims.h"
#include "dsp/fft.h"
#include "dsp/stream.h"
#include "mdf/mdf.h"

struct aec_input_data_property_t {
    uint32_t point_number;
    uint32_t nearend_channel;
    uint32_t farend_channel;
    int16_t delay_sample;
    uint32_t comfort_noise_channel;  // the comfort-noise switch, 0 or 1
    float comfort_noise_min_pwr;
    int32_t comfort_noise_mul_left_shift;
    uint32_t Supp_Mode_Frq[kAecBandEdges];
    uint32_t Supp_Mode[kAecBands];
};

struct aec_saturated_flag_t {
    int32_t nearend_saturated_ind;
    int32_t is_saturate_ind;
    int32_t is_saturate_ind_pre;
    int32_t isCurrNearEndSat;
};

struct aec_status_flag_t {
    int32_t is_aec_init_status;
    int32_t is_run_status;
    int32_t is_aec_config_status;
};

struct aec_workingbuf_t {
    aec_t aec_inst;
    aec_input_data_property_t aec_data_property;
    aec_saturated_flag_t aec_saturated_flag;
    aec_status_flag_t aec_status_flag;
    MdfEchoState mdf_workingbuff;
    int32_t fft_aec_ip[kAecFft / 2];  // handed to VEL_rdft, which only tests it
    // State: per channel, the previous block and the current one.
    float AudioNearEnd[2][kAecFft];
    float AudioFarEnd[2][kAecFft];
    float AudioNearEndSub[kAecFft];  // not used by the frame path
    // Work: the one transform scratch, lent to the filter's inverse transform, the noise floor
    // and the synthesis of nonlinear processing.
    float fft_aec_buf[kAecSpectrum];
    float fft_aec_wfft[kAecFft];  // handed to VEL_rdft, which only tests it
    float fft_aec_in_positive_max;
    // This frame's far-end spectra, unwindowed and windowed.
    float xf[kAecSpectrum];
    float xfw[kAecSpectrum];
    float yf[kAecSpectrum];   // work of the filter step: its echo spectrum Y
    float yfw[kAecSpectrum];  // work of nonlinear processing, as efw, dfw and hNl
    float ef[kAecSpectrum];   // state: the filter's error spectrum E, for the next gradient
    float efw[kAecSpectrum];
    float dfw[kAecSpectrum];
    float hNl[kAecBins];
    float Recursive_Ratio;
    float FE_Level_Thr;
    float FarEndMean;
    FFTHandle_t FFT_workingBuff;
    FILE *near_end_dump;
    FILE *far_end_dump;
    FILE *echo_dump;
    FILE *output_dump;
    int32_t dump_flag;
    char dump_path[128];
    postInfo_t postInfo;
    int32_t dbg_level;
    int32_t dump_id;
    // State: the filter's echo estimate and error, previous block and current one.
    float mdf_echo[kAecFft];
    float mdf_error[kAecFft];
};

// The instance's transform: its FFT state with the work arrays VEL_rdft is handed.
inline fft_ctx_t instance_fft(aec_workingbuf_t *buf) {
    return {&buf->FFT_workingBuff, buf->fft_aec_ip, buf->fft_aec_wfft};
}
