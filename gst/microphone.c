/* The microphone's samples and timestamps. */
#include "microphone.h"

void qenaec_microphone_init(QenAecMicrophone *m) {
    *m = (QenAecMicrophone){.adapter = gst_adapter_new(), .anchor_pts = GST_CLOCK_TIME_NONE};
}

void qenaec_microphone_free(QenAecMicrophone *m) {
    g_clear_object(&m->adapter);
}

void qenaec_microphone_clear(QenAecMicrophone *m) {
    gst_adapter_clear(m->adapter);
    m->pushed = m->taken = 0;
    m->anchor_pts = GST_CLOCK_TIME_NONE;
    m->anchor_sample = 0;
}

void qenaec_microphone_set_format(QenAecMicrophone *m, gint rate, gint channels) {
    m->rate = rate;
    m->channels = channels;
}

static gsize bytes(const QenAecMicrophone *m, guint64 samples) {
    return (gsize)samples * m->channels * sizeof(gint16);
}

static GstClockTime pts_of(const QenAecMicrophone *m, guint64 sample) {
    if (!GST_CLOCK_TIME_IS_VALID(m->anchor_pts)) {
        return GST_CLOCK_TIME_NONE;
    }
    if (sample >= m->anchor_sample) {
        return m->anchor_pts +
               gst_util_uint64_scale_int(sample - m->anchor_sample, GST_SECOND, m->rate);
    }
    const GstClockTime back =
        gst_util_uint64_scale_int(m->anchor_sample - sample, GST_SECOND, m->rate);
    return m->anchor_pts > back ? m->anchor_pts - back : 0;
}

void qenaec_microphone_push(QenAecMicrophone *m, GstBuffer *buffer) {
    const GstClockTime pts = GST_BUFFER_PTS(buffer);
    if (GST_CLOCK_TIME_IS_VALID(pts)) {
        const GstClockTime expected = pts_of(m, m->pushed);
        const GstClockTime half_sample = GST_SECOND / (2 * m->rate);
        if (!GST_CLOCK_TIME_IS_VALID(expected) || GST_BUFFER_IS_DISCONT(buffer) ||
            (pts > expected ? pts - expected : expected - pts) > half_sample) {
            m->anchor_pts = pts;
            m->anchor_sample = m->pushed;
        }
    }
    m->pushed += gst_buffer_get_size(buffer) / bytes(m, 1);
    gst_adapter_push(m->adapter, buffer);
}

guint qenaec_microphone_available(const QenAecMicrophone *m) {
    return (guint)(gst_adapter_available(m->adapter) / bytes(m, 1));
}

GstClockTime qenaec_microphone_pts(const QenAecMicrophone *m, guint ahead) {
    return pts_of(m, m->taken + ahead);
}

void qenaec_microphone_peek(const QenAecMicrophone *m, gint16 *out, guint samples) {
    gst_adapter_copy(m->adapter, out, 0, bytes(m, samples));
}

void qenaec_microphone_take(QenAecMicrophone *m, guint samples) {
    gst_adapter_flush(m->adapter, bytes(m, samples));
    m->taken += samples;
}
