// PCM field dumps: four raw 16-bit files per instance, switched on and off by AUDIO_AEC_DUMP
// (read every frame) in the directory AUDIO_DUMP_PATH (default ".").
//
// The documented entry points take the instance; each is an adapter (dump_adapters.cpp) that
// hands the instance's dump fields to the functions below.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

struct aec_workingbuf_t;

// Follows the switch: opens the files on a change to 1, closes them on a change to 0.
// 0 when nothing changed or the change succeeded; -1 for a missing (or too long) directory
// or a switch value other than 0 and 1. The new value is kept even on failure, so a failed
// set-up is reported once and not retried until the value changes.
int DebugDumpDataInit(aec_workingbuf_t *aec_handle);
// Closes whichever of the four files are open.
void DebugDumpDataFree(aec_workingbuf_t *aec_handle);
// Appends `samples` 16-bit samples to `stream`; nothing when the stream is not open.
void DebugDumpDataWrite(FILE *stream, const short *data, size_t samples);

// The dump fields of one instance: the four streams, the last switch value, the directory
// text (`path_bytes` long), the id in the file names and the message level of its failures.
struct dump_files_t {
    FILE **near_end;
    FILE **far_end;
    FILE **echo;
    FILE **output;
    int32_t *flag;
    char *path;
    size_t path_bytes;
    int32_t id;
    int32_t dbg_level;
};

int dump_follow_switch(const dump_files_t &files);
void dump_close_all(const dump_files_t &files);
