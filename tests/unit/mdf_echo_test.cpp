// The adaptive filter's per-frame step and its helpers: transform scale, DC notch,
// proportional weights, the rotation of the gradient constraint, the far-end ring, the
// foreground/background decision, output clamping, the divergence watch and its reset, the
// leak estimate and the switch to the adapted rule.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fixture.h"

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAreArray;
using testing::FloatNear;
using testing::Ge;
using testing::Le;
using testing::Pointwise;

constexpr int kFrame = 128;
constexpr int kFilter = 2064;
const char kSlapped[] =
    "warning: The echo canceller started acting funny and got slapped (reset). It swears it will "
    "behave now.\n";

struct Frame {
    float in[kFrame] = {};
    float far[kFrame] = {};
    float out[kFrame] = {};
    float echo[kFrame] = {};
};

void run(aec_workingbuf_t *buf, Frame &f) {
    mdf_echo_cancellation(buf, f.in, nullptr, f.far, f.out, nullptr, f.echo, nullptr);
}

void fill_noise(float *v, int n, float amplitude, uint32_t seed) {
    std::mt19937 rng(seed);
    for (int i = 0; i < n; ++i) {
        v[i] = std::round(amplitude * (static_cast<float>(rng() % 20001) / 10000.0f - 1.0f));
    }
}

// Partition 0 of `w` set to a pure delay of `delay` samples with gain `gain`, on the filter's
// spectrum scale (the output is the circular convolution divided by 256).
void set_delay(aec_workingbuf_t *buf, float *w, int delay, float gain) {
    float t[256] = {};
    t[delay] = 256.0f * gain;
    memset(w, 0, sizeof(float) * kFilter);
    fft_wrap(buf, t, w);
}

// Pre-emphasis of one far-end frame that follows silence.
std::vector<float> preemphasised(const float *far) {
    std::vector<float> x(kFrame);
    for (int i = 0; i < kFrame; ++i) {
        x[i] = far[i] - 0.9f * (i > 0 ? far[i - 1] : 0.0f);
    }
    return x;
}

// A fresh 16 kHz instance.
class MdfStep : public testing::Test {
protected:
    std::unique_ptr<qtest::InstanceBlock> inst_ = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst_->get();
    MdfEchoState &st = buf->mdf_workingbuff;
};

TEST(MdfHelpers, TransformPairIsOnTheOneOver256Scale) {
    auto inst = qtest::make_instance(16000);
    float t[256] = {}, spectrum[258], back[256];
    t[0] = 1.0f;
    fft_wrap(inst->get(), t, spectrum);
    for (int k = 0; k < 129; ++k) {
        EXPECT_FLOAT_EQ(spectrum[2 * k], 1.0f / 256.0f) << k;
        EXPECT_NEAR(spectrum[2 * k + 1], 0.0f, 1e-9f) << k;
    }
    fill_noise(t, 256, 1000.0f, 1);
    fft_wrap(inst->get(), t, spectrum);
    ifft_wrap(inst->get(), spectrum, back);
    for (int i = 0; i < 256; ++i) {
        EXPECT_NEAR(back[i], t[i], 1e-3f) << i;
    }
}

TEST(MdfHelpers, NotchRemovesDcAndPassesTheTopFrequency) {
    for (float r : {0.9f, 0.982f, 0.992f}) {
        SCOPED_TRACE(r);
        float mem[2] = {0, 0};
        float dc[kFrame], alt[kFrame], out[kFrame];
        for (int i = 0; i < kFrame; ++i) {
            dc[i] = 1000.0f;
            alt[i] = i % 2 ? -1000.0f : 1000.0f;
        }
        filter_dc_notch16(dc, r, out, kFrame, mem, 1);
        EXPECT_FLOAT_EQ(out[0], r * 1000.0f);
        for (int b = 0; b < 40; ++b) {
            filter_dc_notch16(dc, r, out, kFrame, mem, 1);
        }
        EXPECT_NEAR(out[kFrame - 1], 0.0f, 0.01f);
        for (int b = 0; b < 40; ++b) {
            filter_dc_notch16(alt, r, out, kFrame, mem, 1);
        }
        // r (1 - z^-1)^2 / (1 - 2r z^-1 + den2 z^-2) at z = -1, den2 = r^2 + 0.7 (1 - r)^2.
        const double den2 = double(r) * r + 0.7 * (1 - r) * (1 - r);
        const double gain = 4.0 * r / (1.0 + 2.0 * r + den2);
        EXPECT_NEAR((out[kFrame - 2] - out[kFrame - 1]) / 2, 1000.0 * gain, 0.01);
    }
}

