// The floating-point mode of one frame: denormals are flushed to zero while the library
// works, and the caller's own mode is restored before control returns. Decaying recursive
// state (smoothed spectra, filter memories) reaches the denormal range in long silence, where
// some processors take a slow path for every operation on it.
//
// On x86 this sets flush-to-zero and denormals-are-zero in MXCSR (the SSE unit does all of
// the library's float and double arithmetic there). ARMv7 NEON flushes denormals by itself
// and the scalar unit of the target handles them at full speed, so elsewhere nothing changes.
#pragma once

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

// Lives for one frame on the stack of a run function.
struct fp_frame_mode_t {
    fp_frame_mode_t();
    ~fp_frame_mode_t();
    fp_frame_mode_t(const fp_frame_mode_t &) = delete;
    fp_frame_mode_t &operator=(const fp_frame_mode_t &) = delete;
    unsigned saved = 0;
};

#if defined(__SSE__)
inline fp_frame_mode_t::fp_frame_mode_t() : saved(_mm_getcsr()) {
    constexpr unsigned kFlushBits = 0x8040u;  // FTZ (bit 15) and DAZ (bit 6)
    _mm_setcsr(saved | kFlushBits);
}
inline fp_frame_mode_t::~fp_frame_mode_t() {
    _mm_setcsr(saved);
}
#else
inline fp_frame_mode_t::fp_frame_mode_t() {}
inline fp_frame_mode_t::~fp_frame_mode_t() {}
#endif
