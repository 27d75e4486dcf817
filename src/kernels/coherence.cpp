// Coherences and the per-bin gains of the nonlinear stage. Each formula is written once over
// the lane type: bins 0..127 four at a time, dividing through the approximate vector division
// (ARMv7 has no exact one), bin 128 alone with the exact scalar division.
#include "kernels/coherence.h"

#include "dims.h"
#include "kernels/lanes.h"

using namespace lanes;

namespace {

// |cross|^2 / (pa * pb + 1e-10), or 0 where the near-end power is 0.
template <typename V, typename Mask>
inline V coherence_of(complex_t<V> cross, V pa, V pb, Mask no_power) {
    const V num = add(mul(cross.re, cross.re), mul(cross.im, cross.im));
    const V q = divide(num, add(mul(pa, pb), splat<V>(1e-10f)));
    return select(no_power, splat<V>(0.0f), q);
}

}  // namespace

void coherence(const psd_t &psd, float *cohde, float *cohyd) {
    for_each_bin(kAecBins, [&](int i, auto lane) {
        using V = decltype(lane);
        const V sd = load<V>(&psd.sd[i]);
        const auto no_power = eq(sd, splat<V>(0.0f));
        const complex_t<V> sde = load_complex<V>(&psd.sde[i][0]);
        const complex_t<V> syd = load_complex<V>(&psd.syd[i][0]);
        store(&cohde[i], coherence_of(sde, sd, load<V>(&psd.se[i]), no_power));
        store(&cohyd[i], at_most(coherence_of(syd, load<V>(&psd.sy[i]), sd, no_power), 1.0f));
    });
}

void gains_min_of_coherences(const float *cohde, const float *cohyd, float *hNl) {
    for_each_bin(kAecBins, [&](int i, auto lane) {
        using V = decltype(lane);
        const V de = load<V>(&cohde[i]);
        const V xd = sub(splat<V>(1.0f), load<V>(&cohyd[i]));
        store(&hNl[i], select(lt(de, xd), de, xd));
    });
}

void gains_from_echo_coherence(const float *cohyd, float *hNl) {
    for_each_bin(kAecBins, [&](int i, auto lane) {
        using V = decltype(lane);
        store(&hNl[i], sub(splat<V>(1.0f), load<V>(&cohyd[i])));
    });
}
