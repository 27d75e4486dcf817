/* The loudspeaker reference, kept by position: sample n of the running-time axis (running
 * time x rate) lives in slot n mod capacity, tagged with n. A frame reads the positions it
 * needs; a position never written, or since overwritten, reads as silence. The store holds
 * the window [next_read, next_read + capacity): writes below it come too late and are
 * dropped, writes beyond it wait (a buffer offered keeps its rest until there is room). */
#pragma once

#include <gst/gst.h>

G_BEGIN_DECLS

typedef struct {
    gint16 *samples; /* capacity x channels, interleaved */
    gint64 *tags;    /* position held by each slot, or G_MININT64 */
    guint capacity;
    guint channels;
    gint64 next_read;   /* lowest position still to be read */
    gint64 delivered;   /* the stream has delivered (or skipped) every position before this;
                           running time starts at 0, so nothing before 0 is ever to come */
    GstBuffer *pending; /* the buffer offered last, while part of it waits for room */
    GstMapInfo pending_map;
    guint pending_done;
    gint64 pending_position;
} QenAecReference;

void qenaec_reference_init(QenAecReference *r, guint capacity, guint channels);
void qenaec_reference_free(QenAecReference *r);
/* Forgets every sample and the pending buffer (flush, new stream). */
void qenaec_reference_clear(QenAecReference *r);

/* The next frame reads from `position`: positions before it may go. */
void qenaec_reference_expect(QenAecReference *r, gint64 position);

/* The stream has moved on to `position` (a buffer starts there). */
void qenaec_reference_reach(QenAecReference *r, gint64 position);

/* Stores `count` frames of samples starting at `position`; returns how many it took. */
guint qenaec_reference_write(QenAecReference *r, gint64 position, const gint16 *samples,
                             guint count);

/* Takes `buffer`, whose first sample belongs at `position`, and stores what fits; the rest
 * stays pending. Only when nothing is pending. */
void qenaec_reference_offer(QenAecReference *r, gint64 position, GstBuffer *buffer);
gboolean qenaec_reference_has_pending(const QenAecReference *r);
/* Stores more of the pending buffer; TRUE when none of it is left. */
gboolean qenaec_reference_resume(QenAecReference *r);

/* Fills `out` with positions [position, position + count), silence where absent, and
 * moves past them. Returns how many non-negative positions were absent. */
guint qenaec_reference_read(QenAecReference *r, gint64 position, guint count, gint16 *out);

G_END_DECLS
