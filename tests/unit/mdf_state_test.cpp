// Adaptive-filter state: control requests, the values set up by init, what a reset clears
// and what it keeps, and the warning lines.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fixture.h"

namespace {

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

TEST(MdfWarning, Formats) {
    EXPECT_EQ(qtest::capture_stderr([] { mdf_warning("slapped"); }), "warning: slapped\n");
    EXPECT_EQ(qtest::capture_stderr([] { mdf_warning_int("count", -3); }), "warning: count -3\n");
}

TEST(MdfInit, InitialValues) {
    auto inst = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst->get();
    // Init clears only the first 2048 weights; the tail keeps what was there.
    buf->aec_inst.wfBuf[0] = 9.0f;
    buf->aec_inst.wfBuf[2047] = 9.0f;
    buf->aec_inst.wfBuf[2048] = 9.0f;
    buf->aec_inst.wfBuf[2063] = 9.0f;
    ASSERT_EQ(mdf_echo_state_init(buf, 128, 1024), 0);
    const MdfEchoState &st = buf->mdf_workingbuff;

    const float prop[8] = {0.2280320f,  0.1689303f,  0.1251466f,  0.09271089f,
                           0.06868191f, 0.05088081f, 0.03769343f, 0.02792398f};
    float sum = 0;
    for (int i = 0; i < 8; ++i) {
        EXPECT_NEAR(st.prop[i], prop[i], prop[i] * 1e-6) << i;
        sum += st.prop[i];
    }
    EXPECT_NEAR(sum, 0.8f, 1e-6f);

    EXPECT_EQ(st.window[0], 0.0f);
    EXPECT_EQ(st.window[128], 1.0f);
    EXPECT_FLOAT_EQ(st.window[64], 0.5f);
    for (int i = 1; i < 128; ++i) {
        EXPECT_EQ(st.window[i], st.window[256 - i]) << i;
    }
    for (int i = 0; i < 129; ++i) {
        EXPECT_EQ(st.power_1[i], 1.0f) << i;
    }
    EXPECT_EQ(buf->aec_inst.wfBuf[0], 0.0f);
    EXPECT_EQ(buf->aec_inst.wfBuf[2047], 0.0f);
    EXPECT_EQ(buf->aec_inst.wfBuf[2048], 9.0f);
    EXPECT_EQ(buf->aec_inst.wfBuf[2063], 9.0f);
    EXPECT_EQ(st.preemph, 0.9f);
    EXPECT_EQ(st.notch_radius, 0.982f);
    EXPECT_EQ(st.Pey, 1.0f);
    EXPECT_EQ(st.Pyy, 1.0f);
    EXPECT_EQ(st.leak_estimate, 0.0f);
    EXPECT_EQ(st.adapted, 0);
    EXPECT_EQ(st.cancel_count, 0);
}

TEST(MdfReset, ClearsTheFilterAndKeepsSettingsAndTails) {
    auto inst = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst->get();
    MdfEchoState &st = buf->mdf_workingbuff;
    const MdfEchoState fresh = st;

    // Dirty everything the filter runs on, then reset.
    const float mark = 7.0f;
    for (float &v : buf->aec_inst.wfBuf)
        v = mark;
    for (float &v : st.foreground)
        v = mark;
    for (float &v : st.X)
        v = mark;
    for (float &v : st.last_y)
        v = mark;
    for (float &v : buf->ef)
        v = mark;
    for (float &v : st.x)
        v = mark;
    for (int i = 0; i < 129; ++i) {
        st.power[i] = st.power_1[i] = st.Eh[i] = st.Yh[i] = st.Rf[i] = mark;
    }
    st.cancel_count = 5;
    st.screwed_up = 51;
    st.saturated = 3;
    st.adapted = 1;
    st.sum_adapt = st.leak_estimate = st.Pey = st.Pyy = mark;
    st.Davg1 = st.Davg2 = st.Dvar1 = st.Dvar2 = mark;
    st.memX = st.memD = st.memE = st.notch_mem[0] = st.notch_mem[1] = mark;
    mdf_echo_state_reset(buf);

    for (int i = 0; i < 2064; ++i) {
        const float expect = i < 2048 ? 0.0f : mark;
        ASSERT_EQ(buf->aec_inst.wfBuf[i], expect) << i;
        ASSERT_EQ(st.foreground[i], expect) << i;
    }
    for (int i = 0; i < 2322; ++i) {
        ASSERT_EQ(st.X[i], i < 2304 ? 0.0f : mark) << i;
    }
    for (int i = 0; i < 258; ++i) {
        ASSERT_EQ(buf->ef[i], i < 256 ? 0.0f : mark) << i;
    }
    for (int i = 0; i < 256; ++i) {
        ASSERT_EQ(st.last_y[i], i < 128 ? 0.0f : mark) << i;
        ASSERT_EQ(st.x[i], 0.0f) << i;
    }
    for (int i = 0; i < 129; ++i) {
        ASSERT_EQ(st.power[i], 0.0f);
        ASSERT_EQ(st.power_1[i], 1.0f);
        ASSERT_EQ(st.Eh[i], 0.0f);
        ASSERT_EQ(st.Yh[i], 0.0f);
        ASSERT_EQ(st.Rf[i], mark);
    }
    EXPECT_EQ(st.cancel_count, 0);
    EXPECT_EQ(st.screwed_up, 0);
    EXPECT_EQ(st.saturated, 0);
    EXPECT_EQ(st.adapted, 0);
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
