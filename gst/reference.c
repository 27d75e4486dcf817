/* The reference store: a ring indexed by running-time position. */
#include "reference.h"

#include <string.h>

static guint slot(const QenAecReference *r, gint64 position) {
    const gint64 m = position % (gint64)r->capacity;
    return (guint)(m < 0 ? m + r->capacity : m);
}

static void release_pending(QenAecReference *r) {
    if (r->pending != NULL) {
        gst_buffer_unmap(r->pending, &r->pending_map);
        gst_clear_buffer(&r->pending);
    }
}

void qenaec_reference_init(QenAecReference *r, guint capacity, guint channels) {
    *r = (QenAecReference){.samples = g_new0(gint16, (gsize)capacity * channels),
                           .tags = g_new(gint64, capacity),
                           .capacity = capacity,
                           .channels = channels};
    qenaec_reference_clear(r);
}

void qenaec_reference_free(QenAecReference *r) {
    release_pending(r);
    g_clear_pointer(&r->samples, g_free);
    g_clear_pointer(&r->tags, g_free);
    r->capacity = 0;
}

void qenaec_reference_clear(QenAecReference *r) {
    release_pending(r);
    for (guint i = 0; i < r->capacity; ++i) {
        r->tags[i] = G_MININT64;
    }
    r->next_read = 0;
    r->delivered = 0;
}

void qenaec_reference_expect(QenAecReference *r, gint64 position) {
    r->next_read = position;
}

void qenaec_reference_reach(QenAecReference *r, gint64 position) {
    r->delivered = MAX(r->delivered, position);
}

guint qenaec_reference_write(QenAecReference *r, gint64 position, const gint16 *samples,
                             guint count) {
    guint taken = 0;
    for (; taken < count; ++taken) {
        const gint64 p = position + taken;
        if (p >= r->next_read + (gint64)r->capacity) {
            break;
        }
        if (p >= r->next_read) {
            const guint s = slot(r, p);
            memcpy(r->samples + (gsize)s * r->channels, samples + (gsize)taken * r->channels,
                   r->channels * sizeof(gint16));
            r->tags[s] = p;
        }
    }
    qenaec_reference_reach(r, position + taken);
    return taken;
}

gboolean qenaec_reference_has_pending(const QenAecReference *r) {
    return r->pending != NULL;
}

gboolean qenaec_reference_resume(QenAecReference *r) {
    const guint count = (guint)(r->pending_map.size / (r->channels * sizeof(gint16)));
    const gint16 *samples = (const gint16 *)r->pending_map.data;
    r->pending_done += qenaec_reference_write(r, r->pending_position + r->pending_done,
                                              samples + (gsize)r->pending_done * r->channels,
                                              count - r->pending_done);
    if (r->pending_done < count) {
        return FALSE;
    }
    release_pending(r);
    return TRUE;
}

void qenaec_reference_offer(QenAecReference *r, gint64 position, GstBuffer *buffer) {
    g_return_if_fail(r->pending == NULL);
    qenaec_reference_reach(r, position);
    if (!gst_buffer_map(buffer, &r->pending_map, GST_MAP_READ)) {
        gst_buffer_unref(buffer); /* unreadable: a gap */
        return;
    }
    r->pending = buffer;
    r->pending_done = 0;
    r->pending_position = position;
    qenaec_reference_resume(r);
}

guint qenaec_reference_read(QenAecReference *r, gint64 position, guint count, gint16 *out) {
    guint absent = 0;
    for (guint i = 0; i < count; ++i) {
        const gint64 p = position + i;
        const guint s = slot(r, p);
        gint16 *o = out + (gsize)i * r->channels;
        if (r->tags[s] == p) {
            memcpy(o, r->samples + (gsize)s * r->channels, r->channels * sizeof(gint16));
        } else {
            memset(o, 0, r->channels * sizeof(gint16));
            absent += p >= 0;
        }
    }
    r->next_read = position + count;
    return absent;
}
