// 4-lane helpers on plain float and byte arrays: element-wise kernels on sample blocks and
// spectra, the bulk copies and clears (behind memcpy_fast among others; the inner product is
// declared with its entry point in dsp/vector_math.h). The element-wise kernels take any length:
// four elements at a time, then the rest one by one, each element computed exactly as its scalar
// formula (the frame's FP mode makes both widths round alike).
#pragma once

#include <cstddef>
#include <cstdint>

// out[i] = x[i] * s. `out` may be `x`.
void vec_scale(const float *x, float s, float *out, int n);
// out[i] = a[i] + b[i], and out[i] = a[i] - b[i]. `out` may be `a` or `b`.
void vec_add(const float *a, const float *b, float *out, int n);
void vec_sub(const float *a, const float *b, float *out, int n);
// out[i] = (a[i] + b[i]) / 2, the halving done as the exact multiplication by 0.5. `out` may be
// `a` or `b`.
void vec_average(const float *a, const float *b, float *out, int n);
// out[i] = wa[i] * a[i] + wb[i] * b[i]. `out` may be `a` or `b`.
void vec_crossfade(const float *wa, const float *a, const float *wb, const float *b, float *out,
                   int n);
// out[i] = x[i] - c * x[i - 1] with x[-1] = prev: first-order pre-emphasis. `out` may be `x`.
void vec_preemphasis(const float *x, float prev, float c, float *out, int n);
// A pair of `half`-sample blocks under a symmetric window of which `w` holds the rising half
// (half + 1 values): out[i] = pair[i] * w[i], out[half + i] = pair[half + i] * w[half - i].
// `out` may be `pair`.
void vec_window_pair(const float *pair, const float *w, float *out, int half);
// The smallest and largest of x[0..n), n >= 1, as a scan from x[0] that takes an element only
// when it is strictly below (above) the one held: a NaN after x[0] is never taken, a NaN
// x[0] is kept. Between +0 and -0, which compare equal, either may come out.
void vec_range(const float *x, int n, float *lo, float *hi);
// out[i] = x[i] if lo < x[i], else lo (so a NaN x[i] gives lo). `out` may be `x`.
void vec_raise_to(const float *x, float lo, float *out, int n);
// Noise into the `bins` (re, im) pairs of `spectrum`, conjugated: re += x[k] * a[k] * s and
// im -= y[k] * a[k] * s, with x and y 16-bit integers taken as floats and the products rounded
// left to right.
void vec_add_conjugate_noise(float *spectrum, const int16_t *x, const int16_t *y, const float *a,
                             float s, int bins);
// The complex conjugates of the `bins` (re, im) pairs of x into out.
void vec_conjugate(const float *x, float *out, int bins);

// PCM in and out. vec_from_pcm: out[k] = channel `ch` of the k-th frame of 16-bit PCM with
// `channels` (1 or 2) interleaved channels, as a float. vec_to_pcm: out[k] = x[k] clamped to
// [-32768, 32767] and truncated toward zero, a NaN as 0. count_clipped_pairs: how many k in
// [1, n) have x[k - 1] and x[k] both at 32767 or both at -32768.
void vec_from_pcm(const short *pcm, int channels, int ch, float *out, int n);
void vec_to_pcm(const float *x, short *out, int n);
int count_clipped_pairs(const float *x, int n);
// True when some |pcm[k]|, k < n, exceeds `threshold` (taken as a 32-bit magnitude, so that
// -32768 counts as 32768).
bool pcm_exceeds(const short *pcm, int n, int threshold);

// Bulk copies and clears of the frame's arrays. copy_bytes_fast copies n bytes between areas
// that do not overlap; on ARMv7 in 64-byte steps of two 32-byte NEON loads and stores (libc's
// copy takes several times as many instructions), elsewhere through memcpy. copy_floats and
// zero_floats do the same for n floats.
void copy_bytes_fast(unsigned char *dst, const unsigned char *src, size_t n);
void copy_floats(float *dst, const float *src, int n);
void zero_floats(float *dst, int n);
