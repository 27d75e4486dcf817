// The linear and nonlinear stages together on a working buffer, driven frame by frame the way
// the frame driver does. Synthetic scene: far-end noise through a decaying echo path with a
// faint near-end background, then a near-end talker while the far end is silent. The
// nonlinear stage must remove more of the echo than the linear stage alone, without muting
// the talker.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "core/linear_stage.h"
#include "core/nlp.h"
#include "dsp/stream.h"
#include "fixture.h"

namespace {

constexpr int kEchoFrames = 750;  // 6 s at 16 kHz of echo only; the last 2 s are measured
constexpr int kEchoMeasured = 250;
constexpr int kTalkFrames = 250;  // 2 s of near-end talk alone; the last 1 s is measured
constexpr int kTalkMeasured = 125;
constexpr int kFrames = kEchoFrames + kTalkFrames;

struct Scene {
    std::vector<short> far, near;
};

short pcm(float v) {
    return static_cast<short>(std::clamp(v, -32768.0f, 32767.0f));
}

Scene make_scene() {
    std::mt19937 gen(2024);
    std::normal_distribution<float> g(0.0f, 1.0f);
    const int n = kFrames * 128;
    const int talk_start = kEchoFrames * 128;
    // Far end: low-passed noise of about 3000 rms, silent once the talker starts.
    std::vector<float> far(n, 0.0f);
    float lp = 0.0f;
    for (int t = 0; t < talk_start; ++t) {
        lp = 0.7f * lp + 0.3f * g(gen);
        far[t] = 5000.0f * lp;
    }
    // Echo path: 48 samples of delay, then 400 taps decaying with random signs.
    std::vector<float> h(448, 0.0f);
    for (int k = 48; k < 448; ++k) {
        h[k] = 0.6f * std::exp(-(k - 48) / 40.0f) * g(gen);
    }
    Scene s{std::vector<short>(n), std::vector<short>(n)};
    float talker = 0.0f;
    for (int t = 0; t < n; ++t) {
        float echo = 0.0f;
        for (int k = 0; k < 448 && k <= t; ++k) {
            echo += h[k] * far[t - k];
        }
        talker = 0.9f * talker + 0.1f * g(gen);
        const float talk = t >= talk_start ? 4000.0f * talker : 0.0f;
        s.far[t] = pcm(far[t]);
        s.near[t] = pcm(echo + talk + 5.0f * g(gen));
    }
    return s;
}

double db(double num, double den) {
    return 10.0 * std::log10(num / den);
}

double energy(const float *x) {
    double e = 0.0;
    for (int i = 0; i < 128; ++i) {
        e += static_cast<double>(x[i]) * x[i];
    }
    return e;
}

double energy(const short *x) {
    double e = 0.0;
    for (int i = 0; i < 128; ++i) {
        e += static_cast<double>(x[i]) * x[i];
    }
    return e;
}

TEST(Stage, NonlinearStageRemovesMoreEchoThanTheLinearStageAndKeepsTheTalker) {
    auto inst = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst->get();
    Scene s = make_scene();

    double echo_near = 0.0, echo_linear = 0.0, echo_output = 0.0;
    double talk_near = 0.0, talk_output = 0.0;
    for (int f = 0; f < kFrames; ++f) {
        short *near = &s.near[f * 128];
        short *far = &s.far[f * 128];
        buf->postInfo = {256, 1, 128, 1};
        LoadStreamf(buf->AudioNearEnd[0], near, 0, &buf->postInfo);
        LoadStreamf(buf->AudioFarEnd[0], far, 0, &buf->postInfo);
        buf->FarEndMean = FarEndMean_Compute(buf->AudioFarEnd[0], 128);
        VelFuncAec_BufferFarendPartition(buf, buf->AudioFarEnd[0]);
        Aec_NLMS_process(buf, buf->AudioNearEnd[0], buf->AudioNearEnd[1]);
        const double linear = energy(&buf->mdf_error[128]);
        Aec_NLP_process(buf, buf->AudioNearEnd[0], buf->AudioNearEnd[1]);
        // The nonlinear output lags by one block; over these spans that does not matter.
        const double output = energy(buf->AudioNearEnd[0]);
        if (f >= kEchoFrames - kEchoMeasured && f < kEchoFrames) {
            echo_near += energy(near);
            echo_linear += linear;
            echo_output += output;
        } else if (f >= kFrames - kTalkMeasured) {
            talk_near += energy(near);
            talk_output += output;
        }
    }
    const double linear_db = db(echo_near, echo_linear);
    const double total_db = db(echo_near, echo_output);
    const double talk_db = db(talk_near, talk_output);
    const std::string figures = "echo reduction: linear stage " + std::to_string(linear_db) +
                                " dB, linear + nonlinear " + std::to_string(total_db) +
                                " dB; talker attenuation " + std::to_string(talk_db) + " dB";
    std::printf("%s\n", figures.c_str());
    EXPECT_GT(linear_db, 6.0) << figures;
    EXPECT_GT(total_db, linear_db + 6.0) << figures;
    EXPECT_LT(std::fabs(talk_db), 3.0) << figures;
}

}  // namespace
