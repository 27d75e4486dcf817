// Comfort noise: the tables, the level of the added noise per bin, and the process-wide read
// positions with their restart after the last table entry.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "dsp/comfort_noise.h"

namespace {

constexpr float kFloor = 5e-6f;

TEST(ComfortNoiseTables, KnownRowsAndUnitMagnitudes) {
    const int first[6][2] = {{13837, 29703},  {31464, 9152},    {-5497, -32304},
                             {-18831, 26817}, {-17451, -27735}, {-24425, 21844}};
    for (int k = 0; k < 6; ++k) {
        EXPECT_EQ(comfortNoiseX[k], first[k][0]) << k;
        EXPECT_EQ(comfortNoiseY[k], first[k][1]) << k;
    }
    EXPECT_EQ(comfortNoiseX[1023], -14718);
    EXPECT_EQ(comfortNoiseY[1023], -29277);

    int quadrant[4] = {};
    double mean_cos = 0, mean_sin = 0;
    for (int k = 0; k < 1024; ++k) {
        const double m = std::hypot(double(comfortNoiseX[k]), double(comfortNoiseY[k]));
        ASSERT_GE(m, 32767.0) << k;
        ASSERT_LE(m, 32768.7) << k;
        quadrant[(comfortNoiseX[k] < 0) * 2 + (comfortNoiseY[k] < 0)]++;
        mean_cos += comfortNoiseX[k] / m / 1024;
        mean_sin += comfortNoiseY[k] / m / 1024;
    }
    // Uniform phases: about 256 per quadrant (standard deviation about 14), means near 0.
    for (int q : quadrant) {
        EXPECT_GT(q, 190);
        EXPECT_LT(q, 320);
    }
    EXPECT_LT(std::fabs(mean_cos), 0.1);
    EXPECT_LT(std::fabs(mean_sin), 0.1);
}

// Packed spectrum of 129 bins, all of magnitude 5.
std::vector<float> equal_magnitudes() {
    const float pairs[4][2] = {{3, 4}, {-4, 3}, {5, 0}, {0, -5}};
    std::vector<float> s(258);
    for (int j = 0; j < 129; ++j) {
        s[2 * j] = pairs[j % 4][0];
        s[2 * j + 1] = pairs[j % 4][1];
    }
    return s;
}

// What must have been added to bin j: the table entry at `ind`, scaled to sqrt(g p) 2^shift.
void expect_added(const std::vector<float> &before, const std::vector<float> &after, int j, int ind,
                  double g, double p, int shift) {
    const double amp = std::sqrt(g * p) * std::ldexp(1.0, shift);
    const double re = before[2 * j] + comfortNoiseX[ind] * amp;
    const double im = before[2 * j + 1] - comfortNoiseY[ind] * amp;
    const double tol = 1e-5 * (std::fabs(comfortNoiseX[ind] * amp) + std::fabs(before[2 * j])) +
                       1e-5 * (std::fabs(comfortNoiseY[ind] * amp) + std::fabs(before[2 * j + 1]));
    EXPECT_NEAR(after[2 * j], re, tol) << "bin " << j;
    EXPECT_NEAR(after[2 * j + 1], im, tol) << "bin " << j;
}

TEST(ComfortNoise, EqualMagnitudesGetAlmostTheWholeFloor) {
    auto s = equal_magnitudes();
    const auto before = s;
    std::vector<float> noise(129);
    for (int j = 0; j < 129; ++j) {
        noise[j] = 0.01f * (j + 1);
    }
    comfort_noise_set_positions(100, 0);
    ComfortNoise_Process(s.data(), noise.data(), nullptr, 256, kFloor, 0);
    for (int j = 0; j < 129; ++j) {
        expect_added(before, s, j, 100 + j, 0.9999, noise[j], 0);
    }
    EXPECT_EQ(comfort_noise_read_position(), 229);
    EXPECT_EQ(comfort_noise_offset_position(), 0);
}

TEST(ComfortNoise, LoudestBinGetsNoneAndWeightFollowsMagnitude) {
    std::vector<float> s(258, 0.0f);
    for (int j = 0; j < 129; ++j) {
        s[2 * j] = float((j + 5) % 10);  // magnitudes 0..9; bin 0 is neither end of the range
    }
    s[1] = s[257] = 0.0f;
    s[2 * 40] = 90.0f;  // the loudest bin
    const auto before = s;
    std::vector<float> noise(129, 2.0f);
    comfort_noise_set_positions(0, 0);
    ComfortNoise_Process(s.data(), noise.data(), nullptr, 256, kFloor, 0);
    EXPECT_EQ(s[80], 90.0f);
    EXPECT_EQ(s[81], 0.0f);
    for (int j = 0; j < 129; ++j) {
        if (j != 40) {
            const double a = std::fabs(before[2 * j]) / 90.0;  // min 0, max 90
            expect_added(before, s, j, j, 0.9999 - a, 2.0, 0);
        }
    }
}

TEST(ComfortNoise, NoiseBelowTheMinimumPowerUsesTheMinimum) {
    std::vector<float> s(258, 0.0f);
    std::vector<float> noise(129, 1e-9f);
    noise[7] = 3e-3f;  // one bin above the floor keeps its own power
    comfort_noise_set_positions(500, 3);
    ComfortNoise_Process(s.data(), noise.data(), nullptr, 256, 2e-3f, 0);
    const std::vector<float> zero(258, 0.0f);
    for (int j = 0; j < 129; ++j) {
        expect_added(zero, s, j, 500 + j, 0.9999, j == 7 ? 3e-3 : 2e-3, 0);
    }
}

TEST(ComfortNoise, ShiftScalesByPowersOfTwo) {
    std::vector<float> noise(129, 0.5f);
    std::vector<float> out[3];
    const int shifts[3] = {0, 2, -2};
    for (int n = 0; n < 3; ++n) {
        out[n].assign(258, 0.0f);
        comfort_noise_set_positions(10, 0);
        ComfortNoise_Process(out[n].data(), noise.data(), nullptr, 256, kFloor, shifts[n]);
    }
    for (int i = 0; i < 258; ++i) {
        EXPECT_EQ(out[1][i], 4.0f * out[0][i]) << i;
        EXPECT_EQ(out[2][i], out[0][i] / 4.0f) << i;
    }
    EXPECT_NE(out[0][0], 0.0f);
}

TEST(ComfortNoise, ReadPositionRestartsFromATableByteAfterTheLastEntry) {
    struct Case {
        int offset;
        int restart;  // low byte of comfortNoiseX[offset]
        int next_offset;
    };
    // 13837 = 54 * 256 + 13; -14718 is 0xC682 as 16 bits, low byte 0x82 = 130.
    for (Case c : {Case{0, 13, 1}, Case{1023, 130, 0}}) {
        std::vector<float> s(258, 0.0f);
        std::vector<float> noise(129, 1.0f);
        comfort_noise_set_positions(1020, c.offset);
        ComfortNoise_Process(s.data(), noise.data(), nullptr, 256, kFloor, 0);
        // Bins 0..3 read entries 1020..1023, bin 4 the restart entry, the rest follow it.
        const std::vector<float> zero(258, 0.0f);
        expect_added(zero, s, 3, 1023, 0.9999, 1.0, 0);
        expect_added(zero, s, 4, c.restart, 0.9999, 1.0, 0);
        expect_added(zero, s, 128, c.restart + 124, 0.9999, 1.0, 0);
        EXPECT_EQ(comfort_noise_read_position(), c.restart + 125);
        EXPECT_EQ(comfort_noise_offset_position(), c.next_offset);
    }
}

}  // namespace
