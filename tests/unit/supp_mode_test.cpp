// Band intensities to per-band suppression targets and overdrive floors.
#include <gtest/gtest.h>

#include "core/supp_mode.h"
#include "fixture.h"

namespace {

struct Pair {
    float target;
    float floor;
};

// The published intensity table, index = intensity.
const Pair kTable[26] = {
    {0.0f, 0.0f},   {-0.5f, 0.0f},   {-1.0f, 0.0f},  {0.0f, 1.0f},   {-3.0f, 1.0f},  {0.0f, 2.0f},
    {-1.5f, 2.0f},  {-5.0f, 1.0f},   {0.0f, 3.0f},   {-1.5f, 3.0f},  {-6.9f, 1.0f},  {-6.9f, 2.0f},
    {0.0f, 4.0f},   {0.0f, 5.0f},    {-11.5f, 1.0f}, {-11.5f, 5.0f}, {-15.0f, 8.0f}, {-20.0f, 8.0f},
    {-25.0f, 8.0f}, {-30.0f, 8.0f},  {-45.0f, 8.0f}, {-50.0f, 8.0f}, {-55.0f, 8.0f}, {-60.0f, 8.0f},
    {-70.0f, 8.0f}, {-80.0f, 90.0f},
};

TEST(SuppMode, EveryIntensityInEveryBand) {
    auto inst = qtest::make_instance(16000);
    aec_t &aec = (*inst)->aec_inst;
    aec.errThresh = 0.0f;
    // Slide the intensities across the bands so each band sees each intensity.
    for (unsigned int start = 0; start < 26; ++start) {
        unsigned int modes[7];
        for (int b = 0; b < 7; ++b) {
            modes[b] = (start + 4 * b) % 26;
        }
        ASSERT_EQ(_QenAec_SetAecMode_Band(inst->get(), modes), 0);
        for (int b = 0; b < 7; ++b) {
            EXPECT_EQ(aec.targetSupp[b], kTable[modes[b]].target) << "intensity " << modes[b];
            EXPECT_EQ(aec.minOverDrive[b], kTable[modes[b]].floor) << "intensity " << modes[b];
        }
    }
    EXPECT_EQ(aec.errThresh, 1.5e-6f);
}

TEST(SuppMode, BadIntensityStopsAtItsBand) {
    auto inst = qtest::make_instance(16000);
    aec_t &aec = (*inst)->aec_inst;
    for (int b = 0; b < 7; ++b) {
        aec.targetSupp[b] = 123.0f;
        aec.minOverDrive[b] = 456.0f;
    }
    unsigned int modes[7] = {25, 16, 0, 26, 1, 2, 3};
    EXPECT_EQ(_QenAec_SetAecMode_Band(inst->get(), modes), -1);
    for (int b = 0; b < 3; ++b) {
        EXPECT_EQ(aec.targetSupp[b], kTable[modes[b]].target) << b;
        EXPECT_EQ(aec.minOverDrive[b], kTable[modes[b]].floor) << b;
    }
    for (int b = 3; b < 7; ++b) {
        EXPECT_EQ(aec.targetSupp[b], 123.0f) << b;
        EXPECT_EQ(aec.minOverDrive[b], 456.0f) << b;
    }
    unsigned int huge[7] = {0xFFFFFFFFu, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(_QenAec_SetAecMode_Band(inst->get(), huge), -1);
    EXPECT_EQ(aec.targetSupp[0], -80.0f);
}

}  // namespace
