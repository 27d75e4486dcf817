// The floating-point mode of one frame: denormals are flushed to zero while the library
// works, and the caller's own mode is restored before control returns. Decaying recursive
// state (smoothed spectra, filter memories) reaches the denormal range in long silence, where
// some processors take a slow path for every operation on it.
//
// On x86 this sets flush-to-zero and denormals-are-zero in MXCSR (the SSE unit does all of
// the library's float and double arithmetic there). On ARMv7 the scalar unit is put in the
// mode NEON always works in, flush-to-zero and round-to-nearest, so that a loop computes the
// same bits whether it runs four lanes or one, and element-wise loops can move to NEON as
// they stand.
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
#elif defined(__arm__)
inline fp_frame_mode_t::fp_frame_mode_t() {
    constexpr unsigned kFlushToZero = 1u << 24;  // FPSCR.FZ
    constexpr unsigned kRounding = 3u << 22;     // FPSCR.RMode; 0 is to nearest
    __asm__ volatile("vmrs %0, fpscr" : "=r"(saved) : : "memory");
    const unsigned mode = (saved & ~kRounding) | kFlushToZero;
    __asm__ volatile("vmsr fpscr, %0" : : "r"(mode) : "memory");
}
inline fp_frame_mode_t::~fp_frame_mode_t() {
    __asm__ volatile("vmsr fpscr, %0" : : "r"(saved) : "memory");
}
#else
inline fp_frame_mode_t::fp_frame_mode_t() {}
inline fp_frame_mode_t::~fp_frame_mode_t() {}
#endif
