/* The `qenaec` element. It cuts 128-sample frames from the microphone, pairs each with the
 * reference samples of the same running time (less far-delay), runs the library on the pair
 * and pushes the frame with the microphone's timestamps. The microphone is never held back
 * beyond the pipeline's latency nor dropped: in a live pipeline a reference that has not
 * arrived when its frame is due is silence for that frame, and the frame is counted.
 * Owns one library instance in a block it allocates, initialised again whenever the
 * stream's layout (rate, channels) changes. */
#include "gstqenaec.h"

#include <math.h>
#include <string.h>

#include "messages.h"
#include "microphone.h"
#include "qen_aec.h"
#include "reference.h"
#include "stats.h"
#include "tuning.h"

#define GST_CAT_DEFAULT qenaec_debug

enum { FRAME = 128, MAX_CHANNELS = 2 };

#define SUPPORTED_CAPS                                                \
    "audio/x-raw, format=(string)S16LE, layout=(string)interleaved, " \
    "rate=(int){ 8000, 16000, 32000, 48000 }, channels=(int)[ 1, 2 ]"
#define SUPPORTED_TEXT                                                                    \
    "qenaec takes S16LE interleaved audio at 8000, 16000, 32000 or 48000 Hz with 1 or 2 " \
    "channels, near_sink and far_sink at one rate; convert with audioconvert ! audioresample"

