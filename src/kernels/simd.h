// The 4-lane instruction set of the kernels: NEON intrinsics, native on ARM and emulated through
// SIMDe elsewhere. Included by src/kernels/ only; the per-bin kernels use it through lanes.h.
#pragma once

#if defined(__ARM_NEON) || defined(__ARM_NEON__)
#include <arm_neon.h>
#define QENAEC_NATIVE_NEON 1
#if defined(__arm__) && defined(__GNUC__) && !defined(__clang__)
// GCC's ARMv7 arm_neon.h writes the float comparisons and vnegq_f32 as generic vector
// operators, which it splits into scalar code without -funsafe-math-optimizations (which we
// do not use). These give the one NEON instruction each intrinsic stands for.
static inline uint32x4_t qenaec_vcgtq_f32(float32x4_t a, float32x4_t b) {
    uint32x4_t r;
    __asm__("vcgt.f32 %q0, %q1, %q2" : "=w"(r) : "w"(a), "w"(b));
    return r;
}
static inline uint32x4_t qenaec_vcgeq_f32(float32x4_t a, float32x4_t b) {
    uint32x4_t r;
    __asm__("vcge.f32 %q0, %q1, %q2" : "=w"(r) : "w"(a), "w"(b));
    return r;
}
static inline float32x4_t qenaec_vnegq_f32(float32x4_t a) {
    float32x4_t r;
    __asm__("vneg.f32 %q0, %q1" : "=w"(r) : "w"(a));
    return r;
}
#define vcgtq_f32(a, b) qenaec_vcgtq_f32(a, b)
#define vcgeq_f32(a, b) qenaec_vcgeq_f32(a, b)
#define vcltq_f32(a, b) qenaec_vcgtq_f32(b, a)
#define vcleq_f32(a, b) qenaec_vcgeq_f32(b, a)
#define vnegq_f32(a) qenaec_vnegq_f32(a)
#endif
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
// The kernels define their own approximate vdivq_f32/vsqrtq_f32 (ARMv7 has neither), so the
// emulation layer's exact AArch64 versions must not take those names.
#undef vdivq_f32
#undef vsqrtq_f32
#define QENAEC_NATIVE_NEON 0
#endif

#if defined(__arm__) && !QENAEC_NATIVE_NEON
#error "ARM builds must use native NEON (-mfpu=neon)"
#endif
