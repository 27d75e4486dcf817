// 4-lane helpers on plain float and byte arrays: the inner product behind ne10_InnerProduct and
// the 64-byte block copy behind memcpy_fast (both declared with their entry points in
// dsp/vector_math.h).
#pragma once

#include <cstddef>

// Copies `blocks` blocks of 64 bytes as 16-byte vector loads and stores, prefetching the
// source `prefetch` bytes ahead.
void copy_64byte_blocks(unsigned char *dst, const unsigned char *src, size_t blocks,
                        size_t prefetch);