static GstStaticPadTemplate near_template = GST_STATIC_PAD_TEMPLATE(
    "near_sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(SUPPORTED_CAPS));
static GstStaticPadTemplate far_template = GST_STATIC_PAD_TEMPLATE(
    "far_sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(SUPPORTED_CAPS));
static GstStaticPadTemplate src_template =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(SUPPORTED_CAPS));

/* Init, Reset and Free of different instances must not overlap. */
static GMutex lifecycle_lock;

typedef enum { GST_QENAEC_MODE_FULL, GST_QENAEC_MODE_LINEAR } GstQenAecMode;

enum { NEAR, FAR };

typedef struct {
    gint rate; /* 0 until the microphone's format is known */
    gint near_channels;
    gint far_channels;
} Layout;

/* Where a microphone frame sits: its timestamp and its place on the running-time axis. */
typedef struct {
    GstClockTime pts;
    GstClockTime running_time;
    gint64 position; /* running time in samples */
} FramePlace;

struct _GstQenAec {
    GstAggregator parent;
    GstAggregatorPad *near_pad;
    GstAggregatorPad *far_pad;

    /* Properties, under the object lock. */
    GstQenAecMode mode;
    gboolean comfort_noise;
    gchar *intensity;
    gchar *edges;
    guint ratio;
    gboolean ratio_set;
    gboolean tuning_changed;
    gdouble far_delay_ms;
    gchar *config;
    guint stats_interval_ms;
    gdouble erle;
    gint offered_rate[2]; /* rates accepted on near_sink and far_sink, 0 before any */

    /* The band table and ratio of `config`, read at start. */
    gboolean have_config;
    QenAecTuning config_tuning;

    /* Streaming state, used by the aggregator's source thread only. */
    Layout layout;
    gint far_caps_channels; /* 0 until the reference's format is known */
    gchar *block;
    AEC_HANDLE aec;
    AudioAecConfig defaults; /* what Init installed */
    GstQenAecMode run_mode;
    gint64 far_delay; /* samples */
    QenAecMicrophone mic;
    QenAecReference reference;
    QenAecStats stats;
    guint64 frames_since_post;
    gint16 near_frame[FRAME * MAX_CHANNELS];
    gint16 out_frame[FRAME * MAX_CHANNELS];
    gint16 far_frame[FRAME * MAX_CHANNELS];
};

G_DEFINE_TYPE(GstQenAec, gst_qenaec, GST_TYPE_AGGREGATOR)

enum {
    PROP_0,
    PROP_MODE,
    PROP_COMFORT_NOISE,
    PROP_INTENSITY,
    PROP_EDGES,
    PROP_RATIO,
    PROP_FAR_DELAY,
    PROP_CONFIG,
    PROP_STATS_INTERVAL,
    PROP_ERLE,
};

#define DEFAULT_RATIO 1
#define DEFAULT_STATS_INTERVAL_MS 1000
#define MAX_FAR_DELAY_MS 1000.0

static GType gst_qenaec_mode_get_type(void) {
    static GType type = 0;
    static const GEnumValue values[] = {
        {GST_QENAEC_MODE_FULL, "Adaptive filter and nonlinear suppression (QenAec_Run)", "full"},
        {GST_QENAEC_MODE_LINEAR, "Adaptive filter only (QenAec_ADF_Run)", "linear"},
        {0, NULL, NULL},
    };
    if (g_once_init_enter(&type)) {
        g_once_init_leave(&type, g_enum_register_static("GstQenAecMode", values));
    }
    return type;
}

/* ---- Formats ------------------------------------------------------------------------- */

static gboolean is_supported(GstCaps *caps, gint *rate, gint *channels) {
    static GstStaticCaps supported = GST_STATIC_CAPS(SUPPORTED_CAPS);
    GstCaps *all = gst_static_caps_get(&supported);
    const gboolean ok = gst_caps_is_fixed(caps) && gst_caps_is_subset(caps, all);
    gst_caps_unref(all);
    if (ok) {
        const GstStructure *s = gst_caps_get_structure(caps, 0);
        gst_structure_get_int(s, "rate", rate);
        gst_structure_get_int(s, "channels", channels);
    }
    return ok;
}

/* Checked as the caps arrive, before they queue up behind earlier buffers, so that a
 * refusal reaches upstream at once and names what would be taken. */
static gboolean accept_format(GstQenAec *self, GstAggregatorPad *pad, GstCaps *caps) {
    const int side = pad == self->near_pad ? NEAR : FAR;
    gint rate = 0, channels = 0;
    const gboolean supported = is_supported(caps, &rate, &channels);
    GST_OBJECT_LOCK(self);
    const gint other_rate = self->offered_rate[1 - side];
    const gboolean ok = supported && (other_rate == 0 || other_rate == rate);
    if (ok) {
        self->offered_rate[side] = rate;
    }
    GST_OBJECT_UNLOCK(self);
    if (ok) {
        return TRUE;
    }
    gchar *offered = gst_caps_to_string(caps);
    if (supported) {
        GST_ELEMENT_ERROR(self, CORE, NEGOTIATION, ("%s", SUPPORTED_TEXT),
                          ("%s is offered %d Hz but %s runs at %d Hz", GST_PAD_NAME(pad), rate,
                           side == NEAR ? "far_sink" : "near_sink", other_rate));
    } else {
        GST_ELEMENT_ERROR(self, CORE, NEGOTIATION, ("%s", SUPPORTED_TEXT),
                          ("%s is offered %s", GST_PAD_NAME(pad), offered));
    }
    g_free(offered);
    return FALSE;
}

/* The formats a sink takes: the supported ones, at the other sink's rate once it has one. */
static GstCaps *sink_caps(GstQenAec *self, GstAggregatorPad *pad) {
    const int side = pad == self->near_pad ? NEAR : FAR;
    GstCaps *caps = gst_pad_get_pad_template_caps(GST_PAD(pad));
    GST_OBJECT_LOCK(self);
    const gint other_rate = self->offered_rate[1 - side];
    GST_OBJECT_UNLOCK(self);
    if (other_rate != 0) {
        caps = gst_caps_make_writable(caps);
        gst_caps_set_simple(caps, "rate", G_TYPE_INT, other_rate, NULL);
    }
    return caps;
}

/* ---- The library instance ------------------------------------------------------------ */

static void free_instance(GstQenAec *self) {
    if (self->aec != NULL) {
        GObject *previous = qenaec_messages_enter(G_OBJECT(self));
        g_mutex_lock(&lifecycle_lock);
        QenAec_Free(self->aec);
        g_mutex_unlock(&lifecycle_lock);
        qenaec_messages_leave(previous);
        self->aec = NULL;
    }
}

/* The tuning as the config file and the properties give it, the properties first;
 * FALSE with `why` set when a list does not parse. */
static gboolean read_tuning(GstQenAec *self, QenAecTuning *t, gchar **why) {
    *why = NULL;
    GST_OBJECT_LOCK(self);
    if (self->have_config) {
        *t = self->config_tuning;
    } else {
        *t = (QenAecTuning){.ratio = DEFAULT_RATIO};
    }
    t->comfort_noise = self->comfort_noise;
    if (self->ratio_set) {
        t->ratio = self->ratio;
    }
    *why = qenaec_tuning_take_list("intensity", self->intensity, t->intensity, QENAEC_BANDS,
                                   &t->has_intensity);
    if (*why == NULL) {
        *why = qenaec_tuning_take_list("edges", self->edges, t->edges, QENAEC_EDGES, &t->has_edges);
    }
    self->tuning_changed = FALSE;
    GST_OBJECT_UNLOCK(self);
    return *why == NULL;
}

static gboolean install_tuning(GstQenAec *self, gboolean fresh) {
    QenAecTuning t;
    gchar *why = NULL;
    if (read_tuning(self, &t, &why)) {
        GObject *previous = qenaec_messages_enter(G_OBJECT(self));
        why = qenaec_tuning_apply(self->aec, &self->defaults, &t, fresh);
        qenaec_messages_leave(previous);
    }
    if (why != NULL) {
        GST_ELEMENT_ERROR(self, LIBRARY, SETTINGS, ("%s", why), (NULL));
        g_free(why);
        return FALSE;
    }
    return TRUE;
}

static GstClockTime frame_duration(gint rate) {
    return gst_util_uint64_scale_int(FRAME, GST_SECOND, rate);
}

static gboolean start_instance(GstQenAec *self, const Layout *layout) {
    free_instance(self);
    AudioAecInit init = {FRAME, (uint32_t)layout->near_channels, (uint32_t)layout->far_channels,
                         (QEN_AEC_SAMPLE_RATE)layout->rate};
    GObject *previous = qenaec_messages_enter(G_OBJECT(self));
    g_mutex_lock(&lifecycle_lock);
    self->aec = QenAec_Init(self->block, &init);
    g_mutex_unlock(&lifecycle_lock);
    if (self->aec != NULL) {
        QenAec_GetConfig(self->aec, &init, &self->defaults);
    }
    qenaec_messages_leave(previous);
    if (self->aec == NULL) {
        GST_ELEMENT_ERROR(self, LIBRARY, INIT, (NULL),
                          ("the library refused %d Hz with %d near and %d far channels",
                           layout->rate, layout->near_channels, layout->far_channels));
        return FALSE;
    }
    self->layout = *layout;
    if (!install_tuning(self, TRUE)) {
        return FALSE;
    }
    GST_OBJECT_LOCK(self);
    self->run_mode = self->mode;
    self->far_delay = lround(self->far_delay_ms * layout->rate / 1000.0);
    GST_OBJECT_UNLOCK(self);
    qenaec_reference_free(&self->reference);
    /* Room for the delay, a frame, and half a second of reference running ahead. */
    qenaec_reference_init(&self->reference, (guint)self->far_delay + FRAME + layout->rate / 2,
                          (guint)layout->far_channels);
    qenaec_stats_reset(&self->stats, self->run_mode == GST_QENAEC_MODE_FULL ? 1 : 0, layout->rate,
                       FRAME);
    const GstClockTime latency = frame_duration(layout->rate);
    gst_aggregator_set_latency(GST_AGGREGATOR(self), latency, latency);
    GST_INFO_OBJECT(self,
                    "running at %d Hz, %d near and %d far channels, far delay %" G_GINT64_FORMAT
                    " samples",
                    layout->rate, layout->near_channels, layout->far_channels, self->far_delay);
    return TRUE;
}

/* ---- Microphone ------------------------------------------------------------------- */

/* Takes microphone buffers until a frame is complete or none is queued. */
static void pull_near(GstQenAec *self) {
    GstBuffer *buffer;
    while (qenaec_microphone_available(&self->mic) < FRAME &&
           (buffer = gst_aggregator_pad_pop_buffer(self->near_pad)) != NULL) {
        qenaec_microphone_push(&self->mic, buffer);
    }
}

static gboolean near_is_over(GstQenAec *self) {
    return gst_aggregator_pad_is_eos(self->near_pad) &&
           !gst_aggregator_pad_has_buffer(self->near_pad);
}

static gint64 to_position(GstClockTime running_time, gint sign, gint rate) {
    const gint64 p = (gint64)gst_util_uint64_scale_round(running_time, rate, GST_SECOND);
    return sign < 0 ? -p : p;
}

/* The next microphone frame's place. Without timestamps the stream counts from zero. */
static FramePlace place_next_frame(GstQenAec *self) {
    FramePlace place = {qenaec_microphone_pts(&self->mic, 0), 0, 0};
    const gint rate = self->layout.rate;
    GstClockTime rt = gst_util_uint64_scale_int(self->mic.taken, GST_SECOND, rate);
    gint sign = 1;
    if (GST_CLOCK_TIME_IS_VALID(place.pts)) {
        GST_OBJECT_LOCK(self->near_pad);
        sign = gst_segment_to_running_time_full(&self->near_pad->segment, GST_FORMAT_TIME,
                                                place.pts, &rt);
        GST_OBJECT_UNLOCK(self->near_pad);
    }
    place.position = to_position(rt, sign, rate);
    place.running_time = sign > 0 ? rt : 0;
    return place;
}

/* ---- Reference --------------------------------------------------------------------- */

/* Where a reference buffer belongs; an untimed one follows on from the last. */
static gint64 far_position(GstQenAec *self, GstBuffer *buffer) {
    const GstClockTime pts = GST_BUFFER_PTS(buffer);
    GstClockTime rt = 0;
    gint sign = 0;
    if (GST_CLOCK_TIME_IS_VALID(pts)) {
        GST_OBJECT_LOCK(self->far_pad);
        sign = gst_segment_to_running_time_full(&self->far_pad->segment, GST_FORMAT_TIME, pts, &rt);
        GST_OBJECT_UNLOCK(self->far_pad);
    }
    return sign != 0 ? to_position(rt, sign, self->layout.rate) : self->reference.delivered;
}

/* Stores reference buffers until everything before `end` has come or none is queued. */
static void feed_reference(GstQenAec *self, gint64 end) {
    QenAecReference *r = &self->reference;
    while (r->delivered < end) {
        if (qenaec_reference_has_pending(r)) {
            if (!qenaec_reference_resume(r)) {
                return; /* the store is full until frames move on */
            }
            continue;
        }
        GstBuffer *buffer = gst_aggregator_pad_pop_buffer(self->far_pad);
        if (buffer == NULL) {
            return;
        }
        qenaec_reference_offer(r, far_position(self, buffer), buffer);
    }
}

static gboolean far_is_over(GstQenAec *self) {
    return !qenaec_reference_has_pending(&self->reference) &&
           gst_aggregator_pad_is_eos(self->far_pad) &&
           !gst_aggregator_pad_has_buffer(self->far_pad);
}

/* In a live pipeline a frame is due when the clock passes its running time plus the
 * latency: what the reference has not delivered by then is missing. */
static gboolean frame_is_due(GstQenAec *self, GstClockTime running_time) {
    const GstClockTime latency = gst_aggregator_get_latency(GST_AGGREGATOR(self));
    GstClock *clock = gst_element_get_clock(GST_ELEMENT(self));
    if (!GST_CLOCK_TIME_IS_VALID(latency) || clock == NULL) {
        g_clear_object(&clock);
        return FALSE;
    }
    const GstClockTime now = gst_clock_get_time(clock);
    gst_object_unref(clock);
    return now >= gst_element_get_base_time(GST_ELEMENT(self)) + running_time + latency;
}

/* Whether the frame's reference is settled: all of it has come (gaps included), the
 * reference has ended, or the frame is due. */
static gboolean reference_settled(GstQenAec *self, const FramePlace *place) {
    const gint64 start = place->position - self->far_delay;
    qenaec_reference_expect(&self->reference, start);
    feed_reference(self, start + FRAME);
    return self->reference.delivered >= start + FRAME || far_is_over(self) ||
           frame_is_due(self, place->running_time);
}

/* ---- Frames ------------------------------------------------------------------------- */

static void post_stats(GstQenAec *self) {
    gst_element_post_message(
        GST_ELEMENT(self),
        gst_message_new_element(GST_OBJECT(self), qenaec_stats_structure(&self->stats)));
    self->frames_since_post = 0;
}

static void count_frame(GstQenAec *self, guint absent) {
    const Layout *l = &self->layout;
    qenaec_stats_add(&self->stats, self->near_frame, self->out_frame, (guint)l->near_channels,
                     self->far_frame, (guint)l->far_channels, FRAME, absent > 0);
    GST_OBJECT_LOCK(self);
    self->erle = qenaec_stats_erle(&self->stats);
    const guint64 interval_ms = self->stats_interval_ms;
    GST_OBJECT_UNLOCK(self);
    ++self->frames_since_post;
    if (interval_ms > 0 && self->frames_since_post * FRAME * 1000 >= interval_ms * l->rate) {
        post_stats(self);
    }
}

/* Runs one frame of `samples` microphone samples (fewer than a frame only at the end,
 * padded with silence for the library) and pushes it. */
static GstFlowReturn process_frame(GstQenAec *self, guint samples, const FramePlace *place) {
    const gsize bytes = (gsize)samples * self->layout.near_channels * sizeof(gint16);
    memset(self->near_frame, 0, sizeof self->near_frame);
    qenaec_microphone_peek(&self->mic, self->near_frame, samples);
    /* Past the end of the microphone no reference is missed. */
    const gint64 start = place->position - self->far_delay;
    const guint absent = qenaec_reference_read(&self->reference, start, samples, self->far_frame);
    qenaec_reference_read(&self->reference, start + samples, FRAME - samples,
                          self->far_frame + (gsize)samples * self->layout.far_channels);
    memcpy(self->out_frame, self->near_frame, sizeof self->out_frame);
    GST_LOG_OBJECT(self,
                   "frame %" G_GUINT64_FORMAT " at position %" G_GINT64_FORMAT
                   ", %u reference samples absent",
                   self->stats.frames, place->position, absent);

    GObject *previous = qenaec_messages_enter(G_OBJECT(self));
    const ALGO_AEC_RET r = self->run_mode == GST_QENAEC_MODE_FULL
                               ? QenAec_Run(self->aec, self->out_frame, self->far_frame)
                               : QenAec_ADF_Run(self->aec, self->out_frame, self->far_frame);
    qenaec_messages_leave(previous);
    if (r != ALGO_AEC_RET_SUCCESS) {
        GST_ELEMENT_ERROR(self, LIBRARY, FAILED, (NULL),
                          ("the library failed on frame %" G_GUINT64_FORMAT " with code 0x%08X",
                           self->stats.frames, (unsigned)r));
        return GST_FLOW_ERROR;
    }
    count_frame(self, absent);

    GstBuffer *out = gst_buffer_new_memdup(self->out_frame, bytes);
    GST_BUFFER_PTS(out) = place->pts;
    const GstClockTime end = qenaec_microphone_pts(&self->mic, samples);
    if (GST_CLOCK_TIME_IS_VALID(place->pts) && GST_CLOCK_TIME_IS_VALID(end)) {
        GST_BUFFER_DURATION(out) = end - place->pts;
        GstAggregatorPad *src = GST_AGGREGATOR_PAD(GST_AGGREGATOR_SRC_PAD(self));
        GST_OBJECT_LOCK(src);
        src->segment.position = end;
        GST_OBJECT_UNLOCK(src);
    }
    qenaec_microphone_take(&self->mic, samples);
    return gst_aggregator_finish_buffer(GST_AGGREGATOR(self), out);
}

/* Processes the microphone frames that can go now. With `drain`, everything buffered goes
 * at once, the last frame padded, with the reference as far as it has come. */
static GstFlowReturn process_ready(GstQenAec *self, gboolean drain) {
    for (;;) {
        if (!drain) {
            pull_near(self);
        }
        const guint samples = MIN(qenaec_microphone_available(&self->mic), FRAME);
        if (samples == 0 || (samples < FRAME && !drain && !near_is_over(self))) {
            return GST_FLOW_OK;
        }
        const FramePlace place = place_next_frame(self);
        if (!reference_settled(self, &place) && !drain) {
            return GST_FLOW_OK;
        }
        const GstFlowReturn ret = process_frame(self, samples, &place);
        if (ret != GST_FLOW_OK) {
            return ret;
        }
    }
}

static void forget_stream(GstQenAec *self) {
    if (self->mic.adapter != NULL) {
        qenaec_microphone_clear(&self->mic);
    }
    if (self->reference.capacity > 0) {
        qenaec_reference_clear(&self->reference);
    }
}

/* A new layout: what the old one buffered goes out first, then the instance starts again. */
static gboolean change_layout(GstQenAec *self, const Layout *layout) {
    if (layout->rate == self->layout.rate && layout->near_channels == self->layout.near_channels &&
        layout->far_channels == self->layout.far_channels) {
        return TRUE;
    }
    if (self->aec != NULL && process_ready(self, TRUE) != GST_FLOW_OK) {
        return FALSE;
    }
    forget_stream(self);
    qenaec_microphone_set_format(&self->mic, layout->rate, layout->near_channels);
    return start_instance(self, layout);
}

/* ---- GstAggregator ------------------------------------------------------------------ */

static GstFlowReturn gst_qenaec_aggregate(GstAggregator *agg, gboolean timeout) {
    GstQenAec *self = GST_QENAEC(agg);
    (void)timeout; /* frame_is_due asks the clock itself */
    if (self->aec == NULL) {
        return near_is_over(self) ? GST_FLOW_EOS : GST_FLOW_OK;
    }
    gboolean changed;
    GST_OBJECT_LOCK(self);
    changed = self->tuning_changed;
    GST_OBJECT_UNLOCK(self);
    if (changed && !install_tuning(self, FALSE)) {
        return GST_FLOW_ERROR;
    }
    const GstFlowReturn ret = process_ready(self, FALSE);
    if (ret == GST_FLOW_OK && near_is_over(self) && qenaec_microphone_available(&self->mic) == 0) {
        post_stats(self); /* the last figures of the stream */
        return GST_FLOW_EOS;
    }
    return ret;
}

/* The running time of the next frame, once one is complete or a buffer waits: the
 * aggregator then wakes at that time plus the latency even if the reference stays away. */
static GstClockTime gst_qenaec_get_next_time(GstAggregator *agg) {
    GstQenAec *self = GST_QENAEC(agg);
    if (self->aec == NULL || (qenaec_microphone_available(&self->mic) < FRAME &&
                              !gst_aggregator_pad_has_buffer(self->near_pad))) {
        return GST_CLOCK_TIME_NONE;
    }
    return place_next_frame(self).running_time;
}

static GstFlowReturn gst_qenaec_sink_event_pre_queue(GstAggregator *agg, GstAggregatorPad *pad,
                                                     GstEvent *event) {
    if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
        GstCaps *caps = NULL;
        gst_event_parse_caps(event, &caps);
        if (!accept_format(GST_QENAEC(agg), pad, caps)) {
            gst_event_unref(event);
            return GST_FLOW_NOT_NEGOTIATED;
        }
    }
    return GST_AGGREGATOR_CLASS(gst_qenaec_parent_class)->sink_event_pre_queue(agg, pad, event);
}