TEST(MdfHelpers, ProportionalWeights) {
    std::vector<float> w(kFilter, 0.0f);
    float prop[8];
    mdf_adjust_prop(w.data(), 258, 8, prop);
    for (float p : prop) {
        EXPECT_FLOAT_EQ(p, 0.99f * 1.1f / 9.8f);  // (1 + 0.1) / (1 + 8 x 1.1)
    }
    // Partition 2 with energy 99: sqrt(100) = 10 is the maximum; all gain 0.1 x 10.
    for (int j = 0; j < 99; ++j) {
        w[2 * 258 + j] = j % 2 ? 1.0f : -1.0f;
    }
    mdf_adjust_prop(w.data(), 258, 8, prop);
    for (int i = 0; i < 8; ++i) {
        EXPECT_FLOAT_EQ(prop[i], 0.99f * (i == 2 ? 11.0f : 2.0f) / 26.0f) << i;
    }
}

// Each frame, every partition is given weights with a non-zero second half; the constraint
// clears that half, so the partitions it visited can be read off afterwards.
TEST_F(MdfStep, GradientConstraintRotation) {
    buf->mdf_workingbuff.saturated = 100;  // no gradient: only the constraint touches W
    float t[256], back[256];
    fill_noise(t, 256, 100.0f, 2);
    const int expected[8] = {2, 3, 4, 5, 6, 7, 1, 1};
    for (int frame = 0; frame < 8; ++frame) {
        for (int j = 0; j < 8; ++j) {
            fft_wrap(buf, t, buf->aec_inst.wfBuf + j * 258);
        }
        Frame f;
        run(buf, f);
        EXPECT_EQ(buf->mdf_workingbuff.cancel_count, (frame + 1) % 8);
        for (int j = 0; j < 8; ++j) {
            ifft_wrap(buf, buf->aec_inst.wfBuf + j * 258, back);
            float tail = 0;
            for (int i = 128; i < 256; ++i) {
                tail = std::max(tail, std::fabs(back[i]));
            }
            const bool constrained = j == 0 || j == expected[frame];
            EXPECT_EQ(tail < 1e-3f, constrained) << "frame " << frame << " partition " << j;
            EXPECT_EQ(mdf_constrains_partition(buf->mdf_workingbuff.cancel_count, j), constrained);
        }
    }
    EXPECT_EQ(buf->mdf_workingbuff.saturated, 92);
}

TEST_F(MdfStep, FarEndRingKeepsTheOldNyquistPairs) {
    float *X = buf->mdf_workingbuff.X;
    for (int i = 0; i < 2322; ++i) {
        X[i] = 1.0f + i;
    }
    const std::vector<float> old(X, X + 2322);
    Frame f;
    run(buf, f);
    EXPECT_THAT(std::vector<float>(X, X + 258), Each(0.0f));  // the new (silent) pair
    for (int j = 0; j < 8; ++j) {
        for (int i = 0; i < 256; ++i) {
            ASSERT_EQ(X[(j + 1) * 258 + i], old[j * 258 + i]) << j << " " << i;
        }
        ASSERT_EQ(X[(j + 1) * 258 + 256], old[(j + 1) * 258 + 256]) << j;
        ASSERT_EQ(X[(j + 1) * 258 + 257], old[(j + 1) * 258 + 257]) << j;
    }
}

TEST_F(MdfStep, SilenceInSilenceOut) {
    for (int frame = 0; frame < 40; ++frame) {
        Frame f;
        if (frame >= 20) {
            fill_noise(f.far, kFrame, 20.0f, frame);  // quiet far end: below the adaptation floor
        }
        run(buf, f);
        ASSERT_THAT(f.out, Each(0.0f)) << frame;
        ASSERT_THAT(f.echo, Each(0.0f)) << frame;
        ASSERT_EQ(st.screwed_up, 0);
        ASSERT_EQ(st.sum_adapt, 0.0f);
        if (frame == 0) {
            EXPECT_EQ(st.power[5], 1.0f);  // the smoothed far-end power has a floor of 1 a frame
        }
    }
    EXPECT_THAT(st.power_1, Each(0.0f));
}

TEST(MdfClamp, FullScaleNearEndIsClamped) {
    auto inst = qtest::make_instance(8000);
    aec_workingbuf_t *buf = inst->get();
    for (int frame = 0; frame < 4; ++frame) {
        Frame f;
        // Full-scale square wave with a rising edge on the last sample: the notch overshoots.
        for (int i = 0; i < kFrame; ++i) {
            f.in[i] = ((i + 1) / 32) % 2 ? -32768.0f : 32767.0f;
        }
        run(buf, f);
        ASSERT_THAT(f.out, Each(AllOf(Ge(-32768.0f), Le(32767.0f))));
        EXPECT_EQ(f.out[kFrame - 1], 32767.0f);
        EXPECT_EQ(buf->mdf_workingbuff.memE, 32767.0f);  // the clamped value feeds back
    }
}

