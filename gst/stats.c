/* Frame counts and the running ERLE. */
#include "stats.h"

#include <math.h>
#include <stdlib.h>

/* The library's own saturation test: a microphone sample beyond +-32700. */
#define SATURATION_LEVEL 32700
/* -50 dBFS as a mean power per sample. */
#define FAR_ACTIVE_POWER (32768.0 * 32768.0 * 1e-5)
#define SMOOTHING_SECONDS 1.0

static gdouble mean_power(const gint16 *x, guint n) {
    gdouble sum = 0.0;
    for (guint i = 0; i < n; ++i) {
        sum += (gdouble)x[i] * x[i];
    }
    return sum / n;
}

static gboolean saturated(const gint16 *x, guint n) {
    for (guint i = 0; i < n; ++i) {
        if (abs(x[i]) > SATURATION_LEVEL) {
            return TRUE;
        }
    }
    return FALSE;
}

void qenaec_stats_reset(QenAecStats *s, guint lag, gint rate, guint frame) {
    g_return_if_fail(lag <= 1);
    *s = (QenAecStats){.lag = lag, .smoothing = exp(-(gdouble)frame / (rate * SMOOTHING_SECONDS))};
}

static void smooth(QenAecStats *s, gdouble in_power, gdouble out_power) {
    const gdouble a = s->smoothing;
    s->in_power = a * s->in_power + (1.0 - a) * in_power;
    s->out_power = a * s->out_power + (1.0 - a) * out_power;
    s->weight = a * s->weight + (1.0 - a);
}

void qenaec_stats_add(QenAecStats *s, const gint16 *near_in, const gint16 *out, guint near_channels,
                      const gint16 *far, guint far_channels, guint frame,
                      gboolean reference_missing) {
    ++s->frames;
    s->saturated_frames += saturated(near_in, frame * near_channels);
    s->missing_reference_frames += reference_missing;

    gdouble in_power = mean_power(near_in, frame * near_channels);
    gboolean active = mean_power(far, frame * far_channels) >= FAR_ACTIVE_POWER;
    if (s->lag > 0) {
        /* This frame's output belongs to the input of the frame before. */
        const gboolean have_earlier = s->have_earlier;
        const gdouble earlier_power = s->earlier_power;
        const gboolean earlier_active = s->earlier_active;
        s->have_earlier = TRUE;
        s->earlier_power = in_power;
        s->earlier_active = active;
        if (!have_earlier) {
            return;
        }
        in_power = earlier_power;
        active = earlier_active;
    }
    if (active) {
        smooth(s, in_power, mean_power(out, frame * near_channels));
    }
}

gdouble qenaec_stats_erle(const QenAecStats *s) {
    if (s->weight <= 0.0) {
        return 0.0;
    }
    const gdouble floor = s->weight / 12.0;
    return 10.0 * log10((s->in_power + floor) / (s->out_power + floor));
}

GstStructure *qenaec_stats_structure(const QenAecStats *s) {
    return gst_structure_new("qenaec-stats", "erle", G_TYPE_DOUBLE, qenaec_stats_erle(s), "frames",
                             G_TYPE_UINT64, s->frames, "saturated-frames", G_TYPE_UINT64,
                             s->saturated_frames, "missing-reference-frames", G_TYPE_UINT64,
                             s->missing_reference_frames, NULL);
}