/* Runs in order with the buffers: the layout changes where the stream changes. */
static gboolean take_caps(GstQenAec *self, GstAggregatorPad *pad, GstCaps *caps) {
    gint rate = 0, channels = 0;
    if (!is_supported(caps, &rate, &channels)) {
        return FALSE;
    }
    Layout layout = self->layout;
    if (pad == self->near_pad) {
        layout =
            (Layout){rate, channels, self->far_caps_channels > 0 ? self->far_caps_channels : 1};
        gst_pad_mark_reconfigure(GST_AGGREGATOR_SRC_PAD(self));
    } else {
        /* Until the microphone's format is known there is nothing to run. */
        self->far_caps_channels = channels;
        layout.far_channels = channels;
    }
    return layout.rate == 0 || change_layout(self, &layout);
}

static gboolean gst_qenaec_sink_event(GstAggregator *agg, GstAggregatorPad *pad, GstEvent *event) {
    GstQenAec *self = GST_QENAEC(agg);
    if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
        GstCaps *caps = NULL;
        gst_event_parse_caps(event, &caps);
        if (!take_caps(self, pad, caps)) {
            gst_event_unref(event);
            return FALSE;
        }
    }
    const gboolean is_near_segment =
        GST_EVENT_TYPE(event) == GST_EVENT_SEGMENT && pad == self->near_pad;
    const gboolean ret = GST_AGGREGATOR_CLASS(gst_qenaec_parent_class)->sink_event(agg, pad, event);
    if (is_near_segment) {
        /* Output timestamps are the microphone's, so its segment is the output's. */
        GST_OBJECT_LOCK(pad);
        const GstSegment segment = pad->segment;
        GST_OBJECT_UNLOCK(pad);
        gst_aggregator_update_segment(agg, &segment);
    }
    return ret;
}

