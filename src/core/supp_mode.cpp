// The intensity table and the band-mode setter. The table is not monotonic by design: low
// intensities alternate between pure target steps and pure overdrive floors, and from 16 on
// the floor is 8 while the target falls (with the jump from -30 to -45 between 19 and 20).
#include "core/supp_mode.h"

const uint32_t default_Supp_Mode[kAecBands] = {5, 4, 4, 5, 10, 10, 10};
const uint32_t default_Supp_Mode_Freq[kAecBandEdges] = {4, 6, 36, 49, 50, 51};

namespace {

struct supp_mode_entry_t {
    float target_supp;     // natural-log suppression level aimed at
    float min_over_drive;  // floor of the band's overdrive
};

const supp_mode_entry_t kIntensityTable[kSuppModeMaxIntensity + 1] = {
    {0.0f, 0.0f},   {-0.5f, 0.0f},   {-1.0f, 0.0f},  {0.0f, 1.0f},   {-3.0f, 1.0f},  {0.0f, 2.0f},
    {-1.5f, 2.0f},  {-5.0f, 1.0f},   {0.0f, 3.0f},   {-1.5f, 3.0f},  {-6.9f, 1.0f},  {-6.9f, 2.0f},
    {0.0f, 4.0f},   {0.0f, 5.0f},    {-11.5f, 1.0f}, {-11.5f, 5.0f}, {-15.0f, 8.0f}, {-20.0f, 8.0f},
    {-25.0f, 8.0f}, {-30.0f, 8.0f},  {-45.0f, 8.0f}, {-50.0f, 8.0f}, {-55.0f, 8.0f}, {-60.0f, 8.0f},
    {-70.0f, 8.0f}, {-80.0f, 90.0f},
};

}  // namespace

int supp_mode_targets(const unsigned int *Mode_Matrix, float *errThresh, float *targetSupp,
                      float *minOverDrive) {
    *errThresh = 1.5e-6f;
    for (int b = 0; b < kAecBands; ++b) {
        const unsigned int intensity = Mode_Matrix[b];
        if (intensity > kSuppModeMaxIntensity) {
            return -1;
        }
        targetSupp[b] = kIntensityTable[intensity].target_supp;
        minOverDrive[b] = kIntensityTable[intensity].min_over_drive;
    }
    return 0;
}
