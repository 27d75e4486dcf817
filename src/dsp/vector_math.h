// Small numeric helpers shared by the core and the adaptive filter: inner product, the
// tuned block copy, the ascending sort of at most 48 floats, and the status type of the
// kernel entry points.
#pragma once

#include <cstddef>
#include <cstdint>

typedef enum AUDIO_MATH_RET {
    AUDIO_MATH_RET_SUCCESS = 0,
    AUDIO_MATH_RET_NOT_SUPPORT = 0x10000101,
    AUDIO_MATH_RET_HARDWARE_ERROR = 0x10000102
} AUDIO_MATH_RET;

AUDIO_MATH_RET ne10_InnerProduct(float *input1, float *input2, float *output, int length);
void InnerProduct_neon(float *input1, float *input2, float *output, int length);

void *memcpy_fast(void *destination, const void *source, size_t num);
bool is_both_address_align_to(const void *address_0, const void *address_1, uintptr_t align);
uintptr_t get_align_pedding(const void *address, size_t align);

// Ascending in place over number[left..right]; the upward scan is bounded by index 47, so
// the array must have 48 readable entries.
void VelFuncAec_quickSort(float *number, int left, int right);

void VelFuncAec_32X32To64_Accu(float *accu_ptr_64bits, float in1_32bits, float in2_32bits);
