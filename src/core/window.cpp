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

void forward_to(aec_workingbuf_t *buf, float *spectrum) {
    VEL_rdft(&buf->FFT_workingBuff, kAecFft, 1, buf->fft_aec_buf, buf->fft_aec_ip,
             buf->fft_aec_wfft);
    memcpy_fast(spectrum, buf->fft_aec_buf, kAecSpectrum * sizeof(float));
}

}  // namespace

void aec_pair_spectrum(aec_workingbuf_t *buf, const float *pair, float *spectrum) {
    memcpy_fast(buf->fft_aec_buf, pair, kAecFft * sizeof(float));
    forward_to(buf, spectrum);
}

void aec_windowed_pair_spectrum(aec_workingbuf_t *buf, const float *pair, float *spectrum) {
    aec_window_pair(pair, buf->fft_aec_buf);
    forward_to(buf, spectrum);
}
