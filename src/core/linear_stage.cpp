// Far-end buffering and the linear stage of the core, on arrays: stereo merge, the block-pair
// hand-over, the near-end noise floor, the echo dump and the far-end level. The per-bin updates
// of the noise floor are kernels (kernels/noise_floor.cpp); the documented entry points that
// feed these functions from the instance are in linear_adapters.cpp.
#include "core/linear_stage.h"

#include <cmath>

#include "core/window.h"
#include "dims.h"
#include "dsp/stream.h"
#include "dsp/vector_math.h"
#include "kernels/noise_floor.h"
#include "kernels/vector.h"

void MergeSteroToMono(float *nearend, float *nearend_ch2, int length) {
    vec_average(nearend, nearend_ch2, nearend, length);
}

float FarEndMean_Compute(float *input, int length) {
    float sum = 0.0f;
    for (int m = 0; m < length; ++m) {
        sum += std::fabs(input[m]);
    }
    return sum / static_cast<float>(length);
}

void hand_over_block(const float *error, const float *echo, float *mdf_error, float *mdf_echo,
                     float *eBuf, float *yBuf) {
    constexpr size_t kBlockBytes = kAecBlock * sizeof(float);
    memcpy_fast(mdf_echo, &mdf_echo[kAecBlock], kBlockBytes);
    memcpy_fast(mdf_error, &mdf_error[kAecBlock], kBlockBytes);
    memcpy_fast(&mdf_echo[kAecBlock], echo, kBlockBytes);
    memcpy_fast(&mdf_error[kAecBlock], error, kBlockBytes);
    memcpy_fast(eBuf, mdf_error, 2 * kBlockBytes);
    memcpy_fast(yBuf, mdf_echo, 2 * kBlockBytes);
}

namespace {

constexpr int kNoiseHoldBlocks = 50;    // dMinPow stays at its start value this long
constexpr int kNoiseStartBlocks = 500;  // times mult: the start-up estimate serves this long

}  // namespace

void noise_floor_update(const fft_ctx_t &fft, const float *pair, float *scratch, int mult,
                        noise_floor_t floor) {
    // The spectrum is read only here, so it stays in the transform scratch.
    aec_pair_spectrum(fft, pair, scratch);
    noise_smooth_power(floor.dPow, scratch);
    if (*floor.noiseEstCtr > kNoiseHoldBlocks) {
        noise_track_minimum(floor.dMinPow, floor.dPow);
    }
    if (*floor.noiseEstCtr < kNoiseStartBlocks * mult) {
        ++*floor.noiseEstCtr;
        noise_follow_minimum(floor.dInitMinPow, floor.dMinPow);
        *floor.noisePow = floor.dInitMinPow;
    } else {
        *floor.noisePow = floor.dMinPow;
    }
}

void echo_dump_write(int32_t dump_flag, FILE *stream, uint32_t point_number, const float *echo) {
    if (dump_flag == 0 || stream == nullptr) {
        return;
    }
    short b[kAecBlock];
    const size_t n = point_number < kAecBlock ? point_number : kAecBlock;
    for (size_t i = 0; i < n; ++i) {
        b[i] = saturate_to_pcm(echo[i]);
    }
    fwrite(b, sizeof(short), n, stream);
}
