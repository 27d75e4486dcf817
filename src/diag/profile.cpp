// Profile registry bookkeeping over an empty profiling back end. The flag is process-wide and
// touched by every instance's Init, Reset and Free, possibly while other instances run on other
// threads: it is read and written as a relaxed atomic, without a lock.
#include "diag/profile.h"

#include <atomic>

AlgoProfile_Handle g_profile_handle = nullptr;
AlgoProfile_Table g_profile_table = nullptr;
int g_is_initialed = 0;

namespace {

std::atomic_ref<int> initialed() {
    return std::atomic_ref<int>(g_is_initialed);
}

}  // namespace

ALGO_PROFILE_ERROR ModuleProfile_Init() {
    if (initialed().load(std::memory_order_relaxed) == 1) {
        return ALGO_PROFILE_ERROR_NONE;
    }
    const ALGO_PROFILE_ERROR result = AlgoProfile_Create(&g_profile_handle, &g_profile_table);
    if (result == ALGO_PROFILE_ERROR_NONE) {
        initialed().store(1, std::memory_order_relaxed);
    }
    return result;
}

// One instance's release clears the flag for all of them; the next Init or Reset of any
// instance creates the profile again. That is the intended once-per-process behaviour.
ALGO_PROFILE_ERROR ModuleProfile_Release() {
    initialed().store(0, std::memory_order_relaxed);
    return AlgoProfile_Destroy(&g_profile_handle, &g_profile_table);
}

AlgoProfile_Handle *ModuleProfile_GetHandle() {
    return &g_profile_handle;
}

ALGO_PROFILE_ERROR AlgoProfile_Create(AlgoProfile_Handle * /*handle*/,
                                      const AlgoProfile_Table * /*table*/) {
    return ALGO_PROFILE_ERROR_NONE;
}

ALGO_PROFILE_ERROR AlgoProfile_Destroy(AlgoProfile_Handle * /*handle*/,
                                       const AlgoProfile_Table * /*table*/) {
    return ALGO_PROFILE_ERROR_NONE;
}
