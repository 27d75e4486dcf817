// Time-domain NLMS. The far-end history is stored twice in a row so the 1024-sample window is
// always contiguous (newest sample first) without wrapping. The dot product is either the
// textbook running sum or eight partial sums; with the library's flags (no -ffast-math) the
// compiler may not reassociate the running sum, so only the second is vectorised.
#include "nlms.h"

#include <algorithm>
#include <cmath>

namespace bench {

NlmsCanceller::NlmsCanceller(Sum sum, float mu, float regulariser)
    : sum_(sum),
      mu_(mu),
      regulariser_(regulariser),
      weights_(kTaps, 0.0f),
      history_(2 * kTaps, 0.0f) {}

namespace {

float dot_textbook(const float *a, const float *b, int n) {
    float s = 0;
    for (int k = 0; k < n; ++k) {
        s += a[k] * b[k];
    }
    return s;
}

float dot_partial8(const float *a, const float *b, int n) {
    float s[8] = {};
    for (int k = 0; k < n; k += 8) {
        for (int l = 0; l < 8; ++l) {
            s[l] += a[k + l] * b[k + l];
        }
    }
    return ((s[0] + s[1]) + (s[2] + s[3])) + ((s[4] + s[5]) + (s[6] + s[7]));
}

}  // namespace

void NlmsCanceller::process(const int16_t *near, const int16_t *far, int16_t *out, int samples) {
    for (int i = 0; i < samples; ++i) {
        const float x = far[i];
        pos_ = pos_ == 0 ? kTaps - 1 : pos_ - 1;
        const float leaving = history_[pos_];  // x[n - kTaps] leaves the window
        energy_ += double(x) * x - double(leaving) * leaving;
        history_[pos_] = x;
        history_[pos_ + kTaps] = x;
        const float *window = &history_[pos_];

        const float y = sum_ == Sum::kTextbook ? dot_textbook(weights_.data(), window, kTaps)
                                               : dot_partial8(weights_.data(), window, kTaps);
        const float e = static_cast<float>(near[i]) - y;
        const float step = mu_ * e / (static_cast<float>(energy_) + regulariser_);
        for (int k = 0; k < kTaps; ++k) {
            weights_[k] += step * window[k];
        }
        out[i] = static_cast<int16_t>(std::clamp(std::lround(e), -32768L, 32767L));
    }
}

}  // namespace bench
