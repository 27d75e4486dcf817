/*
 * QenAec: acoustic echo cancellation for embedded audio devices.
 *
 * The host hands the library one frame at a time: 128 samples per channel of
 * interleaved signed 16-bit PCM from the microphone (near end) and from the
 * loudspeaker reference (far end). The library writes the near-end frame back,
 * in the same buffer, with the echo of the far end removed.
 *
 * The library allocates no memory for an instance. The caller asks for the
 * size, provides a block of that many bytes, and passes the block back as the
 * handle on every call.
 *
 * Lifecycle:
 *
 *     #include <stdlib.h>
 *     #include "qen_aec.h"
 *
 *     unsigned int size = QenAec_GetBufferSize();
 *     char *block = malloc(size);                // 4-byte (float) alignment is enough
 *     AudioAecInit init = {128, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
 *     AEC_HANDLE aec = QenAec_Init(block, &init);
 *     if (aec == NULL) { free(block); return -1; }  // reason printed on stdout
 *
 *     AudioAecConfig cfg = {QEN_AEC_TRUE, 0, {4, 6, 36, 49, 50, 51}, {5, 4, 4, 5, 10, 10, 10}};
 *     QenAec_Config(aec, &cfg);                  // optional: Init installs defaults
 *
 *     short mic[128], ref[128];
 *     while (read_frame(mic, ref)) {             // the host's capture
 *         QenAec_Run(aec, mic, ref);             // mic now holds the echo-free frame
 *         play_or_send(mic);
 *     }
 *     QenAec_Free(aec);
 *     free(block);                               // the caller owns the block
 *
 * Threads: the library starts no threads and takes no locks. One instance must
 * be driven by one thread at a time; different instances may run on different
 * threads. Init, Reset and Free of different instances must not overlap (they
 * touch process-wide bookkeeping).
 *
 * Messages: the library prints diagnostics on standard output, filtered by the
 * mask in the JSON file named by the environment variable DML_PATH (default
 * "/config/audioAlgo.json", key "debug_level": 1 errors, 3 + warnings,
 * 7 + information (the default), 15).
 *
 * Field dumps: with AUDIO_AEC_DUMP=1 (read every frame) the run functions write
 * the raw near-end, far-end and output PCM of each frame to the directory in
 * AUDIO_DUMP_PATH (default ".").
 */
#ifndef QEN_AEC_H
#define QEN_AEC_H

#include <stdint.h>

#if defined(_WIN32)
#define QEN_AEC_API
#elif defined(QENAEC_BUILDING)
#define QEN_AEC_API __attribute__((visibility("default")))
#else
#define QEN_AEC_API
#endif

/* In C++ the codes get a signed 32-bit base so that the -1 failure value is a valid enum value. */
#if defined(__cplusplus)
#define QEN_AEC_ENUM_BASE : int32_t
#else
#define QEN_AEC_ENUM_BASE
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* An instance: the address of the caller's working block. */
typedef void *AEC_HANDLE;

typedef enum QEN_AEC_SAMPLE_RATE QEN_AEC_ENUM_BASE {
    QEN_AEC_SAMPLE_RATE_8000 = 8000,
    QEN_AEC_SAMPLE_RATE_16000 = 16000,
    QEN_AEC_SAMPLE_RATE_32000 = 32000,
    QEN_AEC_SAMPLE_RATE_48000 = 48000
} QEN_AEC_SAMPLE_RATE;

typedef enum QEN_AEC_BOOL QEN_AEC_ENUM_BASE { QEN_AEC_FALSE = 0, QEN_AEC_TRUE = 1 } QEN_AEC_BOOL;

/*
 * Return codes. The numbering jumps from 0x10000409 to 0x10000410 on purpose;
 * 0x1000040A..0x1000040F are not used. Besides these, Run, ADF_Run, NLP_Run and
 * Free return -1 (all bits set) for a null handle, and Run and ADF_Run also for
 * an instance that is not initialised.
 */
