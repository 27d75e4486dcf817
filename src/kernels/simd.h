// The 4-lane instruction set of the kernels: NEON intrinsics, native on ARM and emulated through
// SIMDe elsewhere. Included by src/kernels/ only; the per-bin kernels use it through lanes.h.
#pragma once

#if defined(__ARM_NEON) || defined(__ARM_NEON__)
#include <arm_neon.h>
#define QENAEC_NATIVE_NEON 1
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
