// The library's exported surface: thin forwarders to the internal functions, adding nothing.
#include "qen_aec.h"

#include "api/run.h"
#include "api/setup.h"
#include "api/version.h"

extern "C" {

QEN_AEC_API unsigned int QenAec_GetBufferSize(void) { return _QenAec_GetBufferSize(); }

QEN_AEC_API AEC_HANDLE QenAec_Init(char *working_buffer_address, AudioAecInit *aec_init) {
    return _QenAec_Init(working_buffer_address, aec_init);
}

QEN_AEC_API ALGO_AEC_RET QenAec_Config(AEC_HANDLE handle, AudioAecConfig *aec_config) {
    return _QenAec_Config(handle, aec_config);
}

QEN_AEC_API ALGO_AEC_RET QenAec_GetConfig(AEC_HANDLE handle, AudioAecInit *aec_init,
                                          AudioAecConfig *aec_config) {
    return _QenAec_GetConfig(handle, aec_init, aec_config);
}

QEN_AEC_API AEC_HANDLE QenAec_Reset(char *working_buffer_address, AudioAecInit *aec_init) {
    return _QenAec_Reset(working_buffer_address, aec_init);
}

QEN_AEC_API ALGO_AEC_RET QenAec_Free(AEC_HANDLE handle) { return _QenAec_Free(handle); }

QEN_AEC_API ALGO_AEC_RET QenAec_Run(AEC_HANDLE handle, short *pss_aduio_near_end,
                                    short *pss_aduio_far_end) {
    return _QenAec_Run(handle, pss_aduio_near_end, pss_aduio_far_end);
}

QEN_AEC_API ALGO_AEC_RET QenAec_ADF_Run(AEC_HANDLE handle, short *pss_aduio_near_end,
                                        short *pss_aduio_far_end) {
    return _QenAec_ADF_Run(handle, pss_aduio_near_end, pss_aduio_far_end);
}

QEN_AEC_API ALGO_AEC_RET QenAec_NLP_Run(AEC_HANDLE handle, short *pss_aduio_near_end) {
    return _QenAec_NLP_Run(handle, pss_aduio_near_end);
}

QEN_AEC_API ALGO_AEC_RET QenAec_GetLibVersion(unsigned short *ver_year, unsigned short *ver_date,
                                              unsigned short *ver_time) {
    return _QenAec_GetLibVersion(ver_year, ver_date, ver_time);
}

QEN_AEC_API ALGO_AEC_RET QenAec_SetRecursiveRatio(AEC_HANDLE handle,
                                                  unsigned int recursive_ratio) {
    return _QenAec_SetRecursiveRatio(handle, recursive_ratio);
}

QEN_AEC_API ALGO_AEC_RET QenAec_GetAPIVersion(unsigned short *major, unsigned short *minor) {
    return _QenAec_GetAPIVersion(major, minor);
}

QEN_AEC_API ALGO_AEC_RET QenAec_SetHandleId(AEC_HANDLE handle, int id) {
    return _QenAec_SetHandleId(handle, id);
}

}  // extern "C"
