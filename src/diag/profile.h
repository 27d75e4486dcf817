// The process-wide profile registry: a hook for attaching a profiler. The back end is empty;
// only the once-per-process bookkeeping that Init, Reset and Free drive is kept.
#pragma once

struct algo_profile_handle_s;
struct algo_profile_table_s;
typedef algo_profile_handle_s *AlgoProfile_Handle;
typedef algo_profile_table_s *AlgoProfile_Table;

enum ALGO_PROFILE_ERROR : int {
    ALGO_PROFILE_ERROR_NONE = 0,
    ALGO_PROFILE_ERROR_INIT = 1,
    ALGO_PROFILE_ERROR_PATH = 2,
    ALGO_PROFILE_ERROR_KERNEL = 3,
    ALGO_PROFILE_ERROR_MMAP = 4,
};

// Shared by every instance and updated without locks (Init, Reset and Free of different
// instances must not overlap).
extern AlgoProfile_Handle g_profile_handle;
extern AlgoProfile_Table g_profile_table;
extern int g_is_initialed;

ALGO_PROFILE_ERROR ModuleProfile_Init();
ALGO_PROFILE_ERROR ModuleProfile_Release();
AlgoProfile_Handle *ModuleProfile_GetHandle();

ALGO_PROFILE_ERROR AlgoProfile_Create(AlgoProfile_Handle *handle, const AlgoProfile_Table *table);
ALGO_PROFILE_ERROR AlgoProfile_Destroy(AlgoProfile_Handle *handle, const AlgoProfile_Table *table);
