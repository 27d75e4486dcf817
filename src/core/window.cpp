// Square-root Hann windowing of block pairs and their forward transforms into packed spectra.
// The engine reads the pair (or its windowed copy) and writes the spectrum where it belongs:
// no copy goes through the transform's own staging.
#include "core/window.h"

#include "core/aec_state.h"
#include "kernels/vector.h"

void aec_window_pair(const float *pair, float *out) {
    vec_window_pair(pair, sqrtHanning, out, kAecBlock);
}

void aec_pair_spectrum(const fft_ctx_t &fft, const float *pair, float *spectrum) {
    fft_forward_to(fft, pair, spectrum);
}

void aec_windowed_pair_spectrum(const fft_ctx_t &fft, const float *pair, float *scratch,
                                float *spectrum) {
    aec_window_pair(pair, scratch);
    fft_forward_to(fft, scratch, spectrum);
}
