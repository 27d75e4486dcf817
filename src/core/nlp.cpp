// Nonlinear processing of one block: spectra, smoothing, divergence check, coherences, gains
// and their minimum tracking, overdrive, suppression, comfort noise and synthesis. All state
// lives in the core record and the instance; the per-block arrays are on the stack.
#include "core/nlp.h"

#include <cmath>
#include <cstdint>

#include "core/aec_state.h"
#include "core/window.h"
#include "dsp/comfort_noise.h"
#include "dsp/vector_math.h"
#include "instance.h"
#include "kernels/neon_approx.h"
#include "kernels/simd.h"
#include "kernels/suppress.h"

namespace {

constexpr int kPrefBandMax = 48;           // the sort serves at most 48 values
constexpr int kPrefBandQuantX128 = 96;     // 0.75 in units of 1/128
constexpr int kPrefBandQuantLowX128 = 64;  // 0.5 in units of 1/128
constexpr int kGroupedBins = 128;          // bins 0..127 go 4 at a time, bin 128 alone

}  // namespace

void Aec_NLP_process(aec_workingbuf_t *buf, float *nearend, float *nearend_ch2) {
    (void)nearend;
    (void)nearend_ch2;
    NonLinearProcessing(buf, nlp_near_end_pair(buf), 1);
}

void NonLinearProcessing(aec_workingbuf_t *buf, float *output, unsigned channel) {
    (void)channel;
    float cohde[kAecBins];
    float cohyd[kAecBins];

    nlp_analyse(buf);
    VelFuncAec_SmoothPSD(buf, 1);
    nlp_update_divergence(buf);
    nlp_coherence(buf, cohde, cohyd);
    const nlp_gain_t gain = nlp_gains(buf, cohde, cohyd);
    nlp_track_minimum(buf, gain.hNlFbLow);
    nlp_smooth_overdrive(buf);
    VelFuncAec_OverdriveAndSuppress(buf, gain.hNlFb, 1);
    if (buf->aec_data_property.comfort_noise_channel == 1) {
        ComfortNoise_Process(buf->efw, buf->aec_inst.noisePow, buf->hNl, kAecFft,
                             buf->aec_data_property.comfort_noise_min_pwr,
                             buf->aec_data_property.comfort_noise_mul_left_shift);
    }
    nlp_synthesis(buf, output);
}

nlp_pref_band_t nlp_pref_band(int mult) {
    return {kPrefBandMax / mult, 6 / mult};
}

float *nlp_near_end_pair(aec_workingbuf_t *buf) {
    float *p = buf->aec_inst.nearEndFrmPtr;
    return p != nullptr ? p : buf->AudioNearEnd[0];
}

void nlp_analyse(aec_workingbuf_t *buf) {
    aec_windowed_pair_spectrum(buf, nlp_near_end_pair(buf), buf->dfw);
    aec_windowed_pair_spectrum(buf, buf->aec_inst.eBuf, buf->efw);
    aec_windowed_pair_spectrum(buf, buf->aec_inst.yBuf, buf->yfw);
}

void nlp_update_divergence(aec_workingbuf_t *buf) {
    aec_t *aec = &buf->aec_inst;
    float sdSum = 0.0f;
    float seSum = 0.0f;
    for (int i = 0; i < kAecBins; ++i) {
        sdSum += aec->sd[i];
        seSum += aec->se[i];
    }
    // Enters as soon as the error outweighs the near end, leaves only with a 5% margin.
    if (aec->divergeState == 0 && seSum > sdSum) {
        aec->divergeState = 1;
    }
    if (aec->divergeState == 1 && sdSum > seSum * 1.05f) {
        aec->divergeState = 0;
    }
    if (aec->divergeState == 1) {
        // The block is built from the near end instead; the filter itself is not reset.
        memcpy_fast(buf->efw, buf->dfw, kAecSpectrum * sizeof(float));
    }
}

