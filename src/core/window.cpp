// Square-root Hann windowing of block pairs and their forward transforms into packed spectra.
#include "core/window.h"

#include "core/aec_state.h"
#include "dsp/vector_math.h"
#include "instance.h"

void aec_window_pair(const float *pair, float *out) {
    for (int i = 0; i < kAecBlock; ++i) {
        out[i] = pair[i] * sqrtHanning[i];
        out[kAecBlock + i] = pair[kAecBlock + i] * sqrtHanning[kAecBlock - i];
    }
}

namespace {

// Transforms the 256 samples already in `spectrum` in place: the packed result needs only
// the two floats beyond them, so no scratch copy is made.
void forward_in_place(aec_workingbuf_t *buf, float *spectrum) {
    VEL_rdft(&buf->FFT_workingBuff, kAecFft, 1, spectrum, buf->fft_aec_ip, buf->fft_aec_wfft);
}

}  // namespace

void aec_pair_spectrum(aec_workingbuf_t *buf, const float *pair, float *spectrum) {
    memcpy_fast(spectrum, pair, kAecFft * sizeof(float));
    forward_in_place(buf, spectrum);
}

void aec_windowed_pair_spectrum(aec_workingbuf_t *buf, const float *pair, float *spectrum) {
    aec_window_pair(pair, spectrum);
    forward_in_place(buf, spectrum);
}
