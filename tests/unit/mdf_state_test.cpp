// Adaptive-filter state: control requests, the values set up by init, what a reset clears
// and what it keeps, and the warning lines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "fixture.h"

namespace {

using testing::Each;

TEST(MdfCtl, FrameSizeAndRateRequests) {
    auto inst = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst->get();
    const MdfEchoState &st = buf->mdf_workingbuff;
    EXPECT_FLOAT_EQ(st.spec_average, 0.008f);
    EXPECT_FLOAT_EQ(st.beta0, 0.016f);
    EXPECT_FLOAT_EQ(st.beta_max, 0.004f);

    struct Case {
        int rate;
        float radius;
    };
    const Case cases[] = {{8000, 0.9f},    {11999, 0.9f},   {12000, 0.982f}, {23999, 0.982f},
                          {24000, 0.992f}, {48000, 0.992f}, {16000, 0.982f}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.rate);
        int rate = c.rate;
        ASSERT_EQ(mdf_echo_ctl(buf, 24, &rate), 0);
        EXPECT_EQ(st.notch_radius, c.radius);
        EXPECT_EQ(buf->aec_inst.sampFreq, c.rate);
        EXPECT_FLOAT_EQ(st.beta0 * static_cast<float>(c.rate), 256.0f);
        int got = -1;
        ASSERT_EQ(mdf_echo_ctl(buf, 25, &got), 0);
        EXPECT_EQ(got, c.rate);
        int frame = -1;
        ASSERT_EQ(mdf_echo_ctl(buf, 3, &frame), 0);
        EXPECT_EQ(frame, 128);
    }
}

TEST(MdfCtl, RateChangeKeepsTheFilter) {
    auto inst = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst->get();
    buf->aec_inst.wfBuf[5] = 3.0f;
    buf->mdf_workingbuff.foreground[7] = 4.0f;
    int rate = 48000;
    mdf_echo_ctl(buf, 24, &rate);
    EXPECT_EQ(buf->aec_inst.wfBuf[5], 3.0f);
    EXPECT_EQ(buf->mdf_workingbuff.foreground[7], 4.0f);
}

TEST(MdfCtl, UnknownRequestWarnsAndChangesNothing) {
    auto inst = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst->get();
    const std::vector<unsigned char> before(inst->raw(), inst->raw() + inst->size());
    int value = 77;
    int result = 0;
    const std::string err = qtest::capture_stderr([&] { result = mdf_echo_ctl(buf, 26, &value); });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(err, "warning: Unknown mdf_echo_ctl request:  26\n");
    EXPECT_EQ(value, 77);
    EXPECT_EQ(memcmp(before.data(), inst->raw(), inst->size()), 0);
}

// The proportional weights and the window from their definitions; the last 16 weights of
// the filter are left as they were.
TEST(MdfInit, InitialValues) {
    auto inst = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst->get();
    std::fill(std::begin(buf->aec_inst.wfBuf), std::end(buf->aec_inst.wfBuf), 9.0f);
    ASSERT_EQ(mdf_echo_state_init(buf, 128, 1024), 0);
    const MdfEchoState &st = buf->mdf_workingbuff;

    const double decay = std::exp(-double(2.4f / 8.0f));
    double prop[8], sum = 0;
    for (int i = 0; i < 8; ++i) {
        prop[i] = i == 0 ? 0.7 : prop[i - 1] * decay;
        sum += prop[i];
    }
    for (int i = 0; i < 8; ++i) {
        EXPECT_NEAR(st.prop[i], 0.8 * prop[i] / sum, 1e-6 * prop[i]) << i;
    }
    for (int i = 0; i < 256; ++i) {
        EXPECT_FLOAT_EQ(st.window[i], float(0.5 - 0.5 * std::cos(2 * M_PI * i / 256))) << i;
    }
    EXPECT_THAT(st.power_1, Each(1.0f));
    EXPECT_THAT(std::vector<float>(buf->aec_inst.wfBuf, buf->aec_inst.wfBuf + 2048), Each(0.0f));
    EXPECT_THAT(std::vector<float>(buf->aec_inst.wfBuf + 2048, buf->aec_inst.wfBuf + 2064),
                Each(9.0f));
}

