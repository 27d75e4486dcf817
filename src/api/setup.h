// Instance set-up behind the exported functions: buffer size, Init with its record check,
// Config and GetConfig, Reset, Free, and the two small setters. Init and Reset report
// failure by a null handle only; the reason is printed.
#pragma once

#include "qen_aec.h"

unsigned int _QenAec_GetBufferSize();
AEC_HANDLE _QenAec_Init(char *workingBufferAddress, AudioAecInit *aec_init);
// Checks, in order, point number, near-end and far-end channels and rate; prints the first
// failure at error level of `dbg_lv` and returns its code.
ALGO_AEC_RET _QenAec_CheckAudioAecInitElement(AudioAecInit *aec_init, int dbg_lv);
ALGO_AEC_RET _QenAec_Config(AEC_HANDLE handle, AudioAecConfig *aec_config);
// Per-band targets from seven intensities; 0, or -1 on a null argument or a bad intensity.
int _QenAec_SetModeByFreqBand(AEC_HANDLE handle, unsigned int *Matrix_Mode);
ALGO_AEC_RET _QenAec_GetConfig(AEC_HANDLE handle, AudioAecInit *aec_init,
                               AudioAecConfig *aec_config);
AEC_HANDLE _QenAec_Reset(char *workingBufferAddress, AudioAecInit *aec_init);
// 0, or -1 (all bits set) for a null handle.
ALGO_AEC_RET _QenAec_Free(AEC_HANDLE handle);
ALGO_AEC_RET _QenAec_SetRecursiveRatio(AEC_HANDLE handle, unsigned int recursive_ratio);
ALGO_AEC_RET _QenAec_SetHandleId(AEC_HANDLE handle, int id);
