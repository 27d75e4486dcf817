// Suppression mode by band: turns the seven band intensities (0..25) into the per-band
// suppression target and overdrive floor of the nonlinear stage, and holds the default band
// table installed by Init and Reset.
#pragma once

#include <cstdint>

#include "dims.h"

struct aec_workingbuf_t;

constexpr int kSuppModeMaxIntensity = 25;

extern const uint32_t default_Supp_Mode[kAecBands];           // intensities of bands 0..6
extern const uint32_t default_Supp_Mode_Freq[kAecBandEdges];  // upper edge bin of bands 0..5

// supp_mode_targets on the core state; the adapter is in state_adapters.cpp.
int _QenAec_SetAecMode_Band(aec_workingbuf_t *aec_internal_buf_in, unsigned int *Mode_Matrix);

// Sets `errThresh` and, band by band, `targetSupp` and `minOverDrive` (7 each) from
// `Mode_Matrix` (7 intensities). Returns 0, or -1 at the first intensity above 25 (earlier
// bands are already set, later ones untouched).
int supp_mode_targets(const unsigned int *Mode_Matrix, float *errThresh, float *targetSupp,
                      float *minOverDrive);