TEST(MdfReset, ClearsTheFilterAndKeepsSettingsAndTails) {
    auto inst = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst->get();
    MdfEchoState &st = buf->mdf_workingbuff;
    const MdfEchoState fresh = st;

    // Dirty everything the filter runs on, then reset.
    const float mark = 7.0f;
    for (auto *a : {&buf->aec_inst.wfBuf, &st.foreground}) {
        std::fill(std::begin(*a), std::end(*a), mark);
    }
    std::fill(std::begin(st.X), std::end(st.X), mark);
    std::fill(std::begin(st.last_y), std::end(st.last_y), mark);
    std::fill(std::begin(buf->ef), std::end(buf->ef), mark);
    std::fill(std::begin(st.x), std::end(st.x), mark);
    for (auto *a : {&st.power, &st.power_1, &st.Eh, &st.Yh, &st.Rf}) {
        std::fill(std::begin(*a), std::end(*a), mark);
    }
    st.cancel_count = 5;
    st.screwed_up = 51;
    st.saturated = 3;
    st.adapted = 1;
    st.sum_adapt = st.leak_estimate = st.Pey = st.Pyy = mark;
    st.Davg1 = st.Davg2 = st.Dvar1 = st.Dvar2 = mark;
    st.memX = st.memD = st.memE = st.notch_mem[0] = st.notch_mem[1] = mark;
    mdf_echo_state_reset(buf);

    auto part = [](const float *p, int from, int to) {
        return std::vector<float>(p + from, p + to);
    };
    for (const float *w : {buf->aec_inst.wfBuf, st.foreground}) {
        EXPECT_THAT(part(w, 0, 2048), Each(0.0f));
        EXPECT_THAT(part(w, 2048, 2064), Each(mark));
    }
    EXPECT_THAT(part(st.X, 0, 2304), Each(0.0f));
    EXPECT_THAT(part(st.X, 2304, 2322), Each(mark));
    EXPECT_THAT(part(buf->ef, 0, 256), Each(0.0f));
    EXPECT_THAT(part(buf->ef, 256, 258), Each(mark));
    EXPECT_THAT(part(st.last_y, 0, 128), Each(0.0f));
    EXPECT_THAT(part(st.last_y, 128, 256), Each(mark));
    EXPECT_THAT(st.x, Each(0.0f));
    EXPECT_THAT(st.power, Each(0.0f));
    EXPECT_THAT(st.power_1, Each(1.0f));
    EXPECT_THAT(st.Eh, Each(0.0f));
    EXPECT_THAT(st.Yh, Each(0.0f));
    EXPECT_THAT(st.Rf, Each(mark));
    EXPECT_EQ(st.cancel_count + st.screwed_up + st.saturated + st.adapted, 0);
    EXPECT_EQ(st.sum_adapt, 0.0f);
    EXPECT_EQ(st.leak_estimate, mark);
    EXPECT_EQ(st.Pey, 1.0f);
    EXPECT_EQ(st.Pyy, 1.0f);
    EXPECT_EQ(st.Davg1 + st.Davg2 + st.Dvar1 + st.Dvar2, 0.0f);
    EXPECT_EQ(st.memX + st.memD + st.memE + st.notch_mem[0] + st.notch_mem[1], 0.0f);

    EXPECT_EQ(memcmp(st.prop, fresh.prop, sizeof st.prop), 0);
    EXPECT_EQ(memcmp(st.window, fresh.window, sizeof st.window), 0);
    EXPECT_EQ(st.spec_average, fresh.spec_average);
    EXPECT_EQ(st.beta0, fresh.beta0);
    EXPECT_EQ(st.beta_max, fresh.beta_max);
    EXPECT_EQ(st.preemph, fresh.preemph);
    EXPECT_EQ(st.notch_radius, fresh.notch_radius);
}

}  // namespace
