/*
 * Suppressor settings of one device: the seven band intensities, the six band edges and the
 * recursive ratio, as `qenaec tune` finds them and writes them in its JSON result
 *
 *   {"default": {...}, "tuned": {"erle_db": .., "near_loss_db": .., "near_sdr_db": ..,
 *    "intensity": [7 x 0..25], "edges": [6 x 1..126, non-decreasing], "ratio": 1..10}, ...}
 *
 * Reading takes the "tuned" entry and checks every value, so that a file the library would
 * refuse is refused here, with one message naming the file and the field. Whoever applies
 * the settings makes the calls `qenaec process --config` makes: QenAec_Config with the band
 * table (delay 0), then QenAec_SetRecursiveRatio.
 */
#ifndef QENAEC_SETTINGS_H
#define QENAEC_SETTINGS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct cJSON;

typedef struct QenAecSettings {
    uint32_t intensity[7]; /* bands 0..6, each 0..25 */
    uint32_t edges[6];     /* upper FFT bin of bands 0..5, each 1..126, non-decreasing */
    uint32_t ratio;        /* smoothing of the suppressor's spectra in tenths, 1..10 */
} QenAecSettings;

/* The library's own table: what QenAec_GetConfig reports after Init, and ratio 1. */
extern const QenAecSettings qenaec_settings_defaults;

/*
 * Parses the "tuned" entry of a tune result held in `text` (`length` bytes, no NUL needed);
 * `name` is the file name that messages start with. Returns 0 and fills `out`, or -1 with
 * one line in `error`.
 */
int qenaec_settings_parse(const char *text, size_t length, const char *name, QenAecSettings *out,
                          char *error, size_t error_size);

/* Reads the file at `path` and parses it as above. */
int qenaec_settings_read(const char *path, QenAecSettings *out, char *error, size_t error_size);

/* Adds "intensity", "edges" and "ratio" to a cJSON object. Returns 0, or -1 out of memory. */
int qenaec_settings_to_json(struct cJSON *object, const QenAecSettings *s);

#ifdef __cplusplus
}
#endif

#endif /* QENAEC_SETTINGS_H */