// Foreground silent and right (near end silent), background a delay with gain 2: the
// background is restored from the foreground, but the echo estimate handed out is the
// background's, taken before that decision.
TEST_F(MdfStep, EchoEstimateIsTheBackgroundsBeforeTheDecision) {
    set_delay(buf, buf->aec_inst.wfBuf, 1, 2.0f);
    Frame f;
    fill_noise(f.far, kFrame, 3000.0f, 3);
    run(buf, f);
    const std::vector<float> x = preemphasised(f.far);
    for (int i = 0; i < kFrame; ++i) {
        EXPECT_NEAR(f.echo[i], i > 0 ? 2.0f * x[i - 1] : 0.0f, 0.2f) << i;
        EXPECT_EQ(f.out[i], 0.0f) << i;
    }
    // The error energy is the foreground's from then on: the step size stays at its cap.
    EXPECT_FLOAT_EQ(buf->mdf_workingbuff.sum_adapt, 0.25f);
    EXPECT_EQ(memcmp(buf->aec_inst.wfBuf, buf->mdf_workingbuff.foreground, sizeof(float) * kFilter),
              0);
}

// Background exact (near end = far end), foreground silent: the foreground takes the
// background, and the output fades from the old foreground's residual to the new one's.
TEST_F(MdfStep, ForegroundUpdateCrossFades) {
    set_delay(buf, buf->aec_inst.wfBuf, 0, 1.0f);
    Frame f;
    fill_noise(f.far, kFrame, 3000.0f, 4);
    memcpy(f.in, f.far, sizeof f.in);
    run(buf, f);
    EXPECT_EQ(memcmp(buf->aec_inst.wfBuf, st.foreground, sizeof(float) * kFilter), 0);
    float prev = 0;
    for (int i = 0; i < kFrame; ++i) {
        const float residual = st.input[i] - st.window[i] * f.echo[i];
        const float expect = residual + 0.9f * prev;
        EXPECT_NEAR(f.out[i], expect, 0.05f + 1e-5f * std::fabs(expect)) << i;
        prev = f.out[i];
    }
    EXPECT_NEAR(f.out[0], f.in[0] * st.notch_radius, 1e-2f);  // window[0] = 0: all foreground
}

// A near-end echo the foreground cannot explain counts 1 a frame; non-finite energies 50.
TEST(MdfWatch, DivergenceWatch) {
    struct Case {
        uint16_t preset;
        bool enormous;  // far end at 1e30 (energies overflow) instead of a bad foreground
        int dbg_level;
        uint16_t after;
        bool reset;
        bool overflow_message;
    };
    const Case cases[] = {
        {48, false, 7, 49, false, false},   {49, false, 7, 0, true, false},
        {0, true, 7, 0, true, false},       {65500, true, 7, 14, false, true},
        {65500, true, 6, 14, false, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.preset);
        auto inst = qtest::make_instance(16000);
        aec_workingbuf_t *buf = inst->get();
        MdfEchoState &st = buf->mdf_workingbuff;
        buf->dbg_level = c.dbg_level;
        st.screwed_up = c.preset;
        st.sum_adapt = 3.0f;
        set_delay(buf, buf->aec_inst.wfBuf, 1, 0.5f);
        Frame f;
        if (c.enormous) {
            std::fill(std::begin(f.far), std::end(f.far), 1e30f);
            fill_noise(f.in, kFrame, 3000.0f, 8);
        } else {
            set_delay(buf, st.foreground, 1, 0.5f);
            fill_noise(f.far, kFrame, 3000.0f, 5);
        }
        std::fill(std::begin(f.out), std::end(f.out), 1.0f);
        std::string err;
        const std::string out =
            qtest::capture_stdout([&] { err = qtest::capture_stderr([&] { run(buf, f); }); });
        EXPECT_EQ(st.screwed_up, c.after);
        EXPECT_EQ(err, c.reset ? kSlapped : "");
        EXPECT_EQ(out, c.overflow_message
                           ? "[ALGO_MSG_ERR] [AEC] Fail! screwed_up counter overflow.\t\n"
                           : "");
        EXPECT_EQ(st.sum_adapt == 0.0f, c.reset);
        EXPECT_EQ(st.power_1[10] == 1.0f, c.reset);
        if (c.enormous) {
            const std::vector<float> x = preemphasised(f.far);
            for (int i = 0; i < kFrame; ++i) {
                ASSERT_EQ(f.out[i], 0.0f) << i;
                const float e = i > 0 ? 0.5f * x[i - 1] : 0.0f;
                ASSERT_NEAR(f.echo[i], e, 1e24f) << i;  // 1e-6 of the far-end scale
            }
        }
        if (c.reset) {
            EXPECT_THAT(std::vector<float>(buf->aec_inst.wfBuf, buf->aec_inst.wfBuf + 2048),
                        Each(0.0f));
            EXPECT_THAT(std::vector<float>(st.foreground, st.foreground + 2048), Each(0.0f));
            Frame next;  // starts again from empty filters
            fill_noise(next.far, kFrame, 3000.0f, 6);
            EXPECT_EQ(qtest::capture_stderr([&] { run(buf, next); }), "");
            EXPECT_EQ(st.screwed_up, 0);
        }
    }
}

