// Square-root Hann windowing of block pairs and their forward transforms into packed spectra.
// The transform runs in place in the spectrum: the packed result needs only the two floats
// beyond the 256 samples, so no scratch copy is made.
#include "core/window.h"

#include "core/aec_state.h"
#include "dsp/vector_math.h"

void aec_window_pair(const float *pair, float *out) {
    for (int i = 0; i < kAecBlock; ++i) {
        out[i] = pair[i] * sqrtHanning[i];
        out[kAecBlock + i] = pair[kAecBlock + i] * sqrtHanning[kAecBlock - i];
    }
}

void aec_pair_spectrum(const fft_ctx_t &fft, const float *pair, float *spectrum) {
    memcpy_fast(spectrum, pair, kAecFft * sizeof(float));
    fft_forward(fft, spectrum);
}

void aec_windowed_pair_spectrum(const fft_ctx_t &fft, const float *pair, float *spectrum) {
    aec_window_pair(pair, spectrum);
    fft_forward(fft, spectrum);
}
