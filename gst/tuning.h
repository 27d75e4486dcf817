/* The settings the element passes to the library: comfort noise, the band table (the 7
 * intensities and 6 edges, as the tool's comma lists) and the smoothing ratio. Values that
 * parse are handed on as they are: whether they are in range is the library's decision, and
 * its refusal is explained in the words of the element's properties. */
#pragma once

#include <glib.h>

#include "qen_aec.h"

G_BEGIN_DECLS

enum { QENAEC_BANDS = 7, QENAEC_EDGES = 6 };

typedef struct {
    gboolean comfort_noise;
    gboolean has_intensity; /* FALSE: the library's default band intensities */
    guint32 intensity[QENAEC_BANDS];
    gboolean has_edges; /* FALSE: the library's default band edges */
    guint32 edges[QENAEC_EDGES];
    guint ratio; /* tenths, 1..10 */
} QenAecTuning;

/* Reads the "tuned" entry of a result of `qenaec tune`,
 *   {"tuned": {"intensity": [7 integers], "edges": [6 integers], "ratio": integer, ...}, ...},
 * into the band table and ratio of `tuning` (comfort noise is left as it is), with the
 * tool's own reader (tools/settings), which checks every value. Returns NULL, or why the
 * file cannot be used, naming it and the entry (free with g_free). */
gchar *qenaec_tuning_load(const gchar *path, QenAecTuning *tuning);

/* Puts the comma list of property `name` ("a,b,c": `count` non-negative integers) into
 * `values` and sets `*has`; does nothing when `text` is unset or empty. Returns NULL, or
 * why the list does not parse (free with g_free). */
gchar *qenaec_tuning_take_list(const gchar *name, const gchar *text, guint32 *values, guint count,
                               gboolean *has);

/* Installs `tuning` over `defaults` (what GetConfig gave right after Init). On a `fresh`
 * instance Config is called only when a setting differs from Init's, as the tool does:
 * Config works out the band targets its own way, so even Init's own values change the
 * output. Later calls always go through Config, so that a setting taken back returns to
 * the default. Returns NULL, or the reason the library refused the tuning (free with
 * g_free); a refused band table changes nothing. */
gchar *qenaec_tuning_apply(AEC_HANDLE aec, const AudioAecConfig *defaults,
                           const QenAecTuning *tuning, gboolean fresh);

G_END_DECLS
