/* The plugin: the `qenaec` element and the debug category of the library's messages. */
#include <gst/gst.h>

#include "gstqenaec.h"
#include "messages.h"

static gboolean plugin_init(GstPlugin *plugin) {
    qenaec_messages_init();
    return gst_element_register(plugin, "qenaec", GST_RANK_NONE, GST_TYPE_QENAEC);
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, qenaec,
                  "Acoustic echo cancellation for embedded audio devices", plugin_init,
                  QENAEC_VERSION, "Proprietary", "qenaec", "QenAec")
