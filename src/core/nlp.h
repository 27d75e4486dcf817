// Nonlinear processing: coherence-based suppression of the residual echo left by the linear
// stage, with per-band overdrive, comfort noise and windowed overlap-add synthesis. The steps
// of one block are declared separately so they can be exercised one at a time.
#pragma once

struct aec_workingbuf_t;

// Frame driver entry: ignores its sample pointers and processes the core's near-end pair,
// writing the block's output over its first 128 samples.
void Aec_NLP_process(aec_workingbuf_t *aec_internal_buf_in, float *nearend, float *nearend_ch2);
// `channel` steers nothing (always 1).
void NonLinearProcessing(aec_workingbuf_t *aec_internal_buf_in, float *output, unsigned channel);

// The preferred band: prefBandSize bins read at odd bins 2k - 1,
// k = minPrefBand .. minPrefBand + prefBandSize - 1.
struct nlp_pref_band_t {
    int size;      // prefBandSize = 48 / mult
    int min_band;  // minPrefBand = 6 / mult
};
nlp_pref_band_t nlp_pref_band(int mult);
inline int nlp_pref_bin(nlp_pref_band_t band, int n) {
    return 2 * (band.min_band + n) - 1;
}

struct nlp_gain_t {
    float hNlFb;
    float hNlFbLow;
};

// The core's near-end pair; before the linear stage ever ran, the buffer it would point at.
float *nlp_near_end_pair(aec_workingbuf_t *aec_internal_buf_in);
// Windowed spectra of the near-end pair, eBuf and yBuf into dfw, efw and yfw.
void nlp_analyse(aec_workingbuf_t *aec_internal_buf_in);
// Divergence hysteresis on the smoothed powers; while diverged, efw is replaced by dfw.
void nlp_update_divergence(aec_workingbuf_t *aec_internal_buf_in);
void nlp_coherence(aec_workingbuf_t *aec_internal_buf_in, float *cohde, float *cohyd);
// Band averages, near-end state and the per-bin gains into hNl, with the feedback gains.
nlp_gain_t nlp_gains(aec_workingbuf_t *aec_internal_buf_in, const float *cohde, const float *cohyd);
// Minimum tracking of the feedback gain and the overdrive it implies two blocks later.
void nlp_track_minimum(aec_workingbuf_t *aec_internal_buf_in, float hNlFbLow);
// The overdrive used (x4 while the near end is saturated) and its smoothed value.
void nlp_smooth_overdrive(aec_workingbuf_t *aec_internal_buf_in);
// Inverse transform of efw, overlap-add into `output`, and the shift of eBuf.
void nlp_synthesis(aec_workingbuf_t *aec_internal_buf_in, float *output);
