// Reads the message mask from the JSON file through the platform file layer. The file's
// bytes are not terminated, so they are parsed with their length; the parse tree and the
// temporary buffer are both released before returning.
#include "diag/msglevel.h"

#include <cjson/cJSON.h>

#include <cstdio>
#include <cstdlib>

#include "diag/platform.h"

namespace {

// Only these masks are honoured; 0 in particular means "everything", not silence.
int accepted_level(int level) {
    return (level == 15 || level == 7 || level == 3 || level == 1) ? level : kMsgLevelDefault;
}

int level_from_json(const char *bytes, size_t size) {
    int level = kMsgLevelDefault;
    cJSON *root = cJSON_ParseWithLength(bytes, size);
    if (root == nullptr) {
        return level;
    }
    const cJSON *item = cJSON_GetObjectItem(root, "debug_level");
    if (item != nullptr) {
        level = accepted_level(item->valueint);
    }
    cJSON_Delete(root);
    return level;
}

}  // namespace

int DynamicMessageLevel() {
    int level = kMsgLevelDefault;
    // A longer DML_PATH is cut to this text, as the device's own reader does.
    char path[128];
    const char *env = getenv("DML_PATH");
    snprintf(path, sizeof path, "%s", env != nullptr ? env : kMsgLevelDefaultPath);

    int fd = -1;
    if (DulFsOpen(&fd, path, kDulFsOpenRead, kDulFsModeDefault) != DUL_FS_OK) {
        return level;
    }
    const long size = DulFsSeek(fd, 0, DUL_FS_SEEK_END);
    DulFsSeek(fd, 0, DUL_FS_SEEK_SET);
    if (size > 0) {
        char *bytes = static_cast<char *>(DulOsMemAlloc(static_cast<size_t>(size)));
        if (bytes != nullptr) {
            const long got = DulFsRead(fd, bytes, static_cast<size_t>(size));
            if (got != 0) {
                level = level_from_json(bytes, static_cast<size_t>(got));
            }
            DulOsMemRelease(bytes);
        }
    }
    DulFsClose(fd);
    return level;
}
