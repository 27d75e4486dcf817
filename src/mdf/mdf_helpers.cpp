// Helpers of the adaptive-filter step: the DC notch of the near end, the proportional step
// weights, the partition rotation of the gradient constraint, and the transform pair on the
// filter's own 1/256 spectrum scale (the inverse in the scratch it is handed).
#include <cmath>
#include <cstring>

#include "kernels/step_control.h"
#include "kernels/vector.h"
#include "mdf/mdf.h"

namespace {

constexpr int kPropBatch = 8;  // partitions whose energies are summed in one call

}  // namespace

void filter_dc_notch16(const mdf_word16_t *in, mdf_word16_t radius, mdf_word16_t *out, int len,
                       mdf_mem_t *mem, unsigned short /*channel*/) {
    const double r = radius;
    const float den2 = static_cast<float>(r * r + 0.7 * (1.0 - r) * (1.0 - r));
    // The memory stays in registers: through mem[] every sample would wait on a store.
    float m0 = mem[0];
    float m1 = mem[1];
    for (int i = 0; i < len; ++i) {
        const float vin = in[i];
        const float vout = m0 + vin;
        m0 = m1 + 2.0f * (radius * vout - vin);
        m1 = vin - den2 * vout;
        out[i] = radius * vout;
    }
    mem[0] = m0;
    mem[1] = m1;
}

void mdf_adjust_prop(const mdf_word32_t *W, int N, int M, mdf_word16_t *prop) {
    // Both sums start at 1, so the weights add up to a little less than 0.99.
    float max_sum = 1.0f;
    for (int i0 = 0; i0 < M; i0 += kPropBatch) {
        const int count = M - i0 < kPropBatch ? M - i0 : kPropBatch;
        float tmp[kPropBatch];
        partition_energies(W + i0 * N, N, count, tmp);
        for (int k = 0; k < count; ++k) {
            prop[i0 + k] = static_cast<float>(std::sqrt(static_cast<double>(tmp[k])));
        }
    }
    for (int i = 0; i < M; ++i) {
        if (prop[i] > max_sum) {
            max_sum = prop[i];
        }
    }
    float prop_sum = 1.0f;
    for (int i = 0; i < M; ++i) {
        prop[i] = prop[i] + 0.1f * max_sum;
        prop_sum += prop[i];
    }
    for (int i = 0; i < M; ++i) {
        prop[i] = 0.99f * prop[i] / prop_sum;
    }
}

bool mdf_constrains_partition(unsigned cancel_count, int j) {
    // The counter runs 0..7 but is taken modulo 7: counts 7 and 0 both pick partition 1.
    return j == 0 || static_cast<int>(cancel_count % 7) == j - 1;
}

// The 1/256 is a scale by 2^-8, which gives the same bits as the division.
void mdf_forward(const fft_ctx_t &fft, const float *time_domain, float *frequency_domain) {
    fft_forward_to(fft, time_domain, frequency_domain);
    vec_scale(frequency_domain, 1.0f / kAecFft, frequency_domain, kAecSpectrum);
}

// The scaling is folded into the copy into the spectrum stage, before the inverse.
void mdf_inverse(const fft_ctx_t &fft, const float *frequency_domain, float *time_domain) {
    float *a = fft_spectrum_stage(fft);
    vec_scale(frequency_domain, static_cast<float>(kAecFft), a, kAecSpectrum);
    fft_inverse_to(fft, a, time_domain);
}

// The engine's 1/N and the 256 of mdf_inverse are both powers of two, which leave every
// rounding in between as it is; so the 256 may as well come after the transform, on the half
// that is read.
void mdf_inverse_upper(const fft_ctx_t &fft, const float *frequency_domain, float *time_domain) {
    fft_inverse_to(fft, frequency_domain, time_domain);
    vec_scale(&time_domain[kAecBlock], static_cast<float>(kAecFft), &time_domain[kAecBlock],
              kAecBlock);
}

// The 256 before the inverse and the 1/256 after the forward cancel for the same reason:
// the impulse response stays on the engine's scale between the transforms.
void mdf_constrain(const fft_ctx_t &fft, float *W, float *wtmp) {
    fft_inverse_to(fft, W, wtmp);
    zero_floats(&wtmp[kAecBlock], kAecBlock);
    fft_forward_to(fft, wtmp, W);
}