static gboolean gst_qenaec_sink_query(GstAggregator *agg, GstAggregatorPad *pad, GstQuery *query) {
    GstQenAec *self = GST_QENAEC(agg);
    switch (GST_QUERY_TYPE(query)) {
        case GST_QUERY_CAPS: {
            GstCaps *filter = NULL;
            gst_query_parse_caps(query, &filter);
            GstCaps *caps = sink_caps(self, pad);
            if (filter != NULL) {
                GstCaps *both = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
                gst_caps_unref(caps);
                caps = both;
            }
            gst_query_set_caps_result(query, caps);
            gst_caps_unref(caps);
            return TRUE;
        }
        case GST_QUERY_ACCEPT_CAPS:
            /* Every fixed format goes on to the caps event, where a refusal is explained. */
            gst_query_set_accept_caps_result(query, TRUE);
            return TRUE;
        default:
            return GST_AGGREGATOR_CLASS(gst_qenaec_parent_class)->sink_query(agg, pad, query);
    }
}

static GstFlowReturn gst_qenaec_update_src_caps(GstAggregator *agg, GstCaps *downstream,
                                                GstCaps **ret) {
    GstQenAec *self = GST_QENAEC(agg);
    GstCaps *near = gst_pad_get_current_caps(GST_PAD(self->near_pad));
    if (near == NULL) {
        return GST_AGGREGATOR_FLOW_NEED_DATA;
    }
    if (!gst_caps_can_intersect(near, downstream)) {
        gst_caps_unref(near);
        return GST_FLOW_NOT_NEGOTIATED;
    }
    *ret = near; /* the output has the microphone's format */
    return GST_FLOW_OK;
}

