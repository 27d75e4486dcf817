/* The reference store: a ring indexed by running-time position. */
#include "reference.h"

#include <string.h>

static guint slot(const QenAecReference *r, gint64 position) {
    const gint64 m = position % (gint64)r->capacity;
    return (guint)(m < 0 ? m + r->capacity : m);
}

void qenaec_reference_init(QenAecReference *r, guint capacity, guint channels) {
    r->samples = g_new0(gint16, (gsize)capacity * channels);
    r->tags = g_new(gint64, capacity);
    r->capacity = capacity;
    r->channels = channels;
    qenaec_reference_clear(r);
}

void qenaec_reference_free(QenAecReference *r) {
    g_clear_pointer(&r->samples, g_free);
    g_clear_pointer(&r->tags, g_free);
    r->capacity = 0;
}

void qenaec_reference_clear(QenAecReference *r) {
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
