// The frame driver: one frame through both stages, the linear stage alone, or the nonlinear
// stage alone.
#pragma once

#include "qen_aec.h"

ALGO_AEC_RET _QenAec_Run(AEC_HANDLE handle, short *pssAduioNearEndIn, short *pssAduioFarEndIn);
ALGO_AEC_RET _QenAec_ADF_Run(AEC_HANDLE handle, short *pssAduioNearEndIn,
                             short *pssAduioFarEndIn);
ALGO_AEC_RET _QenAec_NLP_Run(AEC_HANDLE handle, short *pssAduioNearEndIn);
