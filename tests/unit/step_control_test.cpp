// The step-control kernels against their per-bin formulas, bit for bit, over bin counts with
// odd tails: moving these loops to four lanes must not change the filter's output.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "kernels/step_control.h"

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