namespace {

// Coherence |cross|^2 / (pa * pb + 1e-10) of one bin; zero where the near-end power is 0.
inline float coherence1(const float *cross, float pa, float pb) {
    return (cross[0] * cross[0] + cross[1] * cross[1]) / (pa * pb + 1e-10f);
}

// The same for 4 bins, dividing through the kernels' approximate vector division (ARMv7 has
// no exact one); bin 128 keeps the exact scalar division, as in the spectral kernels.
inline float32x4_t coherence4(const float (*cross)[2], float32x4_t pa, float32x4_t pb,
                              uint32x4_t no_power) {
    const float32x4x2_t c = vld2q_f32(&cross[0][0]);
    const float32x4_t num = vaddq_f32(vmulq_f32(c.val[0], c.val[0]), vmulq_f32(c.val[1], c.val[1]));
    const float32x4_t q = vdivq_f32(num, vaddq_f32(vmulq_f32(pa, pb), vdupq_n_f32(1e-10f)));
    return vbslq_f32(no_power, vdupq_n_f32(0.0f), q);
}

}  // namespace

// A coherence is at most 1, but rounding in the smoothed spectra (and the approximate division)
// can put cohyd an ulp above. 1 - cohyd must not go negative: a negative gain becomes the
// tracked minimum, whose logarithm is NaN, and the NaN overdrive never leaves the instance.
void nlp_coherence(aec_workingbuf_t *buf, float *cohde, float *cohyd) {
    const aec_t *aec = &buf->aec_inst;
    const float32x4_t one = vdupq_n_f32(1.0f);
    for (int i = 0; i < kGroupedBins; i += 4) {
        const float32x4_t sd = vld1q_f32(&aec->sd[i]);
        const uint32x4_t no_power = vceqq_f32(sd, vdupq_n_f32(0.0f));
        vst1q_f32(&cohde[i], coherence4(&aec->sde[i], sd, vld1q_f32(&aec->se[i]), no_power));
        vst1q_f32(&cohyd[i],
                  vminq_f32(coherence4(&aec->syd[i], vld1q_f32(&aec->sy[i]), sd, no_power), one));
    }
    const int i = kGroupedBins;
    const bool no_power = aec->sd[i] == 0.0f;
    cohde[i] = no_power ? 0.0f : coherence1(aec->sde[i], aec->sd[i], aec->se[i]);
    cohyd[i] = no_power ? 0.0f : coherence1(aec->syd[i], aec->sy[i], aec->sd[i]);
    if (cohyd[i] > 1.0f) {
        cohyd[i] = 1.0f;
    }
}

