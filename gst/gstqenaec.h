/* The `qenaec` element: echo cancellation in a pipeline. A GstAggregator with the
 * microphone on near_sink, the loudspeaker reference on far_sink and the echo-cancelled
 * microphone on src. */
#pragma once

#include <gst/base/gstaggregator.h>

G_BEGIN_DECLS

#define GST_TYPE_QENAEC (gst_qenaec_get_type())
G_DECLARE_FINAL_TYPE(GstQenAec, gst_qenaec, GST, QENAEC, GstAggregator)

G_END_DECLS
