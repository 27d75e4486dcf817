// The message mask: read from a JSON file ("debug_level") named by DML_PATH, default 7.
#pragma once

constexpr int kMsgLevelDefault = 7;
// Path used when DML_PATH is not set.
constexpr const char *kMsgLevelDefaultPath = "/config/audioAlgo.json";

// Reads the file afresh and returns the mask: 1, 3, 7 or 15; anything else, a missing file,
// a missing member or invalid JSON gives 7. Allocates a temporary buffer and frees it.
int DynamicMessageLevel();
