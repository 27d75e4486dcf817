/* Parsing of the comma lists and the library calls that install a tuning. */
#include "tuning.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "qenaec_settings.h"

static gboolean parse_list(const gchar *text, guint32 *values, guint count) {
    gchar **parts = g_strsplit(text, ",", -1);
    gboolean ok = g_strv_length(parts) == count;
    for (guint i = 0; ok && i < count; ++i) {
        const gchar *p = g_strstrip(parts[i]);
        gchar *end = NULL;
        errno = 0;
        const guint64 v = g_ascii_strtoull(p, &end, 10);
        ok = *p != '\0' && g_ascii_isdigit(*p) && *end == '\0' && errno == 0 && v <= G_MAXUINT32;
        values[i] = (guint32)v;
    }
    g_strfreev(parts);
    return ok;
}

gchar *qenaec_tuning_load(const gchar *path, QenAecTuning *t) {
    QenAecSettings s;
    char why[512];
    if (qenaec_settings_read(path, &s, why, sizeof why) != 0) {
        return g_strdup_printf("config: %s", why);
    }
    memcpy(t->intensity, s.intensity, sizeof t->intensity);
    memcpy(t->edges, s.edges, sizeof t->edges);
    t->has_intensity = TRUE;
    t->has_edges = TRUE;
    t->ratio = s.ratio;
    return NULL;
}

gchar *qenaec_tuning_take_list(const gchar *name, const gchar *text, guint32 *values, guint count,
                               gboolean *has) {
    if (text == NULL || *text == '\0') {
        return NULL;
    }
    *has = TRUE;
    return parse_list(text, values, count)
               ? NULL
               : g_strdup_printf("%s takes %u comma-separated non-negative integers (got '%s')",
                                 name, count, text);
}

static gchar *format_list(const guint32 *values, guint count) {
    GString *s = g_string_new(NULL);
    for (guint i = 0; i < count; ++i) {
        g_string_append_printf(s, "%s%u", i > 0 ? "," : "", values[i]);
    }
    return g_string_free(s, FALSE);
}

static gchar *band_table_refusal(ALGO_AEC_RET code, const AudioAecConfig *cfg) {
    gchar *list = NULL;
    gchar *why = NULL;
    switch (code) {
        case ALGO_AEC_RET_INVALID_SUP_MODE:
            list = format_list(cfg->suppression_mode_intensity, QENAEC_BANDS);
            why = g_strdup_printf("every intensity must be 0..25 (got %s)", list);
            break;
        case ALGO_AEC_RET_INVALID_SUP_BAND:
            list = format_list(cfg->suppression_mode_freq, QENAEC_EDGES);
            why = g_strdup_printf(
                "every edge must be an FFT bin in 1..126, in non-decreasing order (got %s)", list);
            break;
        default:
            why =
                g_strdup_printf("the library refused the band table (code 0x%08X)", (unsigned)code);
    }
    g_free(list);
    return why;
}

static gchar *install_band_table(AEC_HANDLE aec, const AudioAecConfig *defaults,
                                 const QenAecTuning *t) {
    AudioAecConfig cfg = *defaults;
    cfg.comfort_noise_enable = t->comfort_noise ? QEN_AEC_TRUE : QEN_AEC_FALSE;
    if (t->has_intensity) {
        memcpy(cfg.suppression_mode_intensity, t->intensity, sizeof t->intensity);
    }
    if (t->has_edges) {
        memcpy(cfg.suppression_mode_freq, t->edges, sizeof t->edges);
    }
    const ALGO_AEC_RET r = QenAec_Config(aec, &cfg);
    return r == ALGO_AEC_RET_SUCCESS ? NULL : band_table_refusal(r, &cfg);
}

gchar *qenaec_tuning_apply(AEC_HANDLE aec, const AudioAecConfig *defaults, const QenAecTuning *t,
                           gboolean fresh) {
    if (!fresh || t->comfort_noise || t->has_intensity || t->has_edges) {
        gchar *why = install_band_table(aec, defaults, t);
        if (why != NULL) {
            return why;
        }
    }
    if (QenAec_SetRecursiveRatio(aec, t->ratio) != ALGO_AEC_RET_SUCCESS) {
        return g_strdup_printf("the ratio must be 1..10, in tenths (got %u)", t->ratio);
    }
    return NULL;
}
