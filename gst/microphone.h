/* The microphone as the element takes it in: samples waiting to make up a frame, and the
 * timestamps they carry. Continuous timestamps are counted on from an anchor, so that frames
 * cut across buffers keep exact, gapless times; a buffer whose timestamp jumps (by more than
 * half a sample) or that says it is discontinuous becomes the new anchor. */
#pragma once

#include <gst/base/gstadapter.h>
#include <gst/gst.h>

G_BEGIN_DECLS

typedef struct {
    GstAdapter *adapter;
    gint rate;
    gint channels;
    guint64 pushed;          /* samples put in since the stream began */
    guint64 taken;           /* samples taken out */
    GstClockTime anchor_pts; /* timestamp of sample `anchor_sample`, or NONE */
    guint64 anchor_sample;
} QenAecMicrophone;

void qenaec_microphone_init(QenAecMicrophone *m);
void qenaec_microphone_free(QenAecMicrophone *m);
/* Starts a stream afresh: no samples, no timestamps. */
void qenaec_microphone_clear(QenAecMicrophone *m);
void qenaec_microphone_set_format(QenAecMicrophone *m, gint rate, gint channels);

/* Takes the buffer. */
void qenaec_microphone_push(QenAecMicrophone *m, GstBuffer *buffer);
guint qenaec_microphone_available(const QenAecMicrophone *m);
/* Timestamp of the sample `ahead` samples after the next to be taken; NONE before any. */
GstClockTime qenaec_microphone_pts(const QenAecMicrophone *m, guint ahead);
/* Copies the next `samples` samples (interleaved) without taking them. */
void qenaec_microphone_peek(const QenAecMicrophone *m, gint16 *out, guint samples);
void qenaec_microphone_take(QenAecMicrophone *m, guint samples);

G_END_DECLS