// Error and echo spectra are of the current blocks behind 128 zeros; the step weights follow
// the background filter as it stood before this frame's update.
TEST_F(MdfStep, FrameSpectraAndProportionalWeights) {
    set_delay(buf, buf->aec_inst.wfBuf, 3, 0.5f);
    for (int i = 0; i < 258; ++i) {
        buf->aec_inst.wfBuf[3 * 258 + i] = 0.01f * (i % 7);
    }
    float prop[8];
    mdf_adjust_prop(buf->aec_inst.wfBuf, 258, 8, prop);
    Frame f;
    fill_noise(f.far, kFrame, 3000.0f, 20);
    fill_noise(f.in, kFrame, 3000.0f, 21);
    run(buf, f);
    EXPECT_THAT(st.prop, ElementsAreArray(prop));
    float block[256] = {}, spectrum[258];
    memcpy(block + kFrame, f.echo, sizeof f.echo);
    fft_wrap(buf, block, spectrum);
    EXPECT_THAT(buf->yf, Pointwise(FloatNear(1e-3f), spectrum));
    memcpy(block + kFrame, buf->aec_inst.eBuf + kFrame, sizeof(float) * kFrame);
    fft_wrap(buf, block, spectrum);
    EXPECT_THAT(buf->ef, Pointwise(FloatNear(1e-3f), spectrum));
}

// An error that follows the echo estimate, at twice its level: the leak estimate stops at 1.
TEST_F(MdfStep, LeakEstimateIsAtMostOne) {
    st.saturated = 100;  // keep the background as set
    set_delay(buf, buf->aec_inst.wfBuf, 0, 1.0f);
    for (int frame = 0; frame < 3; ++frame) {
        Frame f;
        fill_noise(f.far, kFrame, 3000.0f, 30 + frame);
        for (int i = 0; i < kFrame; ++i) {
            f.in[i] = 3.0f * f.far[i];
        }
        run(buf, f);
        EXPECT_EQ(st.leak_estimate, 1.0f);
        EXPECT_EQ(st.Pey, st.Pyy);
    }
}

TEST(MdfWatch, SwitchToAdaptedRuleAndResidualHistory) {
    for (float sum_adapt : {7.9f, 8.1f}) {
        SCOPED_TRACE(sum_adapt);
        auto inst = qtest::make_instance(16000);
        aec_workingbuf_t *buf = inst->get();
        MdfEchoState &st = buf->mdf_workingbuff;
        st.sum_adapt = sum_adapt;
        st.Pey = st.Pyy = 1e9f;  // a leak estimate near 1
        set_delay(buf, buf->aec_inst.wfBuf, 0, 1.0f);
        Frame f;
        fill_noise(f.far, kFrame, 3000.0f, 7);
        memcpy(f.in, f.far, sizeof f.in);
        run(buf, f);
        const bool adapted = sum_adapt > 8;
        EXPECT_EQ(st.adapted, adapted ? 1 : 0);
        EXPECT_GT(st.leak_estimate, 0.03f);
        if (adapted) {
            EXPECT_EQ(st.sum_adapt, sum_adapt);
        } else {
            EXPECT_GT(st.sum_adapt, sum_adapt);
        }
        // last_y: the far-end pair until adapted, then the residual history.
        const std::vector<float> x = preemphasised(f.far);
        for (int i = 0; i < kFrame; ++i) {
            if (adapted) {
                ASSERT_EQ(st.last_y[i], st.x[i]) << i;
                ASSERT_EQ(st.last_y[kFrame + i], f.in[i] - f.out[i]) << i;
            } else {
                ASSERT_EQ(st.last_y[i], 0.0f) << i;
                ASSERT_EQ(st.last_y[kFrame + i], x[i]) << i;
            }
        }
    }
}

}  // namespace