static GstFlowReturn gst_qenaec_flush(GstAggregator *agg) {
    forget_stream(GST_QENAEC(agg));
    return GST_AGGREGATOR_CLASS(gst_qenaec_parent_class)->flush(agg);
}

/* Reads `config`, if set, once for the whole run. */
static gboolean load_config(GstQenAec *self) {
    GST_OBJECT_LOCK(self);
    gchar *path = g_strdup(self->config);
    GST_OBJECT_UNLOCK(self);
    QenAecTuning t = {0};
    gchar *why = path != NULL && *path != '\0' ? qenaec_tuning_load(path, &t) : NULL;
    GST_OBJECT_LOCK(self);
    self->have_config = path != NULL && *path != '\0' && why == NULL;
    self->config_tuning = t;
    GST_OBJECT_UNLOCK(self);
    g_free(path);
    if (why != NULL) {
        GST_ELEMENT_ERROR(self, RESOURCE, SETTINGS, ("%s", why), (NULL));
        g_free(why);
        return FALSE;
    }
    return TRUE;
}

static gboolean gst_qenaec_start(GstAggregator *agg) {
    GstQenAec *self = GST_QENAEC(agg);
    if (!load_config(self)) {
        return FALSE;
    }
    GObject *previous = qenaec_messages_enter(G_OBJECT(self));
    self->block = g_malloc(QenAec_GetBufferSize());
    qenaec_messages_leave(previous);
    qenaec_microphone_init(&self->mic);
    self->layout = (Layout){0, 0, 0};
    self->far_caps_channels = 0;
    self->frames_since_post = 0;
    forget_stream(self);
    /* Until the rate is known: the longest frame, at 8 kHz. */
    const GstClockTime latency = frame_duration(8000);
    gst_aggregator_set_latency(agg, latency, latency);
    return TRUE;
}

