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

    // The evaluation's baseline (eval/nlms.py), in step size, length and regulariser: a
    // far end at -60 dBFS over the whole window, which keeps the step finite in silence.
    static constexpr float kStep = 0.3f;
    static constexpr float kRegulariser = kTaps * 32.768f * 32.768f;

    explicit NlmsCanceller(Sum sum = Sum::kTextbook, float mu = kStep,
                           float regulariser = kRegulariser);

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
