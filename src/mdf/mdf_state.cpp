// MDF state set-up, divergence reset and control, on the state record and the borrowed arrays
// they clear (the weights W, and for the reset the error spectrum E); the warning printers.
#include <cmath>
#include <cstdio>
#include <cstring>

#include "mdf/mdf.h"

namespace {

// The clears cover N * M (and N * (M + 1)) floats, not the full arrays of 258-float spectra:
// the last 16 (18) floats keep whatever they held.
constexpr int kWeightsCleared = kAecFft * kAecPartitions;
constexpr int kRingCleared = kAecFft * (kAecPartitions + 1);

float notch_radius_for(int rate) {
    if (rate < 12000) {
        return 0.9f;
    }
    if (rate < 24000) {
        return 0.982f;
    }
    return 0.992f;
}

void set_rate_values(MdfEchoState *st, int rate) {
    const float r = static_cast<float>(rate);
    st->spec_average = kAecBlock / r;
    st->beta0 = kAecFft / r;
    st->beta_max = (kAecBlock / 2) / r;
}

}  // namespace

void mdf_warning(const char *str) {
    fprintf(stderr, "warning: %s\n", str);
}

void mdf_warning_int(const char *str, int val) {
    fprintf(stderr, "warning: %s %d\n", str, val);
}

void mdf_state_setup(MdfEchoState *st, mdf_word32_t *W, int rate) {
    memset(st, 0, sizeof *st);
    st->cancel_count = 0;
    st->sum_adapt = 0;
    st->saturated = 0;
    st->screwed_up = 0;
    set_rate_values(st, rate);
    st->leak_estimate = 0;
    for (int i = 0; i < kAecFft; ++i) {
        st->window[i] = static_cast<float>(0.5 - 0.5 * cos(2.0 * M_PI * i / kAecFft));
    }
    for (int i = 0; i < kAecBins; ++i) {
        st->power_1[i] = 1.0f;
    }
    memset(W, 0, sizeof(float) * kWeightsCleared);

    const float decay = static_cast<float>(exp(-static_cast<double>(2.4f / kAecPartitions)));
    st->prop[0] = 0.7f;
    float sum = st->prop[0];
    for (int i = 1; i < kAecPartitions; ++i) {
        st->prop[i] = st->prop[i - 1] * decay;
        sum += st->prop[i];
    }
    for (int i = kAecPartitions - 1; i >= 0; --i) {
        st->prop[i] = 0.8f * st->prop[i] / sum;
    }

    st->memE = st->memD = st->memX = 0;
    st->preemph = 0.9f;
    st->notch_radius = notch_radius_for(rate);
    st->notch_mem[0] = st->notch_mem[1] = 0;
    st->adapted = 0;
    st->Pyy = st->Pey = 1.0f;
    st->Davg1 = st->Davg2 = 0;
    st->Dvar1 = st->Dvar2 = 0;
}

void mdf_state_clear(MdfEchoState *st, mdf_word32_t *W, float *E) {
    st->cancel_count = 0;
    st->screwed_up = 0;
    memset(W, 0, sizeof(float) * kWeightsCleared);
    memset(st->foreground, 0, sizeof(float) * kWeightsCleared);
    memset(st->X, 0, sizeof(float) * kRingCleared);
    for (int i = 0; i < kAecBins; ++i) {
        st->power[i] = 0;
        st->power_1[i] = 1.0f;
        st->Eh[i] = 0;
        st->Yh[i] = 0;
    }
    memset(st->last_y, 0, sizeof(float) * kAecBlock);
    for (int i = 0; i < kAecFft; ++i) {
        E[i] = 0;
        st->x[i] = 0;
    }
    st->notch_mem[0] = st->notch_mem[1] = 0;
    st->memE = st->memD = st->memX = 0;
    st->saturated = 0;
    st->adapted = 0;
    st->sum_adapt = 0;
    st->Pyy = st->Pey = 1.0f;
    st->Davg1 = st->Davg2 = 0;
    st->Dvar1 = st->Dvar2 = 0;
}

int mdf_control(MdfEchoState *st, int *sampFreq, int request, int *value) {
    switch (request) {
        case 3:  // get frame size
            *value = kAecBlock;
            return 0;
        case 24: {  // set sampling rate
            const int rate = *value;
            *sampFreq = rate;
            set_rate_values(st, rate);
            st->notch_radius = notch_radius_for(rate);
            return 0;
        }
        case 25:  // get sampling rate
            *value = *sampFreq;
            return 0;
        default:
            mdf_warning_int("Unknown mdf_echo_ctl request: ", request);
            return -1;
    }
}