namespace {

// Min of the two coherence gains per bin, and the quantiles of the preferred band.
nlp_gain_t echo_gains(aec_workingbuf_t *buf, nlp_pref_band_t band, const float *cohde,
                      const float *cohyd) {
    float *hNl = buf->hNl;
    for (int i = 0; i < kGroupedBins; i += 4) {
        const float32x4_t de = vld1q_f32(&cohde[i]);
        const float32x4_t xd = vsubq_f32(vdupq_n_f32(1.0f), vld1q_f32(&cohyd[i]));
        vst1q_f32(&hNl[i], vbslq_f32(vcltq_f32(de, xd), de, xd));
    }
    const int i = kGroupedBins;
    hNl[i] = cohde[i] < 1.0f - cohyd[i] ? cohde[i] : 1.0f - cohyd[i];
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

nlp_gain_t nlp_gains(aec_workingbuf_t *buf, const float *cohde, const float *cohyd) {
    aec_t *aec = &buf->aec_inst;
    const nlp_pref_band_t band = nlp_pref_band(aec->mult);

    // The preferred band is sampled at odd bins only; intended.
    float sumyd = 0.0f;
    float sumde = 0.0f;
    for (int n = 0; n < band.size; ++n) {
        sumyd += cohyd[nlp_pref_bin(band, n)];
        sumde += cohde[nlp_pref_bin(band, n)];
    }
    const float hNlXdAvg = 1.0f - sumyd / static_cast<float>(band.size);
    const float hNlDeAvg = sumde / static_cast<float>(band.size);

    if (hNlXdAvg < 0.75f && hNlXdAvg < aec->hNlXdAvgMin) {
        aec->hNlXdAvgMin = hNlXdAvg;
    }
    const bool stNearState = hNlDeAvg > 0.98f && hNlXdAvg > 0.9f;

    if (aec->hNlXdAvgMin == 1.0f) {
        // No echo seen yet: the overdrive stays at its floor.
        for (int b = 0; b < kAecBands; ++b) {
            aec->overDrive[b] = aec->minOverDrive[b];
        }
        if (stNearState) {
            memcpy_fast(buf->hNl, cohde, kAecBins * sizeof(float));
            return {hNlDeAvg, hNlDeAvg};
        }
        for (int i = 0; i < kGroupedBins; i += 4) {
            vst1q_f32(&buf->hNl[i], vsubq_f32(vdupq_n_f32(1.0f), vld1q_f32(&cohyd[i])));
        }
        buf->hNl[kGroupedBins] = 1.0f - cohyd[kGroupedBins];
        return {hNlXdAvg, hNlXdAvg};
    }
    if (stNearState) {
        memcpy_fast(buf->hNl, cohde, kAecBins * sizeof(float));
        return {hNlDeAvg, hNlDeAvg};
    }
    return echo_gains(buf, band, cohde, cohyd);
}

void nlp_track_minimum(aec_workingbuf_t *buf, float hNlFbLow) {
    aec_t *aec = &buf->aec_inst;
    const float mult = static_cast<float>(aec->mult);
    if (hNlFbLow < 0.6f && hNlFbLow < aec->hNlFbLocalMin) {
        aec->hNlFbLocalMin = hNlFbLow;
        aec->hNlFbMin = hNlFbLow;
        aec->hNlNewMin = 1;
        aec->hNlMinCtr = 0;
    }
    // The two minima creep back towards 1 at different rates on purpose.
    const float local = aec->hNlFbLocalMin + 0.0008f / mult;
    aec->hNlFbLocalMin = local < 1.0f ? local : 1.0f;
    const float xd = aec->hNlXdAvgMin + 0.0004f / mult;
    aec->hNlXdAvgMin = xd < 1.0f ? xd : 1.0f;

    if (aec->hNlNewMin == 1) {
        // Wraps rather than leaving 16 bits (the reset below keeps it small in any case).
        aec->hNlMinCtr = aec->hNlMinCtr == UINT16_MAX ? 0 : aec->hNlMinCtr + 1;
    }
    if (aec->hNlMinCtr == 2) {
        // A new minimum is accepted two blocks after it was found.
        aec->hNlNewMin = 0;
        aec->hNlMinCtr = 0;
        const double lnMin = std::log(static_cast<double>(aec->hNlFbMin + 1e-10f)) + 1e-10;
        for (int b = 0; b < kAecBands; ++b) {
            const double q = aec->targetSupp[b] / lnMin;
            aec->overDrive[b] =
                q <= aec->minOverDrive[b] ? aec->minOverDrive[b] : static_cast<float>(q);
        }
    }
}

void nlp_smooth_overdrive(aec_workingbuf_t *buf) {
    aec_t *aec = &buf->aec_inst;
    const bool saturated = buf->aec_saturated_flag.nearend_saturated_ind == 1;
    for (int b = 0; b < kAecBands; ++b) {
        const float used = saturated ? aec->overDrive[b] * 4.0f : aec->overDrive[b];
        // Fast rise, slow fall.
        const float rate = aec->overDriveSm[b] <= used ? 0.1f : 0.01f;
        aec->overDriveSm[b] += (used - aec->overDriveSm[b]) * rate;
    }
}

void nlp_synthesis(aec_workingbuf_t *buf, float *output) {
    aec_t *aec = &buf->aec_inst;
    float *a = buf->fft_aec_buf;
    // Undo the conjugation the suppression kernel leaves on the spectrum.
    for (int i = 0; i <= kAecFft; i += 2) {
        a[i] = buf->efw[i];
        a[i + 1] = -buf->efw[i + 1];
    }
    VEL_rdft(&buf->FFT_workingBuff, kAecFft, -1, a, buf->fft_aec_ip, buf->fft_aec_wfft);
    aec_window_pair(a, a);
    for (int i = 0; i < kAecBlock; ++i) {
        output[i] = a[i] + aec->outBuf[i];
        aec->outBuf[i] = a[kAecBlock + i];
    }
    memcpy_fast(aec->eBuf, &aec->eBuf[kAecBlock], kAecBlock * sizeof(float));
}