typedef enum ALGO_AEC_RET QEN_AEC_ENUM_BASE {
    ALGO_AEC_RET_SUCCESS = 0x00000000,
    ALGO_AEC_RET_INIT_ERROR = 0x10000401,            /* dump set-up failed in Run/ADF_Run */
    ALGO_AEC_RET_INVALID_HANDLE = 0x10000402,        /* null handle or record */
    ALGO_AEC_RET_INVALID_SAMPLE_RATE = 0x10000403,   /* not 8000/16000/32000/48000 */
    ALGO_AEC_RET_INVALID_POINT_NUMBER = 0x10000404,  /* point_number not 128 */
    ALGO_AEC_RET_INVALID_CHANNEL = 0x10000405,       /* a channel count not 1 or 2 */
    ALGO_AEC_RET_INVALID_ENABLE = 0x10000406,        /* defined, never returned */
    ALGO_AEC_RET_INVALID_SUP_BAND = 0x10000407,      /* band edge outside 1..126 or out of order */
    ALGO_AEC_RET_INVALID_SUP_MODE = 0x10000408,      /* intensity above 25 */
    ALGO_AEC_RET_INVALID_COMFORT_NOISE = 0x10000409, /* comfort_noise_enable not 0 or 1 */
    ALGO_AEC_RET_INVALID_DELAY_SAMPLE = 0x10000410,  /* defined, never returned */
    ALGO_AEC_RET_INVALID_RECURSIVE_RATIO = 0x10000411, /* ratio outside 1..10 */
    ALGO_AEC_RET_API_CONFLICT = 0x10000412,            /* run flag still set (re-entry) */
    ALGO_AEC_RET_INVALID_CALLING = 0x10000413          /* instance not initialised */
} ALGO_AEC_RET;

/* Filled by the caller for Init and Reset; written back by GetConfig. */
typedef struct AudioAecInit {
    uint32_t point_number;           /* samples per channel per frame: must be 128 */
    uint32_t nearend_channel;        /* microphone channels: 1 or 2 */
    uint32_t farend_channel;         /* loudspeaker reference channels: 1 or 2 */
    QEN_AEC_SAMPLE_RATE sample_rate; /* 8000, 16000, 32000 or 48000 */
} AudioAecInit;

/* Filled by the caller for Config; written back by GetConfig. */
typedef struct AudioAecConfig {
    QEN_AEC_BOOL comfort_noise_enable; /* 0 or 1 */
    int16_t delay_sample;              /* stored and returned; not applied to the signal */
    uint32_t suppression_mode_freq[6]; /* upper FFT bin of bands 0..5: 1..126, non-decreasing */
    uint32_t suppression_mode_intensity[7]; /* suppression intensity of bands 0..6: 0..25 */
} AudioAecConfig;

/*
 * Bytes the caller must provide for one instance (the instance record plus the
 * FFT plan area). Needs no instance; may be called at any time. Prints the size
 * at information level.
 */
QEN_AEC_API unsigned int QenAec_GetBufferSize(void);

/*
 * Initialises an instance in the caller's block of QenAec_GetBufferSize() bytes.
 *   working_buffer_address: the block; the caller keeps ownership and frees it
 *                           after QenAec_Free. Float (4-byte) alignment suffices.
 *   aec_init: point_number 128, channels 1 or 2, a supported rate.
 * Returns the handle (the block's address), or NULL when a pointer is null or
 * the record is invalid; the reason is printed. A refused record leaves the
 * block untouched. Installs the default band table; comfort noise is off.
 */
QEN_AEC_API AEC_HANDLE QenAec_Init(char *working_buffer_address, AudioAecInit *aec_init);

/*
 * Replaces the comfort-noise switch, the delay setting and the band table.
 * All-or-nothing: a rejected record changes nothing.
 * Returns SUCCESS; INVALID_HANDLE (null handle or record); INVALID_CALLING (not
 * initialised); INVALID_COMFORT_NOISE; INVALID_SUP_MODE (intensity above 25);
 * INVALID_SUP_BAND (edge outside 1..126 or decreasing); or an init-record code.
 * The new settings act from the next frame on.
 */
QEN_AEC_API ALGO_AEC_RET QenAec_Config(AEC_HANDLE handle, AudioAecConfig *aec_config);

