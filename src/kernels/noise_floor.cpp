// The noise-floor tracker's per-bin updates, each written once over the lane type: bins 0..127
// four at a time, bin 128 alone, with the same operations in the same order.
#include "kernels/noise_floor.h"

#include "dims.h"
#include "kernels/lanes.h"

using namespace lanes;

namespace {

constexpr float kNoiseStep = 0.1f;
constexpr float kNoiseRamp = 1.0003f;

}  // namespace

void noise_smooth_power(float *dPow, const float *spectrum) {
    for_each_bin(kAecBins, [&](int j, auto lane) {
        using V = decltype(lane);
        const complex_t<V> bin = load_complex<V>(&spectrum[2 * j]);
        // Halving is exact, as the division by 2 it stands for.
        const V re = mul(bin.re, splat<V>(0.5f));
        const V im = mul(bin.im, splat<V>(0.5f));
        const V p = load<V>(&dPow[j]);
        const V power = add(mul(re, re), mul(im, im));
        store(&dPow[j], add(p, mul(sub(power, p), splat<V>(kNoiseStep))));
    });
}

void noise_track_minimum(float *dMinPow, const float *dPow) {
    for_each_bin(kAecBins, [&](int j, auto lane) {
        using V = decltype(lane);
        const V m = load<V>(&dMinPow[j]);
        const V p = load<V>(&dPow[j]);
        const V ramp = splat<V>(kNoiseRamp);
        const V up = mul(m, ramp);
        const V down = mul(add(p, mul(sub(m, p), splat<V>(kNoiseStep))), ramp);
        store(&dMinPow[j], select(le(m, p), up, down));
    });
}

void noise_follow_minimum(float *dInitMinPow, const float *dMinPow) {
    for_each_bin(kAecBins, [&](int j, auto lane) {
        using V = decltype(lane);
        const V init = load<V>(&dInitMinPow[j]);
        const V m = load<V>(&dMinPow[j]);
        const V rise = add(init, mul(sub(m, init), splat<V>(kNoiseStep)));
        store(&dInitMinPow[j], select(le(m, init), m, rise));
    });
}
