// Spectral arithmetic kernels against plain scalar references, over lengths whose tails are
// not a multiple of 4 bins.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "kernels/spectral.h"
#include "signal_ref.h"

namespace {

std::vector<float> random_floats(size_t n, unsigned seed, float scale = 1000.0f) {
    return qtest::uniform_noise(static_cast<int>(n), scale, seed);
}

// Tolerance scaled to the magnitude of the terms that were summed.
void expect_close(float got, double want, double magnitude, const char *what, int index) {
    EXPECT_NEAR(got, want, 1e-6 * magnitude + 1e-30) << what << " at " << index;
}

const int kLengths[] = {2, 6, 8, 10, 16, 18, 258};
// Lengths whose single-bin tail is at most one bin (the Nyquist bin), as the filter uses them:
// with more tail bins the tail's imaginary terms land at the partition index instead.
const int kOneBinTailLengths[] = {2, 8, 10, 16, 18, 258};

TEST(PowerSpectrum, MatchesReference) {
    for (int n : kLengths) {
        auto x = random_floats(n, n);
        std::vector<float> ps(n / 2 + 1, -1.0f);
        EXPECT_EQ(VelFunAec_PowerSpectrum(x.data(), ps.data(), n), AUDIO_MATH_RET_SUCCESS);
        for (int k = 0; k < n / 2; ++k) {
            const double want = double(x[2 * k]) * x[2 * k] + double(x[2 * k + 1]) * x[2 * k + 1];
            expect_close(ps[k], want, want, "ps", k);
        }
        EXPECT_EQ(ps[n / 2], -1.0f) << "wrote past length/2 outputs for n=" << n;
    }
}

TEST(SpectralMulAccum, SumsPlainComplexProductsOverPartitions) {
    for (int n : kOneBinTailLengths) {
        for (int m : {1, 3, 8}) {
            auto x = random_floats(n * m, 10 + n);
            auto y = random_floats(n * m, 20 + n);
            // Zero Nyquist imaginary parts, as real-signal spectra have.
            for (int i = 0; i < m; ++i) {
                x[i * n + n - 1] = y[i * n + n - 1] = 0.0f;
            }
            // The tail writes its (zero) imaginary term at index partition + 1, which for
            // tiny spectra lies past the spectrum.
            std::vector<float> acc(std::max(n, m + 1), 123.0f);
            VelFunc_SpectralMulAccum(x.data(), y.data(), acc.data(), n, m);
            for (int k = 0; k < n / 2; ++k) {
                double re = 0, im = 0, mag = 0;
                for (int i = 0; i < m; ++i) {
                    const double xr = x[i * n + 2 * k], xi = x[i * n + 2 * k + 1];
                    const double yr = y[i * n + 2 * k], yi = y[i * n + 2 * k + 1];
                    re += xr * yr - xi * yi;
                    im += xr * yi + xi * yr;
                    mag += std::hypot(xr, xi) * std::hypot(yr, yi);
                }
                expect_close(acc[2 * k], re, mag, "re", k);
                expect_close(acc[2 * k + 1], im, mag, "im", k);
            }
        }
    }
}

TEST(SpectralMulAccum, NoPartitionsGivesZeros) {
    std::vector<float> acc(258, 5.0f);
    VelFunc_SpectralMulAccum(nullptr, nullptr, acc.data(), 258, 0);
    for (float v : acc) {
        ASSERT_EQ(v, 0.0f);
    }
}

TEST(SpectralMulAccum, TailImaginaryTermGoesToThePartitionIndex) {
    const int n = 258, m = 8;
    std::vector<float> x(n * m, 0.0f), y(n * m, 0.0f);
    // Only partition 3's Nyquist bin is non-zero, with an imaginary part.
    x[3 * n + 256] = 2.0f;
    x[3 * n + 257] = 3.0f;
    y[3 * n + 256] = 5.0f;
    y[3 * n + 257] = 7.0f;
    std::vector<float> acc(n, 9.0f);
    VelFunc_SpectralMulAccum(x.data(), y.data(), acc.data(), n, m);
    EXPECT_EQ(acc[256], 2.0f * 5.0f - 3.0f * 7.0f);
    EXPECT_EQ(acc[4], 2.0f * 7.0f + 3.0f * 5.0f);  // index partition + 1
    EXPECT_EQ(acc[257], 0.0f);
    for (int j = 0; j < n; ++j) {
        if (j != 256 && j != 4) {
            ASSERT_EQ(acc[j], 0.0f) << j;
        }
    }
}

TEST(WeightedSpectralMulConj, MatchesReference) {
    for (int n : kLengths) {
        auto w = random_floats(n / 2, 30 + n, 2.0f);
        auto x = random_floats(n, 40 + n);
        auto y = random_floats(n, 50 + n);
        const float p = 0.37f;
        std::vector<float> prod(n + 1, -7.0f);
        VelFunc_WeightedSpectralMulConj(w.data(), p, x.data(), y.data(), prod.data(), n);
        for (int k = 0; k < n / 2; ++k) {
            const double xr = x[2 * k], xi = x[2 * k + 1], yr = y[2 * k], yi = y[2 * k + 1];
            const double g = double(p) * w[k];
            const double mag = std::fabs(g) * std::hypot(xr, xi) * std::hypot(yr, yi);
            expect_close(prod[2 * k], g * (xr * yr + xi * yi), mag, "re", k);
            expect_close(prod[2 * k + 1], g * (xr * yi - xi * yr), mag, "im", k);
        }
        EXPECT_EQ(prod[n], -7.0f);
    }
}

// The accumulating form adds the very product the plain form stores (checked above against
// the formula), rounded before the addition: the weight update must not change by the fusion.
TEST(WeightedSpectralMulConj, AccumulatingFormAddsTheRoundedProduct) {
    for (int n : kLengths) {
        auto w = random_floats(n / 2, 60 + n, 2.0f);
        auto x = random_floats(n, 70 + n);
        auto y = random_floats(n, 80 + n);
        const auto acc0 = random_floats(n + 1, 90 + n, 3.0f);
        std::vector<float> prod(n), acc = acc0;
        VelFunc_WeightedSpectralMulConj(w.data(), 0.37f, x.data(), y.data(), prod.data(), n);
        WeightedSpectralMulConjAccum(w.data(), 0.37f, x.data(), y.data(), acc.data(), n);
        for (int i = 0; i < n; ++i) {
            ASSERT_EQ(acc[i], acc0[i] + prod[i]) << "n=" << n << " at " << i;
        }
        EXPECT_EQ(acc[n], acc0[n]);
    }
}

// One pass must give what scaling and then the power spectrum (checked above) give.
TEST(ScaledPowerSpectrum, ScalesInPlaceAndTakesThePowerOfTheScaledBins) {
    for (int n : kLengths) {
        const auto x = random_floats(n, 100 + n);
        std::vector<float> scaled = x, ps(n / 2 + 1, -7.0f), want(n / 2);
        for (float &v : scaled) {
            v *= 0.00390625f;
        }
        VelFunAec_PowerSpectrum(scaled.data(), want.data(), n);
        std::vector<float> inplace = x;
        ScaledPowerSpectrum(inplace.data(), 0.00390625f, ps.data(), n);
        EXPECT_EQ(inplace, scaled) << "n=" << n;
        for (int k = 0; k < n / 2; ++k) {
            ASSERT_EQ(ps[k], want[k]) << "n=" << n << " bin " << k;
        }
        EXPECT_EQ(ps[n / 2], -7.0f);
    }
}

TEST(WeightedSpectralMulConj, ZeroWeightOrStepWritesZeros) {
    auto x = random_floats(258, 1);
    auto y = random_floats(258, 2);
    auto w = random_floats(129, 3);
    std::vector<float> zeros(129, 0.0f);
    for (const auto &[weights, p] : {std::pair{w.data(), 0.0f}, std::pair{zeros.data(), 0.5f}}) {
        std::vector<float> prod(258, 1.0f);
        VelFunc_WeightedSpectralMulConj(weights, p, x.data(), y.data(), prod.data(), 258);
        EXPECT_THAT(prod, testing::Each(testing::FloatEq(0.0f))) << "p " << p;
    }
}

}  // namespace
