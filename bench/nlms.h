// The baseline users would otherwise reach for: a plain time-domain NLMS echo canceller with
// the same 1024-tap reach as the library's adaptive filter, sample by sample, no
// frequency-domain tricks, no residual-echo suppression.
#pragma once

#include <cstdint>
#include <vector>

namespace bench {

class NlmsCanceller {
public:
    static constexpr int kTaps = 1024;

    // How the 1024-term dot product is summed: in one running sum, as the textbook writes it,
    // or in eight partial sums, which breaks the dependency chain (a hand-tuned variant).
    enum class Sum { kTextbook, kPartial8 };

    // mu: normalised step size (0.2 gives this baseline its best ERLE on the benchmark's
    // scene among 0.2, 0.5 and 1.0); the regulariser keeps the step finite in silence.
    explicit NlmsCanceller(Sum sum = Sum::kTextbook, float mu = 0.2f,
                           float regulariser = kTaps * 1000.0f);

    // One block of mono samples: out[i] = near[i] - estimated echo of far[..i].
    void process(const int16_t *near, const int16_t *far, int16_t *out, int samples);

private:
    Sum sum_;
    float mu_;
    float regulariser_;
    std::vector<float> weights_;
    std::vector<float> history_;  // far end twice over, newest first from pos_
    int pos_ = 0;
    double energy_ = 0;  // far-end energy in the window, kept in double so it cannot drift
};

}  // namespace bench
