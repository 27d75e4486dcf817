// Element-wise kernels against their defining formulas, element by element and bit for bit
// (each element must round exactly as the scalar formula does, so that moving a loop to four
// lanes changes no output), over lengths with odd tails and from unaligned starts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "kernels/vector.h"
#include "signal_ref.h"

namespace {

const int kLengths[] = {0, 1, 3, 4, 5, 7, 8, 9, 129, 258};

std::vector<float> noise(int n, unsigned seed) {
    return qtest::uniform_noise(n + 1, 1000.0f, seed);
}

struct Binary {
    const char *name;
    std::function<void(const float *, const float *, float *, int)> kernel;
    std::function<float(float, float)> formula;
};

TEST(VectorKernels, ElementWiseFormulas) {
    const float wa_value = 0.3f, wb_value = 1.7f;
    const Binary cases[] = {
        {"add", vec_add, [](float a, float b) { return a + b; }},
        {"sub", vec_sub, [](float a, float b) { return a - b; }},
        {"scale", [](const float *a, const float *, float *o, int n) { vec_scale(a, 0.37f, o, n); },
         [](float a, float) { return a * 0.37f; }},
        {"crossfade",
         [&](const float *a, const float *b, float *o, int n) {
             const std::vector<float> wa(n + 1, wa_value), wb(n + 1, wb_value);
             vec_crossfade(wa.data(), a, wb.data(), b, o, n);
         },
         [&](float a, float b) { return wa_value * a + wb_value * b; }},
    };
    for (const Binary &c : cases) {
        for (int n : kLengths) {
            for (int offset : {0, 1}) {
                const std::vector<float> a = noise(n, 1 + n), b = noise(n, 100 + n);
                std::vector<float> out(n + 2, -5.0f);
                c.kernel(a.data() + offset, b.data() + offset, out.data() + offset, n);
                for (int i = 0; i < n; ++i) {
                    ASSERT_EQ(out[offset + i], c.formula(a[offset + i], b[offset + i]))
                        << c.name << " n=" << n << " offset " << offset << " at " << i;
                }
                EXPECT_EQ(out[offset + n], -5.0f) << c.name << " wrote past n=" << n;
            }
            // In place, into the first operand.
            std::vector<float> a = noise(n, 7 + n);
            const std::vector<float> a0 = a, b = noise(n, 200 + n);
            c.kernel(a.data(), b.data(), a.data(), n);
            for (int i = 0; i < n; ++i) {
                ASSERT_EQ(a[i], c.formula(a0[i], b[i])) << c.name << " in place n=" << n;
            }
        }
    }
}

TEST(VectorKernels, PreemphasisUsesThePreviousInputAlsoInPlace) {
    for (int n : kLengths) {
        const std::vector<float> x = noise(n, 40 + n);
        const float prev = 321.5f, c = 0.9f;
        std::vector<float> out(n + 1, -5.0f), inplace = x;
        vec_preemphasis(x.data(), prev, c, out.data(), n);
        vec_preemphasis(inplace.data(), prev, c, inplace.data(), n);
        for (int i = 0; i < n; ++i) {
            const float want = x[i] - c * (i == 0 ? prev : x[i - 1]);
            ASSERT_EQ(out[i], want) << "n=" << n << " at " << i;
            ASSERT_EQ(inplace[i], want) << "in place, n=" << n << " at " << i;
        }
        EXPECT_EQ(out[n], -5.0f);
    }
}

TEST(VectorKernels, WindowPairRisesThenFalls) {
    for (int half : {1, 3, 4, 5, 9, 128}) {
        const std::vector<float> pair = noise(2 * half, half);
        std::vector<float> w(half + 1);
        for (int i = 0; i <= half; ++i) {
            w[i] = 0.01f * static_cast<float>(i + 1);  // distinct, so a wrong index shows
        }
        std::vector<float> out(2 * half + 1, -5.0f), inplace = pair;
        vec_window_pair(pair.data(), w.data(), out.data(), half);
        vec_window_pair(inplace.data(), w.data(), inplace.data(), half);
        for (int i = 0; i < half; ++i) {
            ASSERT_EQ(out[i], pair[i] * w[i]) << "half " << half << " at " << i;
            ASSERT_EQ(out[half + i], pair[half + i] * w[half - i])
                << "half " << half << " at " << i;
            ASSERT_EQ(inplace[i], out[i]);
            ASSERT_EQ(inplace[half + i], out[half + i]);
        }
        EXPECT_EQ(out[2 * half], -5.0f);
    }
}

TEST(VectorKernels, RangeFindsTheExtremesAndSkipsLaterNaNs) {
    for (int n : kLengths) {
        if (n == 0) {
            continue;
        }
        std::vector<float> x = noise(n, 60 + n);
        x.resize(n);
        float lo = 0, hi = 0;
        vec_range(x.data(), n, &lo, &hi);
        EXPECT_EQ(lo, *std::min_element(x.begin(), x.end())) << "n=" << n;
        EXPECT_EQ(hi, *std::max_element(x.begin(), x.end())) << "n=" << n;
        if (n > 1) {
            const int at = n / 2 + 1 < n ? n / 2 + 1 : 1;  // past x[0], in a group or the tail
            x[at] = NAN;
            float nan_lo = 0, nan_hi = 0;
            vec_range(x.data(), n, &nan_lo, &nan_hi);
            x.erase(x.begin() + at);
            EXPECT_EQ(nan_lo, *std::min_element(x.begin(), x.end())) << "NaN, n=" << n;
            EXPECT_EQ(nan_hi, *std::max_element(x.begin(), x.end())) << "NaN, n=" << n;
        }
    }
}

TEST(VectorKernels, ConjugateNegatesOnlyImaginaryParts) {
    for (int bins : {1, 3, 4, 5, 129}) {
        const std::vector<float> x = noise(2 * bins, bins);
        std::vector<float> out(2 * bins + 1, -5.0f);
        vec_conjugate(x.data(), out.data(), bins);
        for (int k = 0; k < bins; ++k) {
            ASSERT_EQ(out[2 * k], x[2 * k]) << "bins " << bins << " re " << k;
            ASSERT_EQ(out[2 * k + 1], -x[2 * k + 1]) << "bins " << bins << " im " << k;
        }
        EXPECT_EQ(out[2 * bins], -5.0f);
    }
}

}  // namespace