static gboolean gst_qenaec_stop(GstAggregator *agg) {
    GstQenAec *self = GST_QENAEC(agg);
    forget_stream(self);
    free_instance(self);
    g_clear_pointer(&self->block, g_free);
    qenaec_microphone_free(&self->mic);
    qenaec_reference_free(&self->reference);
    self->layout = (Layout){0, 0, 0};
    GST_OBJECT_LOCK(self);
    self->offered_rate[NEAR] = self->offered_rate[FAR] = 0;
    GST_OBJECT_UNLOCK(self);
    return TRUE;
}

/* ---- GObject ------------------------------------------------------------------------ */

static void replace_text(gchar **field, const GValue *value) {
    g_free(*field);
    *field = g_value_dup_string(value);
}

static void gst_qenaec_set_property(GObject *object, guint id, const GValue *value,
                                    GParamSpec *pspec) {
    GstQenAec *self = GST_QENAEC(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
        case PROP_MODE:
            self->mode = (GstQenAecMode)g_value_get_enum(value);
            break;
        case PROP_COMFORT_NOISE:
            self->comfort_noise = g_value_get_boolean(value);
            self->tuning_changed = TRUE;
            break;
        case PROP_INTENSITY:
            replace_text(&self->intensity, value);
            self->tuning_changed = TRUE;
            break;
        case PROP_EDGES:
            replace_text(&self->edges, value);
            self->tuning_changed = TRUE;
            break;
        case PROP_RATIO:
            self->ratio = g_value_get_uint(value);
            self->ratio_set = TRUE;
            self->tuning_changed = TRUE;
            break;
        case PROP_FAR_DELAY:
            self->far_delay_ms = g_value_get_double(value);
            break;
        case PROP_CONFIG:
            replace_text(&self->config, value);
            break;
        case PROP_STATS_INTERVAL:
            self->stats_interval_ms = g_value_get_uint(value);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
    GST_OBJECT_UNLOCK(self);
}

static void gst_qenaec_get_property(GObject *object, guint id, GValue *value, GParamSpec *pspec) {
    GstQenAec *self = GST_QENAEC(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
        case PROP_MODE:
            g_value_set_enum(value, self->mode);
            break;
        case PROP_COMFORT_NOISE:
            g_value_set_boolean(value, self->comfort_noise);
            break;
        case PROP_INTENSITY:
            g_value_set_string(value, self->intensity);
            break;
        case PROP_EDGES:
            g_value_set_string(value, self->edges);
            break;
        case PROP_RATIO:
            g_value_set_uint(value, self->ratio);
            break;
        case PROP_FAR_DELAY:
            g_value_set_double(value, self->far_delay_ms);
            break;
        case PROP_CONFIG:
            g_value_set_string(value, self->config);
            break;
        case PROP_STATS_INTERVAL:
            g_value_set_uint(value, self->stats_interval_ms);
            break;
        case PROP_ERLE:
            g_value_set_double(value, self->erle);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
    GST_OBJECT_UNLOCK(self);
}

static void gst_qenaec_finalize(GObject *object) {
    GstQenAec *self = GST_QENAEC(object);
    g_free(self->intensity);
    g_free(self->edges);
    g_free(self->config);
    G_OBJECT_CLASS(gst_qenaec_parent_class)->finalize(object);
}

static void install_properties(GObjectClass *oc) {
    const GParamFlags rw = G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS;
    const GParamFlags live = rw | GST_PARAM_MUTABLE_PLAYING;
    const GParamFlags fixed = rw | GST_PARAM_MUTABLE_READY;
    g_object_class_install_property(
        oc, PROP_MODE,
        g_param_spec_enum("mode", "Mode", "Stages the microphone goes through",
                          gst_qenaec_mode_get_type(), GST_QENAEC_MODE_FULL, fixed));
    g_object_class_install_property(
        oc, PROP_COMFORT_NOISE,
        g_param_spec_boolean("comfort-noise", "Comfort noise",
                             "Fill suppressed bins with noise shaped like the background", FALSE,
                             live));
    g_object_class_install_property(
        oc, PROP_INTENSITY,
        g_param_spec_string("intensity", "Intensity",
                            "Suppression intensity of the 7 bands, each 0..25, as a,b,c,d,e,f,g "
                            "(unset: the library's 5,4,4,5,10,10,10)",
                            NULL, live));
    g_object_class_install_property(
        oc, PROP_EDGES,
        g_param_spec_string("edges", "Band edges",
                            "Upper FFT bin of bands 0..5, each 1..126, non-decreasing, as "
                            "a,b,c,d,e,f (unset: the library's 4,6,36,49,50,51)",
                            NULL, live));
    g_object_class_install_property(
        oc, PROP_RATIO,
        g_param_spec_uint("ratio", "Ratio", "Smoothing of the suppressor's spectra, in tenths", 1,
                          10, DEFAULT_RATIO, live));
    g_object_class_install_property(
        oc, PROP_FAR_DELAY,
        g_param_spec_double("far-delay", "Far delay",
                            "Delay the reference by this many milliseconds, for echo that "
                            "arrives later than the filter's 1024 samples reach",
                            0.0, MAX_FAR_DELAY_MS, 0.0, fixed));
    g_object_class_install_property(
        oc, PROP_CONFIG,
        g_param_spec_string("config", "Config",
                            "JSON result of `qenaec tune`: its tuned intensity, edges and ratio "
                            "(the intensity, edges and ratio properties, where set, win)",
                            NULL, fixed));
    g_object_class_install_property(
        oc, PROP_STATS_INTERVAL,
        g_param_spec_uint("stats-interval", "Stats interval",
                          "Post a qenaec-stats element message every this many milliseconds of "
                          "audio (0: only at the end of the stream)",
                          0, G_MAXUINT, DEFAULT_STATS_INTERVAL_MS, live));
    g_object_class_install_property(
        oc, PROP_ERLE,
        g_param_spec_double("erle", "ERLE",
                            "Running echo reduction in dB, over the frames where the reference "
                            "plays",
                            -200.0, 200.0, 0.0, G_PARAM_READABLE | G_PARAM_STATIC_STRINGS));
}

static void gst_qenaec_class_init(GstQenAecClass *klass) {
    GObjectClass *oc = G_OBJECT_CLASS(klass);
    GstElementClass *ec = GST_ELEMENT_CLASS(klass);
    GstAggregatorClass *ac = GST_AGGREGATOR_CLASS(klass);

    oc->set_property = gst_qenaec_set_property;
    oc->get_property = gst_qenaec_get_property;
    oc->finalize = gst_qenaec_finalize;
    install_properties(oc);

    gst_element_class_add_static_pad_template_with_gtype(ec, &near_template,
                                                         GST_TYPE_AGGREGATOR_PAD);
    gst_element_class_add_static_pad_template_with_gtype(ec, &far_template,
                                                         GST_TYPE_AGGREGATOR_PAD);
    gst_element_class_add_static_pad_template_with_gtype(ec, &src_template,
                                                         GST_TYPE_AGGREGATOR_PAD);
    gst_element_class_set_static_metadata(
        ec, "Acoustic echo canceller", "Filter/Effect/Audio",
        "Removes the loudspeaker's echo (far_sink) from the microphone (near_sink)", "QenAec");

    ac->aggregate = gst_qenaec_aggregate;
    ac->get_next_time = gst_qenaec_get_next_time;
    ac->sink_event_pre_queue = gst_qenaec_sink_event_pre_queue;
    ac->sink_event = gst_qenaec_sink_event;
    ac->sink_query = gst_qenaec_sink_query;
    ac->update_src_caps = gst_qenaec_update_src_caps;
    ac->flush = gst_qenaec_flush;
    ac->start = gst_qenaec_start;
    ac->stop = gst_qenaec_stop;

    gst_type_mark_as_plugin_api(gst_qenaec_mode_get_type(), 0);
}

static GstAggregatorPad *add_sink_pad(GstQenAec *self, const gchar *name) {
    GstPadTemplate *templ = gst_element_class_get_pad_template(GST_ELEMENT_GET_CLASS(self), name);
    GstAggregatorPad *pad = g_object_new(GST_TYPE_AGGREGATOR_PAD, "name", name, "direction",
                                         GST_PAD_SINK, "template", templ, NULL);
    gst_element_add_pad(GST_ELEMENT(self), GST_PAD(pad));
    return pad;
}

static void gst_qenaec_init(GstQenAec *self) {
    self->near_pad = add_sink_pad(self, "near_sink");
    self->far_pad = add_sink_pad(self, "far_sink");
    self->mode = GST_QENAEC_MODE_FULL;
    self->ratio = DEFAULT_RATIO;
    self->stats_interval_ms = DEFAULT_STATS_INTERVAL_MS;
}
