/* What the element reports: frames processed, saturated microphone frames, frames whose
 * reference arrived late or not at all, and a running echo reduction (ERLE). ERLE is taken
 * over the frames where the loudspeaker plays (reference frame power at or above -50 dBFS):
 * 10 log10 of microphone power over output power, each with the rounding noise of 16-bit
 * samples (1/12) added so that silence gives a finite figure, both smoothed with a one-second
 * time constant. Input frame f is set against output frame f + lag, the frames the library's
 * output trails its input by. */
#pragma once

#include <gst/gst.h>

G_BEGIN_DECLS

typedef struct {
    guint64 frames;
    guint64 saturated_frames;
    guint64 missing_reference_frames;
    guint lag; /* 1 for both stages (overlap-add), 0 for the adaptive filter alone */
    gdouble smoothing;
    gdouble in_power, out_power, weight; /* smoothed over the frames where the far end plays */
    gboolean have_earlier;               /* with lag 1: the input frame awaiting its output */
    gdouble earlier_power;
    gboolean earlier_active;
} QenAecStats;

/* Starts counting afresh for frames of `frame` samples at `rate`; `lag` is 0 or 1. */
void qenaec_stats_reset(QenAecStats *s, guint lag, gint rate, guint frame);

/* One processed frame: near input and output have `near_channels`, the reference
 * `far_channels`, all `frame` samples long. */
void qenaec_stats_add(QenAecStats *s, const gint16 *near_in, const gint16 *out, guint near_channels,
                      const gint16 *far, guint far_channels, guint frame,
                      gboolean reference_missing);

gdouble qenaec_stats_erle(const QenAecStats *s);

/* The "qenaec-stats" structure of the element message. */
GstStructure *qenaec_stats_structure(const QenAecStats *s);

G_END_DECLS
