// The per-frame step of the adaptive filter, on the state record and the arrays it borrows:
// pre-processing of both ends, the far-end spectrum ring, foreground and background outputs,
// the background update with its gradient constraint, the foreground/background decision, the
// divergence watch, and the leak estimate that sets the next frame's step sizes. Every helper
// takes the borrowed arrays it touches (W, E, Xf, e, y, Y of mdf_borrowed_t) one by one, and
// the transform where it runs one; mdf_echo_cancellation (mdf_adapters.cpp) hands them over.
#include <cmath>
#include <cstring>

#include "diag/log.h"
#include "dsp/vector_math.h"
#include "kernels/spectral.h"
#include "kernels/step_control.h"
#include "kernels/vector.h"
#include "mdf/mdf.h"

namespace {

// Energies of one frame (the state's Pey/Pyy are separate).
struct frame_sums_t {
    float Sxx = 0, Sff = 0, See = 0, Syy = 0, Sey = 0, Sdd = 0, Dbf = 0;
};

float dot(float *a, float *b) {
    float r = 0;
    ne10_InnerProduct(a, b, &r, kAecBlock);
    return r;
}

// Adds to a 16-bit counter; a carry past 65535 is reported (when errors are enabled) and wraps.
void add_to_counter(int dbg_level, uint16_t *counter, unsigned add, const char *text) {
    const unsigned sum = *counter + add;
    *counter = static_cast<uint16_t>(sum);
    if (sum > 0xFFFFu) {
        algo_log(dbg_level, ALGO_MSG_ERR, "%s", text);
    }
}

void advance_cancel_count(int dbg_level, MdfEchoState *st) {
    if (st->cancel_count < 7) {
        add_to_counter(dbg_level, &st->cancel_count, 1,
                       "[AEC] Fail! cancel_count counter overflow.\t\n");
    } else {
        st->cancel_count = 0;
    }
}

// DC notch and pre-emphasis of the near end into st->input, pre-emphasis of the far end into
// the upper half of st->x.
void preprocess(MdfEchoState *st, const float *in, const float *far_end) {
    filter_dc_notch16(in, st->notch_radius, st->input, kAecBlock, st->notch_mem, 1);
    vec_preemphasis(far_end, st->memX, st->preemph, &st->x[kAecBlock], kAecBlock);
    st->memX = far_end[kAecBlock - 1];
    const float memD = st->input[kAecBlock - 1];
    vec_preemphasis(st->input, st->memD, st->preemph, st->input, kAecBlock);
    st->memD = memD;
}

// Shifts the far-end spectrum ring and transforms the new pair into spectrum 0; returns Sxx.
float advance_far_end(const fft_ctx_t &fft, MdfEchoState *st) {
    // Only N floats of each spectrum move: the Nyquist pairs of spectra 1..8 keep their old
    // values. Intended; the ring has always been shifted this way.
    for (int j = kAecPartitions - 1; j >= 0; --j) {
        copy_floats(st->X + (j + 1) * kAecSpectrum, st->X + j * kAecSpectrum, kAecFft);
    }
    mdf_forward(fft, st->x, st->X);
    // last_y holds the far-end pair until adaptation has been reached and it is shifted.
    copy_floats(st->last_y, st->x, kAecFft);
    const float Sxx = dot(st->x + kAecBlock, st->x + kAecBlock);
    copy_floats(st->x, st->x + kAecBlock, kAecBlock);
    return Sxx;
}

// Foreground echo spectrum into Y, its error into e[0..127] (the echo estimate itself in
// e[128..255]); returns Sff.
float foreground_error(MdfEchoState *st, float *Y, float *e, const fft_ctx_t &fft) {
    VelFunc_SpectralMulAccum(st->X, st->foreground, Y, kAecSpectrum, kAecPartitions);
    mdf_inverse_upper(fft, Y, e);
    vec_sub(st->input, &e[kAecBlock], e, kAecBlock);
    return dot(e, e);
}

// One gradient step of the background filter W with the previous frame's error spectrum E,
// then the constraint of partition 0 and of the partition whose turn it is.
void adapt_background(MdfEchoState *st, float *W, const float *E, const fft_ctx_t &fft) {
    mdf_adjust_prop(W, kAecSpectrum, kAecPartitions, st->prop);
    if (st->saturated == 0) {
        for (int j = kAecPartitions - 1; j >= 0; --j) {
            // Each partition's update goes straight into it; PHI is not needed as a stage.
            WeightedSpectralMulConjAccum(st->power_1, st->prop[j], st->X + (j + 1) * kAecSpectrum,
                                         E, W + j * kAecSpectrum, kAecSpectrum);
        }
    } else {
        st->saturated--;
    }
    for (int j = 0; j < kAecPartitions; ++j) {
        if (!mdf_constrains_partition(st->cancel_count, j)) {
            continue;
        }
        mdf_constrain(fft, W + j * kAecSpectrum, st->wtmp);
    }
}

// Background echo spectrum of W into Y and its echo estimate into y, filter difference energy
// Dbf, background error into e[0..127] and its energy See. The echo estimate that leaves the
// step is taken here.
void background_error(const MdfEchoState *st, const float *W, float *Y, float *e, float *y,
                      const fft_ctx_t &fft, float *estimated_echo, frame_sums_t *s) {
    VelFunc_SpectralMulAccum(st->X, W, Y, kAecSpectrum, kAecPartitions);
    mdf_inverse_upper(fft, Y, y);
    vec_sub(&e[kAecBlock], &y[kAecBlock], e, kAecBlock);
    s->Dbf = 10 + dot(e, e);
    vec_sub(st->input, &y[kAecBlock], e, kAecBlock);
    copy_floats(estimated_echo, y + kAecBlock, kAecBlock);
    s->See = dot(e, e);
}

void clear_difference_stats(MdfEchoState *st) {
    st->Davg1 = st->Davg2 = 0;
    st->Dvar1 = st->Dvar2 = 0;
}

// Copies the background into the foreground when it has done better, or the foreground back
// into the background when that has gone clearly worse.
void choose_filter(MdfEchoState *st, float *W, float *e, float *y, frame_sums_t *s) {
    const float Sff = s->Sff;
    const float Dbf = s->Dbf;
    const float d = Sff - s->See;
    st->Davg1 = 0.6f * st->Davg1 + 0.4f * d;
    st->Davg2 = 0.85f * st->Davg2 + 0.15f * d;
    st->Dvar1 = 0.36f * st->Dvar1 + (0.4f * Sff) * (0.4f * Dbf);
    st->Dvar2 = 0.7225f * st->Dvar2 + (0.15f * Sff) * (0.15f * Dbf);

    const bool update = d * std::fabs(d) > Sff * Dbf ||
                        st->Davg1 * std::fabs(st->Davg1) > 0.5f * st->Dvar1 ||
                        st->Davg2 * std::fabs(st->Davg2) > 0.25f * st->Dvar2;
    if (update) {
        clear_difference_stats(st);
        copy_floats(st->foreground, W, kAecPartitioned);
        // Cross-fade from the old foreground's output into the new one's.
        vec_crossfade(&st->window[kAecBlock], &e[kAecBlock], st->window, &y[kAecBlock],
                      &e[kAecBlock], kAecBlock);
        return;
    }
    const bool reset = (-d) * std::fabs(d) > 4 * Sff * Dbf ||
                       (-st->Davg1) * std::fabs(st->Davg1) > 4 * st->Dvar1 ||
                       (-st->Davg2) * std::fabs(st->Davg2) > 4 * st->Dvar2;
    if (reset) {
        copy_floats(W, st->foreground, kAecPartitioned);
        copy_floats(y + kAecBlock, e + kAecBlock, kAecBlock);
        vec_sub(st->input, &y[kAecBlock], e, kAecBlock);
        s->See = Sff;
        clear_difference_stats(st);
    }
}

// Residual with de-emphasis, clamped to 16 bits; the clamped value feeds the de-emphasis.
void write_output(MdfEchoState *st, const float *e, float *out) {
    // The differences first, four at a time; the recursion then runs on them in `out`.
    vec_sub(st->input, &e[kAecBlock], out, kAecBlock);
    // A local memory: `out` could alias the state, so st->memE would be stored every sample.
    const float preemph = st->preemph;
    float memE = st->memE;
    for (int i = 0; i < kAecBlock; ++i) {
        float tmp_out = out[i] + preemph * memE;
        if (tmp_out > 32767) {
            tmp_out = 32767;
        } else if (tmp_out < -32768) {
            tmp_out = -32768;
        }
        out[i] = tmp_out;
        memE = tmp_out;
    }
    st->memE = memE;
}

// Moves the error into e[128..255] and measures Sey, Syy and Sdd.
void frame_energies(MdfEchoState *st, float *e, float *y, frame_sums_t *s) {
    copy_floats(e + kAecBlock, e, kAecBlock);
    zero_floats(e, kAecBlock);
    s->Sey = dot(e + kAecBlock, y + kAecBlock);
    s->Syy = dot(y + kAecBlock, y + kAecBlock);
    s->Sdd = dot(st->input, st->input);
}

// Counts divergence; true when the state has to be reset. Written so that NaN energies count
// as divergent (the comparisons are false for NaN).
bool diverged(int dbg_level, MdfEchoState *st, const frame_sums_t &s, float *out) {
    const float limit = 256e9f;
    if (!(s.Syy >= 0 && s.Sxx >= 0 && s.See >= 0) ||
        !(s.Sff < limit && s.Syy < limit && s.Sxx < limit)) {
        add_to_counter(dbg_level, &st->screwed_up, 50,
                       "[AEC] Fail! screwed_up counter overflow.\t\n");
        memset(out, 0, sizeof(float) * kAecBlock);
    } else if (s.Sff > s.Sdd + 2560000.0f) {
        add_to_counter(dbg_level, &st->screwed_up, 1,
                       "[AEC] Fail! screwed_up counter overflow.\t\n");
    } else {
        st->screwed_up = 0;
    }
    if (st->screwed_up > 65484) {
        st->screwed_up = 50;
    }
    return st->screwed_up >= 50;
}

// Spectra E and Y of this frame's error e and background echo y (its older half cleared), the
// far-end power Xf and its smoothed value.
void frame_spectra(MdfEchoState *st, const float *e, float *y, float *E, float *Y, float *Xf,
                   const fft_ctx_t &fft) {
    // mdf_forward's 1/256 is applied in the pass that takes each power spectrum.
    fft_forward_to(fft, e, E);
    zero_floats(y, kAecBlock);
    fft_forward_to(fft, y, Y);
    ScaledPowerSpectrum(E, 1.0f / kAecFft, st->Rf, kAecSpectrum);
    ScaledPowerSpectrum(Y, 1.0f / kAecFft, st->Yf, kAecSpectrum);
    VelFunAec_PowerSpectrum(st->X, Xf, kAecSpectrum);
    smooth_far_power(st->power, Xf, static_cast<float>(0.35 / kAecPartitions), kAecBins);
}

// Correlation of error and echo-estimate power fluctuations gives the leak of the echo into
// the residual.
void update_leak(MdfEchoState *st, const frame_sums_t &s) {
    // Summed from the top bin down, as the filter has always done.
    float Pey = 1.0f;
    float Pyy = 1.0f;
    leak_sums(st->Rf, st->Yf, st->spec_average, st->Eh, st->Yh, kAecBins, &Pey, &Pyy);
    Pyy = std::sqrt(Pyy);
    Pey = Pey / Pyy;

    float tmp32 = st->beta0 * s.Syy;
    if (tmp32 > st->beta_max * s.See) {
        tmp32 = st->beta_max * s.See;
    }
    const float alpha = tmp32 / s.See;
    st->Pey = (1 - alpha) * st->Pey + alpha * Pey;
    st->Pyy = (1 - alpha) * st->Pyy + alpha * Pyy;
    if (st->Pyy < 1) {
        st->Pyy = 1;
    }
    if (st->Pey < 0.005f * st->Pyy) {
        st->Pey = 0.005f * st->Pyy;
    }
    if (st->Pey > st->Pyy) {
        st->Pey = st->Pyy;
    }
    st->leak_estimate = st->Pey / st->Pyy;
    // Never reached by float values; kept as the historical bound.
    if (st->leak_estimate > 16383) {
        st->leak_estimate = 32767;
    }
}

float residual_to_error_ratio(const MdfEchoState *st, const frame_sums_t &s) {
    float RER = (0.0001f * s.Sxx + 3.0f * st->leak_estimate * s.Syy) / s.See;
    const float floor = s.Sey * s.Sey / (1 + s.See * s.Syy);
    if (RER < floor) {
        RER = floor;
    }
    if (RER > 0.5f) {
        RER = 0.5f;
    }
    return RER;
}

// Per-bin step sizes for the next frame: a fixed rate until the filter has adapted once,
// then a rate from the leak estimate and the residual-to-error ratio.
void update_step_sizes(MdfEchoState *st, const frame_sums_t &s, float RER) {
    if (!st->adapted && st->sum_adapt > 8 && st->leak_estimate * s.Syy > 0.03f * s.Syy) {
        st->adapted = 1;
    }
    if (st->adapted) {
        step_sizes_adapted(st->Rf, st->Yf, st->power, st->leak_estimate, RER, st->power_1,
                           kAecBins);
        return;
    }
    float adapt_rate = 0;
    if (s.Sxx > 256000.0f) {
        float tmp32 = 0.25f * s.Sxx;
        if (tmp32 > 0.25f * s.See) {
            tmp32 = 0.25f * s.See;
        }
        adapt_rate = tmp32 / s.See;
    }
    // Runs on a quiet far end too, so the step sizes drop to 0 there.
    step_sizes_fixed(st->power, adapt_rate, st->power_1, kAecBins);
    st->sum_adapt += adapt_rate;
}

}  // namespace

