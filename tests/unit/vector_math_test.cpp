// Inner product, block copy and the 48-entry sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "dsp/vector_math.h"

namespace {

// Lengths around the vector width and one with an odd tail, against a double sum.
TEST(InnerProduct, MatchesReferenceWithinRounding) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    for (int len : {0, 1, 3, 4, 5, 7, 8, 9, 129}) {
        std::vector<float> a(len + 1), b(len + 1);
        double want = 0, mag = 0;
        for (int i = 0; i < len; ++i) {
            a[i] = d(rng);
            b[i] = d(rng);
            want += double(a[i]) * b[i];
            mag += std::fabs(double(a[i]) * b[i]);
        }
        float got = -1.0f;
        EXPECT_EQ(ne10_InnerProduct(a.data(), b.data(), &got, len), AUDIO_MATH_RET_SUCCESS);
        EXPECT_NEAR(got, want, 1e-6 * mag + 1e-30) << "length " << len;
    }
}

TEST(MemcpyFast, EverySizeAndAlignmentMatchesMemcpy) {
    std::vector<unsigned char> src(800), dst(800), ref(800);
    for (size_t i = 0; i < src.size(); ++i) {
        src[i] = static_cast<unsigned char>(i * 7 + 3);
    }
    // 64-byte aligned bases so that every offset pair covers each alignment case.
    unsigned char *s0 = src.data() + get_align_pedding(src.data(), 64) % 64;
    for (size_t n = 0; n <= 600; ++n) {
        for (int so = 0; so < 8; ++so) {
            for (int d = 0; d < 8; ++d) {
                std::fill(dst.begin(), dst.end(), 0xEE);
                std::fill(ref.begin(), ref.end(), 0xEE);
                unsigned char *d0 = dst.data() + get_align_pedding(dst.data(), 64) % 64;
                unsigned char *r0 = ref.data() + get_align_pedding(ref.data(), 64) % 64;
                ASSERT_EQ(memcpy_fast(d0 + d, s0 + so, n), d0 + d);
                memcpy(r0 + d, s0 + so, n);
                ASSERT_TRUE(std::equal(d0, d0 + 640, r0))
                    << "n=" << n << " src offset " << so << " dst offset " << d;
            }
        }
    }
}

TEST(MemcpyFast, AlignmentHelpers) {
    alignas(64) unsigned char block[128] = {};
    EXPECT_EQ(get_align_pedding(block, 64), 64u);  // already aligned: a full block, not 0
    EXPECT_EQ(get_align_pedding(block + 1, 64), 63u);
    EXPECT_EQ(get_align_pedding(block + 63, 64), 1u);
    EXPECT_TRUE(is_both_address_align_to(block + 4, block + 68, 4));
    EXPECT_TRUE(is_both_address_align_to(block + 5, block + 9, 4));
    EXPECT_FALSE(is_both_address_align_to(block + 4, block + 6, 4));
}

// Arrays of up to 48 values (the bound the sort is written for), duplicates included.
TEST(QuickSort, SortsUpToFortyEightValues) {
    std::mt19937 rng(11);
    std::uniform_int_distribution<int> d(0, 9);
    for (int n : {1, 2, 8, 12, 24, 47, 48}) {
        for (int round = 0; round < 50; ++round) {
            float v[48] = {};
            for (int i = 0; i < n; ++i) {
                v[i] = static_cast<float>(d(rng)) * 0.25f;
            }
            std::vector<float> want(v, v + n);
            std::sort(want.begin(), want.end());
            VelFuncAec_quickSort(v, 0, n - 1);
            ASSERT_TRUE(std::equal(want.begin(), want.end(), v)) << "n=" << n << " round " << round;
        }
    }
}

}  // namespace
