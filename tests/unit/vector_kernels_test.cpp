// Element-wise kernels against their defining formulas, element by element and bit for bit
// (each element must round exactly as the scalar formula does, so that moving a loop to four
// lanes changes no output), over lengths with odd tails and from unaligned starts; the
// filter's step-control kernels likewise.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <utility>
#include <random>
#include <vector>

#include "kernels/step_control.h"
#include "kernels/vector.h"

namespace {

// n values spread uniformly over [-amp, amp], from a fixed seed.
std::vector<float> uniform(int n, float amp, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(-amp, amp);
    std::vector<float> v(n);
    for (float &x : v) {
        x = u(rng);
    }
    return v;
}

const int kLengths[] = {0, 1, 3, 4, 5, 7, 8, 9, 129, 258};

std::vector<float> noise(int n, unsigned seed) {
    return uniform(n + 1, 1000.0f, seed);
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
        {"average", vec_average, [](float a, float b) { return (a + b) / 2.0f; }},
        {"scale", [](const float *a, const float *, float *o, int n) { vec_scale(a, 0.37f, o, n); },
         [](float a, float) { return a * 0.37f; }},
        {"raise_to",
         [](const float *a, const float *, float *o, int n) { vec_raise_to(a, 100.0f, o, n); },
         [](float a, float) { return a > 100.0f ? a : 100.0f; }},
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

TEST(VectorKernels, PcmInAndOut) {
    const float specials[] = {NAN,       INFINITY, -INFINITY, 32767.5f, 32768.0f, -32768.9f,
                              -32769.0f, -0.5f,    0.99f,     -1.5f,    1e9f,     -1e9f};
    for (int n : kLengths) {
        std::vector<short> pcm(2 * n + 1);
        for (int k = 0; k < 2 * n + 1; ++k) {
            pcm[k] = static_cast<short>(k * 7919 - 32768);  // walks over the whole range
        }
        for (const auto &[channels, ch] : {std::pair{1, 0}, std::pair{2, 0}, std::pair{2, 1}}) {
            std::vector<float> in(n + 1, -5.0f);
            vec_from_pcm(pcm.data(), channels, ch, in.data(), n);
            for (int k = 0; k < n; ++k) {
                ASSERT_EQ(in[k], static_cast<float>(pcm[k * channels + ch])) << "n=" << n;
            }
            EXPECT_EQ(in[n], -5.0f);
        }
        std::vector<float> x = uniform(n, 40000.0f, 5 + n);
        for (int k = 0; k < n; ++k) {
            x[k] = k % 3 == 0 ? specials[(k / 3) % std::size(specials)] : x[k];
        }
        std::vector<short> out(n + 1, 77);
        vec_to_pcm(x.data(), out.data(), n);
        for (int k = 0; k < n; ++k) {
            const short want =
                std::isnan(x[k])
                    ? 0
                    : static_cast<short>(std::trunc(std::clamp(x[k], -32768.0f, 32767.0f)));
            ASSERT_EQ(out[k], want) << "n=" << n << " x=" << x[k];
        }
        EXPECT_EQ(out[n], 77);
    }
}

TEST(VectorKernels, ClippedPairsAreCounted) {
    const float levels[] = {32767.0f, -32768.0f, 32766.0f};
    for (int n : kLengths) {
        for (unsigned seed : {1u, 2u, 3u}) {
            const std::vector<float> r = uniform(n, 1.0f, seed * 100 + n);
            std::vector<float> x(n);
            for (int k = 0; k < n; ++k) {
                // Mostly the two rails, so that runs of equal pairs and changes both occur.
                x[k] = levels[r[k] < -0.6f ? 2 : r[k] < 0.2f ? 0 : 1];
            }
            int want = 0;
            for (int k = 1; k < n; ++k) {
                want += x[k] == x[k - 1] && (x[k] == 32767.0f || x[k] == -32768.0f);
            }
            ASSERT_EQ(count_clipped_pairs(x.data(), n), want) << "n=" << n << " seed " << seed;
        }
    }
}

TEST(VectorKernels, ConjugateNoiseAddsToRealAndSubtractsFromImaginary) {
    for (int bins : {1, 3, 4, 5, 129}) {
        const std::vector<float> spectrum = noise(2 * bins, bins), a = noise(bins, 30 + bins);
        std::vector<int16_t> x(bins), y(bins);
        for (int k = 0; k < bins; ++k) {
            x[k] = static_cast<int16_t>(k * 7919 - 32768);
            y[k] = static_cast<int16_t>(32767 - k * 4111);
        }
        std::vector<float> out = spectrum;
        vec_add_conjugate_noise(out.data(), x.data(), y.data(), a.data(), 0.25f, bins);
        for (int k = 0; k < bins; ++k) {
            const float xf = x[k], yf = y[k];
            ASSERT_EQ(out[2 * k], spectrum[2 * k] + xf * a[k] * 0.25f) << bins << " re " << k;
            ASSERT_EQ(out[2 * k + 1], spectrum[2 * k + 1] - yf * a[k] * 0.25f)
                << bins << " im " << k;
        }
        EXPECT_EQ(out[2 * bins], spectrum[2 * bins]);
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

const int kBins[] = {1, 3, 4, 5, 7, 9, 129};

// Positive values of the size of power spectra.
std::vector<float> powers(int n, unsigned seed) {
    std::vector<float> v = uniform(n + 1, 1000.0f, seed);
    for (float &x : v) {
        x = std::fabs(x);
    }
    return v;
}

TEST(StepControl, SmoothedPowerAndLeakSums) {
    for (int n : kBins) {
        const std::vector<float> Xf = powers(n, n), Rf = powers(n, 10 + n), Yf = powers(n, 20 + n);
        const std::vector<float> power0 = powers(n, 30 + n), Eh0 = powers(n, 40 + n),
                                 Yh0 = powers(n, 50 + n);
        std::vector<float> power = power0, Eh = Eh0, Yh = Yh0;
        const float ss = 0.35f / 8, a = 0.0625f;
        smooth_far_power(power.data(), Xf.data(), ss, n);
        float pey = 1.0f, pyy = 1.0f;
        leak_sums(Rf.data(), Yf.data(), a, Eh.data(), Yh.data(), n, &pey, &pyy);
        float want_ey = 1.0f, want_yy = 1.0f;
        for (int i = n - 1; i >= 0; --i) {  // from the top bin down
            const float dE = Rf[i] - Eh0[i], dY = Yf[i] - Yh0[i];
            want_ey += dE * dY;
            want_yy += dY * dY;
        }
        EXPECT_EQ(pey, want_ey) << "n=" << n;
        EXPECT_EQ(pyy, want_yy) << "n=" << n;
        for (int i = 0; i < n; ++i) {
            ASSERT_EQ(power[i], (1 - ss) * power0[i] + 1 + ss * Xf[i]) << "n=" << n << " " << i;
            ASSERT_EQ(Eh[i], (1 - a) * Eh0[i] + a * Rf[i]) << "n=" << n << " " << i;
            ASSERT_EQ(Yh[i], (1 - a) * Yh0[i] + a * Yf[i]) << "n=" << n << " " << i;
        }
        EXPECT_EQ(power[n], power0[n]);
        EXPECT_EQ(Eh[n], Eh0[n]);
        EXPECT_EQ(Yh[n], Yh0[n]);
    }
}

TEST(StepControl, StepSizesDivideExactlyAndCapTheLeak) {
    for (int n : kBins) {
        const std::vector<float> Rf = powers(n, n), Yf = powers(n, 60 + n),
                                 power = powers(n, 70 + n);
        // A leak that caps about half of the bins.
        const float leak = 0.5f, RER = 0.25f, rate = 0.0123f;
        std::vector<float> adapted(n + 1, -5.0f), fixed(n + 1, -5.0f);
        step_sizes_adapted(Rf.data(), Yf.data(), power.data(), leak, RER, adapted.data(), n);
        step_sizes_fixed(power.data(), rate, fixed.data(), n);
        for (int i = 0; i < n; ++i) {
            const float e = Rf[i] + 1;
            const float r = std::fmin(leak * Yf[i], 0.5f * e);
            ASSERT_EQ(adapted[i], (0.7f * r + 0.3f * RER * e) / ((power[i] + 10) * e))
                << "n=" << n << " " << i;
            ASSERT_EQ(fixed[i], rate / (power[i] + 10)) << "n=" << n << " " << i;
        }
        EXPECT_EQ(adapted[n], -5.0f);
        EXPECT_EQ(fixed[n], -5.0f);
    }
}

TEST(StepControl, PartitionEnergiesSumEachPartitionInOrder) {
    for (int n : {1, 3, 4, 5, 258}) {
        for (int m : {1, 3, 4, 5, 8, 9}) {
            const std::vector<float> W = uniform(n * m, 300.0f, n * 16 + m);
            std::vector<float> energy(m + 1, -5.0f);
            partition_energies(W.data(), n, m, energy.data());
            for (int k = 0; k < m; ++k) {
                float want = 1.0f;
                for (int j = 0; j < n; ++j) {
                    want += W[k * n + j] * W[k * n + j];
                }
                ASSERT_EQ(energy[k], want) << "n=" << n << " m=" << m << " partition " << k;
            }
            EXPECT_EQ(energy[m], -5.0f);
        }
    }
}

}  // namespace