/*
 * Reads back the stored settings into both records (aec_init must not be null).
 * Returns SUCCESS or INVALID_HANDLE (null handle or aec_config).
 */
QEN_AEC_API ALGO_AEC_RET QenAec_GetConfig(AEC_HANDLE handle, AudioAecInit *aec_init,
                                          AudioAecConfig *aec_config);

/*
 * Re-initialises an initialised instance in place with a new init record.
 * Keeps the message mask, the handle id, the dump state, the recursive ratio,
 * the delay setting and the comfort-noise level; comfort noise and the band
 * table return to their defaults. Returns the handle, or NULL when a pointer is
 * null, the instance was never initialised, or the record is invalid (then Init
 * again before use).
 */
QEN_AEC_API AEC_HANDLE QenAec_Reset(char *working_buffer_address, AudioAecInit *aec_init);

/*
 * Releases what the instance holds (dump files) and marks it uninitialised.
 * Returns SUCCESS, or -1 for a null handle. The caller then frees the block.
 */
QEN_AEC_API ALGO_AEC_RET QenAec_Free(AEC_HANDLE handle);

/*
 * Processes one frame through both stages (linear filter and nonlinear suppression).
 *   pss_aduio_near_end: 128 x nearend_channel interleaved samples; overwritten with the output
 *                       (a mono result is written to both channels of a stereo buffer).
 *   pss_aduio_far_end:  128 x farend_channel interleaved samples; only read.
 * Returns SUCCESS; -1 for a null or uninitialised handle; API_CONFLICT when the
 * instance's run flag is still set (re-entry, or an earlier dump failure until
 * Reset or Init); INIT_ERROR when the dump could not be set up.
 */
QEN_AEC_API ALGO_AEC_RET QenAec_Run(AEC_HANDLE handle, short *pss_aduio_near_end,
                                    short *pss_aduio_far_end);

/*
 * The linear stage alone: writes the adaptive filter's error signal over the
 * near-end buffer. The stage is skipped for a frame whose far-end level, taken
 * over the previous frame's half, is 0. Returns as QenAec_Run.
 */
QEN_AEC_API ALGO_AEC_RET QenAec_ADF_Run(AEC_HANDLE handle, short *pss_aduio_near_end,
                                        short *pss_aduio_far_end);

/*
 * The nonlinear stage alone, on what the linear stage left in the instance
 * (normally called after QenAec_ADF_Run on the same frame). Overwrites the
 * near-end buffer. Makes no init or run-flag test and writes no dumps.
 * Returns SUCCESS, or -1 for a null handle.
 */
QEN_AEC_API ALGO_AEC_RET QenAec_NLP_Run(AEC_HANDLE handle, short *pss_aduio_near_end);

/*
 * Library date as hexadecimal digits: year 0x2024, month and day 0x0314, time 0.
 * Always SUCCESS; the pointers must be valid.
 */
QEN_AEC_API ALGO_AEC_RET QenAec_GetLibVersion(unsigned short *ver_year, unsigned short *ver_date,
                                              unsigned short *ver_time);

/*
 * Smoothing ratio of the nonlinear stage's spectra, in tenths (1 -> 0.1 ... 10 -> 1.0;
 * the default is 1). Returns SUCCESS, INVALID_HANDLE, INVALID_CALLING (not
 * initialised) or INVALID_RECURSIVE_RATIO (0 or above 10).
 */
QEN_AEC_API ALGO_AEC_RET QenAec_SetRecursiveRatio(AEC_HANDLE handle, unsigned int recursive_ratio);

/* API version 1.3. Always SUCCESS; the pointers must be valid. */
QEN_AEC_API ALGO_AEC_RET QenAec_GetAPIVersion(unsigned short *major, unsigned short *minor);

/*
 * Number used in the dump file names, clamped to 0..100 (with a warning).
 * Returns SUCCESS or INVALID_HANDLE. Give each live instance its own id when dumping.
 */
QEN_AEC_API ALGO_AEC_RET QenAec_SetHandleId(AEC_HANDLE handle, int id);

#ifdef __cplusplus
}
#endif

#endif /* QEN_AEC_H */
