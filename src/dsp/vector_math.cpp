// Inner product, the tuned block copy and the small ascending sort shared by the core and
// the adaptive filter. Their 4-lane loops (the inner product, the 64-byte blocks of the copy)
// are in kernels/vector.cpp.
#include "dsp/vector_math.h"

#include <cstring>

#include "kernels/vector.h"

AUDIO_MATH_RET ne10_InnerProduct(float *input1, float *input2, float *output, int length) {
    InnerProduct_neon(input1, input2, output, length);
    return AUDIO_MATH_RET_SUCCESS;
}

bool is_both_address_align_to(const void *address_0, const void *address_1, uintptr_t align) {
    const uintptr_t a = reinterpret_cast<uintptr_t>(address_0);
    const uintptr_t b = reinterpret_cast<uintptr_t>(address_1);
    return ((align - 1) & (a ^ b)) == 0;
}

uintptr_t get_align_pedding(const void *address, size_t align) {
    return align - (reinterpret_cast<uintptr_t>(address) & (align - 1));
}

// Every copy goes in 64-byte NEON steps on ARMv7 whatever its size and alignment: the steps
// take any alignment, and a plain or libc copy costs several times the instructions. Only
// the bytes copied matter.
void *memcpy_fast(void *destination, const void *source, size_t num) {
    copy_bytes_fast(static_cast<unsigned char *>(destination),
                    static_cast<const unsigned char *>(source), num);
    return destination;
}

void VelFuncAec_quickSort(float *number, int left, int right) {
    if (left >= right) {
        return;
    }
    const float pivot = number[left];
    int i = left;
    int j = right + 1;
    for (;;) {
        // The upward scan stops at index 47, not at `right`: callers sort 48-entry arrays.
        while (i < 47) {
            ++i;
            if (number[i] >= pivot) {
                break;
            }
        }
        while (j > 0) {
            --j;
            if (number[j] <= pivot) {
                break;
            }
        }
        if (i >= j) {
            break;
        }
        const float t = number[i];
        number[i] = number[j];
        number[j] = t;
    }
    const float t = number[left];
    number[left] = number[j];
    number[j] = t;
    VelFuncAec_quickSort(number, left, j - 1);
    VelFuncAec_quickSort(number, j + 1, right);
}

void VelFuncAec_32X32To64_Accu(float *accu_ptr_64bits, float in1_32bits, float in2_32bits) {
    *accu_ptr_64bits += in1_32bits * in2_32bits;
}