void mdf_step(MdfEchoState *st, const mdf_borrowed_t &b, const fft_ctx_t &fft, int dbg_level,
              const float *in, const float *far_end, float *out, float *estimated_echo) {
    frame_sums_t s;

    advance_cancel_count(dbg_level, st);
    preprocess(st, in, far_end);
    s.Sxx = advance_far_end(fft, st);
    s.Sff = foreground_error(st, b.Y, b.e, fft);
    adapt_background(st, b.W, b.E, fft);
    background_error(st, b.W, b.Y, b.e, b.y, fft, estimated_echo, &s);
    choose_filter(st, b.W, b.e, b.y, &s);
    write_output(st, b.e, out);
    frame_energies(st, b.e, b.y, &s);

    if (diverged(dbg_level, st, s, out)) {
        mdf_warning(
            "The echo canceller started acting funny and got slapped (reset). It swears it "
            "will behave now.");
        mdf_state_clear(st, b.W, b.E);
        return;
    }
    if (s.See < 25600.0f) {
        s.See = 25600.0f;
    }
    frame_spectra(st, b.e, b.y, b.E, b.Y, b.Xf, fft);
    update_leak(st, s);
    update_step_sizes(st, s, residual_to_error_ratio(st, s));

    if (st->adapted) {
        copy_floats(st->last_y, st->last_y + kAecBlock, kAecBlock);
        vec_sub(in, out, &st->last_y[kAecBlock], kAecBlock);
    }
}
