// Comfort noise: adds to every bin of the suppressed error spectrum a unit-magnitude random
// phase from the tables, scaled by the near-end noise floor and weighted towards the weak bins.
// Owns the two table read positions, which are process-wide: every instance draws from the
// same sequence, and the positions are never reset. Instances on different threads share them
// through relaxed atomics: no lock, no data race, and any interleaving leaves both positions in
// range (each store is a valid position), so the noise stays valid and only its order differs.
#include "dsp/comfort_noise.h"

#include <atomic>
#include <cmath>

#include "kernels/vector.h"

namespace {

constexpr int kTableSize = 1024;

std::atomic<int> comfort_noise_ind{0};         // next table entry
std::atomic<int> comfort_noise_ind_offset{0};  // entry whose low byte restarts the read position

// Magnitude in double, kept as float.
float bin_magnitude(const float *bin) {
    const double re = bin[0];
    const double im = bin[1];
    return static_cast<float>(sqrt(re * re + im * im));
}

// 2^shift: the integer 1 << shift as a float for shift >= 0, else the exact reciprocal of
// 2^-shift (a power of two), by which a multiplication rounds as the division does.
float shift_scale(int shift) {
    return shift >= 0 ? static_cast<float>(1 << shift) : 1.0f / static_cast<float>(1 << -shift);
}

int load(const std::atomic<int> &v) {
    return v.load(std::memory_order_relaxed);
}

void store(std::atomic<int> &v, int x) {
    v.store(x, std::memory_order_relaxed);
}

// After the last entry the sequence restarts at 0..255, taken from the low byte of an entry
// that itself walks through the table, so successive passes start at different places.
int next_position(int ind) {
    if (ind != kTableSize - 1) {
        return ind + 1;
    }
    const int offset = load(comfort_noise_ind_offset);
    store(comfort_noise_ind_offset, (offset + 1) % kTableSize);
    return static_cast<uint16_t>(comfortNoiseX[offset]) & 0xFF;
}

}  // namespace

// `lambda` (the suppression gains) is part of the signature and not read.
void ComfortNoise_Process(float *input, float *noisePow, float * /*lambda*/, int length,
                          float NOISE_MIN_PWR, int NOISE_MUL_LEFT_SHIFT) {
    // Each bin's magnitude is needed twice (range, then weight); the transform size's bins
    // are computed once and kept (a longer spectrum computes the rest again).
    float magnitude[kAecBins];
    const int bins = length >= 0 ? length / 2 + 1 : 0;
    const int kept = bins < 1 ? 1 : bins < kAecBins ? bins : kAecBins;
    for (int j = 0; j < kept; ++j) {
        magnitude[j] = bin_magnitude(&input[2 * j]);
    }
    float min;
    float max;
    vec_range(magnitude, kept, &min, &max);
    for (int i = 2 * kAecBins; i <= length; i += 2) {
        const float m = bin_magnitude(&input[i]);
        if (m > max) {
            max = m;
        }
        if (m < min) {
            min = m;
        }
    }

    const double lowest = min;
    const double range = (static_cast<double>(max) - min) + 1e-10;
    const float scale = shift_scale(NOISE_MUL_LEFT_SHIFT);
    // The read position advances in a local and is published once: still a valid position
    // whatever another thread stores meanwhile.
    int ind = load(comfort_noise_ind);
    // The amplitudes in double, bin by bin; the additions four bins at a time. A chunk's bins
    // are all read before any of them is written.
    for (int j0 = 0; j0 < bins; j0 += kAecBins) {
        const int n = bins - j0 < kAecBins ? bins - j0 : kAecBins;
        // The first chunk's magnitudes are kept from the range; a longer spectrum's are
        // computed again, into the same array.
        if (j0 > 0) {
            for (int k = 0; k < n; ++k) {
                magnitude[k] = bin_magnitude(&input[2 * (j0 + k)]);
            }
        }
        // The noise power with its floor (noisePow unless NOISE_MIN_PWR is not below it),
        // then in its place the amplitude.
        float amplitude[kAecBins];
        vec_raise_to(&noisePow[j0], NOISE_MIN_PWR, amplitude, n);
        for (int k = 0; k < n; ++k) {
            const float a =
                static_cast<float>((static_cast<double>(magnitude[k]) - lowest) / range);
            // The loudest bin gets almost no noise, the weakest nearly the full floor.
            const float g = 0.9999 - a > 0 ? static_cast<float>(0.9999 - a) : 0.0f;
            amplitude[k] = static_cast<float>(sqrt(static_cast<double>(g) * amplitude[k]));
        }
        // The table entries in contiguous runs up to the table's end, each followed by the
        // restart. Subtracting the imaginary part matches the conjugated spectrum it is added
        // to.
        for (int k = 0; k < n;) {
            const int run = n - k < kTableSize - ind ? n - k : kTableSize - ind;
            vec_add_conjugate_noise(&input[2 * (j0 + k)], &comfortNoiseX[ind], &comfortNoiseY[ind],
                                    &amplitude[k], scale, run);
            k += run;
            ind += run;
            if (ind == kTableSize) {
                ind = next_position(kTableSize - 1);
            }
        }
    }
    store(comfort_noise_ind, ind);
}

int comfort_noise_read_position() {
    return load(comfort_noise_ind);
}

int comfort_noise_offset_position() {
    return load(comfort_noise_ind_offset);
}

void comfort_noise_set_positions(int ind, int ind_offset) {
    store(comfort_noise_ind, ind);
    store(comfort_noise_ind_offset, ind_offset);
}
