// The core state's documented entry points. Each is an adapter: it picks out of the instance
// what its operation sets up or reads (the FFT handle, the core record, the band targets) and
// calls the functions of aec_state.cpp and supp_mode.cpp.
#include "core/aec_state.h"
#include "core/supp_mode.h"
#include "instance.h"

int VelFuncAec_InitAec(int sampFreq, aec_workingbuf_t *buf) {
    buf->FFT_workingBuff.is_fft_init = 0;
    fft_init(&buf->FFT_workingBuff);
    aec_core_init(&buf->aec_inst, sampFreq);
    return 0;
}

// Nothing to release: the caller owns the memory.
int VelFuncAec_FreeAec(aec_workingbuf_t *buf) {
    return buf == nullptr ? -1 : 0;
}

int _QenAec_SetAecMode_Band(aec_workingbuf_t *buf, unsigned int *Mode_Matrix) {
    aec_t *aec = &buf->aec_inst;
    return supp_mode_targets(Mode_Matrix, &aec->errThresh, aec->targetSupp, aec->minOverDrive);
}
