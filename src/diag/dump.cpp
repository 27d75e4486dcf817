// PCM field dumps, on an instance's dump fields. Every close clears the stream pointer and
// every close and write skips a null stream, so no switching sequence closes a file twice or
// writes to a closed one.
#include "diag/dump.h"

#include <dirent.h>

#include <cstdlib>

#include "diag/log.h"

namespace {

const char *const kDumpNames[4] = {
    "%s/Audio_AEC_near_end_data_%d.pcm",
    "%s/Audio_AEC_far_end_data_%d.pcm",
    "%s/Audio_AEC_echo_data_%d.pcm",
    "%s/Audio_AEC_output_data_%d.pcm",
};

void close_stream(FILE **stream) {
    if (*stream != nullptr) {
        fclose(*stream);
        *stream = nullptr;
    }
}

bool directory_exists(const char *path) {
    DIR *dir = opendir(path);
    if (dir == nullptr) {
        return false;
    }
    closedir(dir);
    return true;
}

int open_dumps(const dump_files_t &h) {
    const char *env = getenv("AUDIO_DUMP_PATH");
    const char *requested = env != nullptr ? env : ".";
    char dir[64];
    const int dir_len = snprintf(dir, sizeof dir, "%s", requested);
    // A directory that does not fit the text is refused like a missing one, rather than
    // opening files in a cut-off path.
    if (dir_len < 0 || static_cast<size_t>(dir_len) >= sizeof dir || !directory_exists(dir)) {
        algo_log(h.dbg_level, ALGO_MSG_ERR, "[%s]Fail! Dump path %s doesn't exist!\t\n",
                 "DebugDumpDataInit", requested);
        return -1;
    }
    char names[4][128];
    for (int k = 0; k < 4; ++k) {
        const int len = snprintf(names[k], sizeof names[k], kDumpNames[k], dir, h.id);
        if (len < 0 || static_cast<size_t>(len) >= sizeof names[k]) {
            algo_log(h.dbg_level, ALGO_MSG_ERR, "[%s]Fail! Dump path %s doesn't exist!\t\n",
                     "DebugDumpDataInit", requested);
            return -1;
        }
    }
    // Files left open by an earlier 1 that was followed by another unknown value.
    dump_close_all(h);
    snprintf(h.path, h.path_bytes, "%s", dir);
    FILE **streams[4] = {h.near_end, h.far_end, h.echo, h.output};
    for (int k = 0; k < 4; ++k) {
        // A failed open leaves the stream null; the writes then skip it.
        *streams[k] = fopen(names[k], "wb");
    }
    return 0;
}

}  // namespace

// Closing order: output, far end, echo, near end.
void dump_close_all(const dump_files_t &h) {
    close_stream(h.output);
    close_stream(h.far_end);
    close_stream(h.echo);
    close_stream(h.near_end);
}

int dump_follow_switch(const dump_files_t &h) {
    const char *env = getenv("AUDIO_AEC_DUMP");
    const int value = env != nullptr ? atoi(env) : 0;
    if (value == *h.flag) {
        return 0;
    }
    *h.flag = value;
    if (value == 1) {
        return open_dumps(h);
    }
    if (value == 0) {
        dump_close_all(h);
        return 0;
    }
    algo_log(h.dbg_level, ALGO_MSG_ERR, "[%s]Fail! Dump AEC export error.\t\n",
             "DebugDumpDataInit");
    return -1;
}

void DebugDumpDataWrite(FILE *stream, const short *data, size_t samples) {
    if (stream != nullptr) {
        fwrite(data, sizeof(short), samples, stream);
    }
}
