// The inner product in four lanes (lane l sums the products of indices l mod 4, the lanes are
// added in order, then the remainder one by one) and the vector block copy of memcpy_fast.
#include "kernels/vector.h"

#include "dsp/vector_math.h"
#include "kernels/simd.h"

void InnerProduct_neon(float *input1, float *input2, float *output, int length) {
    *output = 0.0f;
    float32x4_t lanes = vdupq_n_f32(0.0f);
    int i = 0;
    for (; i + 3 < length; i += 4) {
        lanes = vmlaq_f32(lanes, vld1q_f32(input1 + i), vld1q_f32(input2 + i));
    }
    *output = *output +
              (((vgetq_lane_f32(lanes, 0) + vgetq_lane_f32(lanes, 1)) + vgetq_lane_f32(lanes, 2)) +
               vgetq_lane_f32(lanes, 3));
    for (; i < length; ++i) {
        *output += input1[i] * input2[i];
    }
}

void copy_64byte_blocks(unsigned char *dst, const unsigned char *src, size_t blocks,
                        size_t prefetch) {
    for (size_t b = 0; b < blocks; ++b, dst += 64, src += 64) {
        __builtin_prefetch(src + prefetch);
        vst1q_u8(dst, vld1q_u8(src));
        vst1q_u8(dst + 16, vld1q_u8(src + 16));
        vst1q_u8(dst + 32, vld1q_u8(src + 32));
        vst1q_u8(dst + 48, vld1q_u8(src + 48));
    }
}
