// The steps of nonlinear processing on arrays: spectra, divergence, the gain rule over the
// preferred band, minimum tracking, overdrive smoothing and synthesis. The per-bin 4-lane
// loops are kernels (kernels/coherence.cpp, kernels/suppress.cpp); the documented entry points
// that feed these steps from the instance are in nlp_adapters.cpp.
#include "core/nlp.h"

#include <cmath>
#include <cstring>

#include "core/window.h"
#include "dims.h"
#include "kernels/coherence.h"
#include "kernels/vector.h"

namespace {

constexpr int kPrefBandMax = 48;           // the sort serves at most 48 values
constexpr int kPrefBandQuantX128 = 96;     // 0.75 in units of 1/128
constexpr int kPrefBandQuantLowX128 = 64;  // 0.5 in units of 1/128

}  // namespace

nlp_pref_band_t nlp_pref_band(int mult) {
    return {kPrefBandMax / mult, 6 / mult};
}

void nlp_analyse(const fft_ctx_t &fft, float *scratch, const float *near, const float *eBuf,
                 const float *yBuf, float *dfw, float *efw, float *yfw) {
    aec_windowed_pair_spectrum(fft, near, scratch, dfw);
    aec_windowed_pair_spectrum(fft, eBuf, scratch, efw);
    aec_windowed_pair_spectrum(fft, yBuf, scratch, yfw);
}

void nlp_update_divergence(const float *sd, const float *se, int16_t *divergeState,
                           const float *dfw, float *efw) {
    float sdSum = 0.0f;
    float seSum = 0.0f;
    for (int i = 0; i < kAecBins; ++i) {
        sdSum += sd[i];
        seSum += se[i];
    }
    // Enters as soon as the error outweighs the near end, leaves only with a 5% margin.
    if (*divergeState == 0 && seSum > sdSum) {
        *divergeState = 1;
    }
    if (*divergeState == 1 && sdSum > seSum * 1.05f) {
        *divergeState = 0;
    }
    if (*divergeState == 1) {
        // The block is built from the near end instead; the filter itself is not reset.
        memcpy_fast(efw, dfw, kAecSpectrum * sizeof(float));
    }
}

namespace {

// The quantiles of the preferred band of the gains.
nlp_gain_t pref_band_quantiles(const float *hNl, nlp_pref_band_t band) {
    // Zero-initialised in full: the sort's upward scan may read up to index 47.
    float hNlPref[kPrefBandMax] = {};
    for (int n = 0; n < band.size; ++n) {
        hNlPref[n] = hNl[nlp_pref_bin(band, n)];
    }
    VelFuncAec_quickSort(hNlPref, 0, band.size - 1);
    return {hNlPref[((band.size - 1) * kPrefBandQuantX128) >> 7],
            hNlPref[((band.size - 1) * kPrefBandQuantLowX128) >> 7]};
}

}  // namespace

nlp_gain_t nlp_gains(const float *cohde, const float *cohyd, int mult, float *hNlXdAvgMin,
                     const float *minOverDrive, float *overDrive, float *hNl) {
    const nlp_pref_band_t band = nlp_pref_band(mult);

    // The preferred band is sampled at odd bins only; intended.
    float sumyd = 0.0f;
    float sumde = 0.0f;
    for (int n = 0; n < band.size; ++n) {
        sumyd += cohyd[nlp_pref_bin(band, n)];
        sumde += cohde[nlp_pref_bin(band, n)];
    }
    const float hNlXdAvg = 1.0f - sumyd / static_cast<float>(band.size);
    const float hNlDeAvg = sumde / static_cast<float>(band.size);

    if (hNlXdAvg < 0.75f && hNlXdAvg < *hNlXdAvgMin) {
        *hNlXdAvgMin = hNlXdAvg;
    }
    const bool stNearState = hNlDeAvg > 0.98f && hNlXdAvg > 0.9f;

    if (*hNlXdAvgMin == 1.0f) {
        // No echo seen yet: the overdrive stays at its floor.
        for (int b = 0; b < kAecBands; ++b) {
            overDrive[b] = minOverDrive[b];
        }
        if (stNearState) {
            memcpy_fast(hNl, cohde, kAecBins * sizeof(float));
            return {hNlDeAvg, hNlDeAvg};
        }
        gains_from_echo_coherence(cohyd, hNl);
        return {hNlXdAvg, hNlXdAvg};
    }
    if (stNearState) {
        memcpy_fast(hNl, cohde, kAecBins * sizeof(float));
        return {hNlDeAvg, hNlDeAvg};
    }
    gains_min_of_coherences(cohde, cohyd, hNl);
    return pref_band_quantiles(hNl, band);
}

void nlp_track_minimum(float hNlFbLow, int mult, nlp_minima_t minima, const float *targetSupp,
                       const float *minOverDrive, float *overDrive) {
    const float m = static_cast<float>(mult);
    if (hNlFbLow < 0.6f && hNlFbLow < *minima.hNlFbLocalMin) {
        *minima.hNlFbLocalMin = hNlFbLow;
        *minima.hNlFbMin = hNlFbLow;
        *minima.hNlNewMin = 1;
        *minima.hNlMinCtr = 0;
    }
    // The two minima creep back towards 1 at different rates on purpose.
    const float local = *minima.hNlFbLocalMin + 0.0008f / m;
    *minima.hNlFbLocalMin = local < 1.0f ? local : 1.0f;
    const float xd = *minima.hNlXdAvgMin + 0.0004f / m;
    *minima.hNlXdAvgMin = xd < 1.0f ? xd : 1.0f;

    if (*minima.hNlNewMin == 1) {
        // Wraps rather than leaving 16 bits (the reset below keeps it small in any case).
        *minima.hNlMinCtr = *minima.hNlMinCtr == UINT16_MAX ? 0 : *minima.hNlMinCtr + 1;
    }
    if (*minima.hNlMinCtr == 2) {
        // A new minimum is accepted two blocks after it was found.
        *minima.hNlNewMin = 0;
        *minima.hNlMinCtr = 0;
        const double lnMin = std::log(static_cast<double>(*minima.hNlFbMin + 1e-10f)) + 1e-10;
        for (int b = 0; b < kAecBands; ++b) {
            const double q = targetSupp[b] / lnMin;
            overDrive[b] = q <= minOverDrive[b] ? minOverDrive[b] : static_cast<float>(q);
        }
    }
}

void nlp_smooth_overdrive(const float *overDrive, bool saturated, float *overDriveSm) {
    for (int b = 0; b < kAecBands; ++b) {
        const float used = saturated ? overDrive[b] * 4.0f : overDrive[b];
        // Fast rise, slow fall.
        const float rate = overDriveSm[b] <= used ? 0.1f : 0.01f;
        overDriveSm[b] += (used - overDriveSm[b]) * rate;
    }
}

void nlp_synthesis(const fft_ctx_t &fft, float *scratch, const float *efw, float *outBuf,
                   float *output) {
    float *spectrum = fft_spectrum_stage(fft);
    // Undo the conjugation the suppression kernel leaves on the spectrum.
    vec_conjugate(efw, spectrum, kAecBins);
    float *a = scratch;
    fft_inverse_to(fft, spectrum, a);
    aec_window_pair(a, a);
    vec_add(a, outBuf, output, kAecBlock);
    copy_floats(outBuf, &a[kAecBlock], kAecBlock);
}
