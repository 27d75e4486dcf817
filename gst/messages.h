/* Where the library's messages go inside a pipeline. The library prints them with printf
 * (and the adaptive filter its warnings on stderr); the plugin links the library in
 * statically with those calls redirected here at link time (-Wl,--wrap, see CMakeLists.txt),
 * so they reach the `qenaec` debug category and never the application's standard output.
 * Writes to other streams (the PCM dumps) pass through untouched. */
#pragma once

#include <gst/gst.h>

G_BEGIN_DECLS

GST_DEBUG_CATEGORY_EXTERN(qenaec_debug);

void qenaec_messages_init(void);

/* Names the element whose library call runs on this thread, so its messages are logged
 * against it; returns the one named before, to be given back to qenaec_messages_leave. */
GObject *qenaec_messages_enter(GObject *element);
void qenaec_messages_leave(GObject *previous);

G_END_DECLS
