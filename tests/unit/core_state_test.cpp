// Core tables and the start state of the echo-canceller core.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "fixture.h"
#include "instance.h"

namespace {

using testing::Each;

TEST(CoreTables, WindowIsTheRisingHalfOfSqrtHann) {
    EXPECT_EQ(sqrtHanning, FloatingFftInWindow256);
    EXPECT_EQ(FloatingFftInWindow256[0], 0.0f);
    EXPECT_EQ(FloatingFftInWindow256[128], 1.0f);
    EXPECT_FLOAT_EQ(FloatingFftInWindow256[64], static_cast<float>(std::sqrt(0.5)));
    for (int i = 1; i <= 128; ++i) {
        EXPECT_GT(FloatingFftInWindow256[i], FloatingFftInWindow256[i - 1]);
    }
}

TEST(CoreTables, CurvesCarryFourDecimals) {
    EXPECT_EQ(VelFuncAec_weightCurve[0], 0.0f);
    EXPECT_EQ(VelFuncAec_overDriveCurve[0], 1.0f);
    for (int i = 1; i <= 128; ++i) {
        const double w = 0.1 + 0.3 * std::sqrt((i - 1) / 127.0);
        const double c = 1 + std::sqrt(i / 128.0);
        EXPECT_NEAR(VelFuncAec_weightCurve[i], w, 0.5e-4 + 1e-7) << i;
        EXPECT_NEAR(VelFuncAec_overDriveCurve[i], c, 0.5e-4 + 1e-7) << i;
        for (const float *t : {VelFuncAec_weightCurve, VelFuncAec_overDriveCurve}) {
            EXPECT_EQ(t[i], static_cast<float>(std::round(t[i] * 1e4) / 1e4)) << i;
        }
    }
}

class CoreInit : public testing::TestWithParam<int> {};

TEST_P(CoreInit, StartState) {
    const int rate = GetParam();
    auto block = qtest::make_instance(rate);
    const aec_t &a = block->get()->aec_inst;
    EXPECT_EQ(a.sampFreq, rate);
    EXPECT_EQ(a.mult, rate / 8000);
    EXPECT_EQ(a.seed, 777u);
    EXPECT_EQ(a.noisePow, a.dInitMinPow);
    EXPECT_THAT(a.dMinPow, Each(500000.0f));
    EXPECT_THAT(a.sd, Each(1.0f));
    EXPECT_THAT(a.sy, Each(1.0f));
    EXPECT_THAT(a.se, Each(0.0f));
    EXPECT_THAT(a.overDrive, Each(2.0f));
    EXPECT_THAT(a.overDriveSm, Each(2.0f));
    EXPECT_THAT(a.targetSupp, Each(-1.5f));
    EXPECT_THAT(a.minOverDrive, Each(1.0f));
    EXPECT_EQ(block->get()->FFT_workingBuff.is_fft_init, 1);
}

INSTANTIATE_TEST_SUITE_P(Rates, CoreInit, testing::Values(8000, 16000, 32000, 48000));

TEST(CoreInit, ReinitialisingRebuildsThePlan) {
    auto block = qtest::make_instance(16000);
    aec_workingbuf_t *buf = block->get();
    buf->aec_inst.sd[3] = 42.0f;
    EXPECT_EQ(qtest::capture_stdout([&] { VelFuncAec_InitAec(48000, buf); }), "");
    EXPECT_EQ(buf->aec_inst.mult, 6);
    EXPECT_EQ(buf->aec_inst.sd[3], 1.0f);
    EXPECT_EQ(buf->FFT_workingBuff.is_fft_init, 1);
}

TEST(CoreInit, FreeChecksOnlyForNull) {
    auto block = qtest::make_instance(16000);
    EXPECT_EQ(VelFuncAec_FreeAec(nullptr), -1);
    EXPECT_EQ(VelFuncAec_FreeAec(block->get()), 0);
}

static_assert(std::is_standard_layout_v<aec_workingbuf_t> && std::is_standard_layout_v<aec_t> &&
              std::is_standard_layout_v<MdfEchoState> &&
              std::is_trivially_copyable_v<aec_workingbuf_t>);
static_assert(offsetof(aec_workingbuf_t, aec_inst) == 0);
static_assert(offsetof(aec_workingbuf_t, mdf_workingbuff) < offsetof(aec_workingbuf_t, fft_aec_ip));
static_assert(offsetof(aec_workingbuf_t, dump_id) < offsetof(aec_workingbuf_t, mdf_error));
static_assert(sizeof(aec_workingbuf_t) % alignof(void *) == 0);

}  // namespace
