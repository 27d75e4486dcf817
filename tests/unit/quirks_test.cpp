// One check per deliberate oddity, as a caller sees it (or through the entry point that shows
// it). Others live in kernels_test (tail, conjugate, sort bound) and messages_test (texts, codes).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "core/nlp.h"
#include "core/supp_mode.h"
#include "diag/profile.h"
#include "instance.h"
#include "scratch.h"
#include "testkit/signals.h"

namespace {

using testkit::Mode;
using Edges = std::array<uint32_t, 6>;
using Modes = std::array<uint32_t, 7>;

testkit::Recording scene(int rate, int near_channels = 1, double seconds = 1.5) {
    return testkit::noise_echo({.rate = rate, .near_channels = near_channels, .seconds = seconds});
}

std::vector<int16_t> run(AEC_HANDLE h, const testkit::Recording &rec, Mode mode = Mode::kFull) {
    std::vector<int16_t> out = rec.near;
    EXPECT_EQ(testkit::run(h, rec.layout, out, rec.far, mode).code, ALGO_AEC_RET_SUCCESS);
    return out;
}

const auto record = [](AEC_HANDLE h) { return static_cast<aec_workingbuf_t *>(h); };

const auto init_record = [](const testkit::Layout &l) {
    return AudioAecInit{128, uint32_t(l.near_channels), uint32_t(l.far_channels),
                        static_cast<QEN_AEC_SAMPLE_RATE>(l.rate)};
};

// Config's band targets come from the intensities alone, not the earlier edges; edges still count.
TEST(Quirks, ConfigTargetsFollowTheIntensitiesNotThePreviousEdges) {
    const testkit::Recording rec = scene(16000);
    const Modes intensity = {16, 4, 20, 5, 25, 10, 0};
    const testkit::Instance once(rec.layout,
                                 {.intensity = intensity, .edges = Edges{3, 8, 20, 40, 60, 100}});
    const testkit::Instance twice(
        rec.layout, {.intensity = Modes{0, 1, 2, 3, 4, 5, 6}, .edges = Edges{1, 1, 1, 1, 1, 1}});
    AudioAecConfig cfg;
    AudioAecInit init;
    QenAec_GetConfig(once.handle(), &init, &cfg);
    ASSERT_EQ(QenAec_Config(twice.handle(), &cfg), ALGO_AEC_RET_SUCCESS);
    const testkit::Instance other_edges(rec.layout, {.intensity = intensity});
    const std::vector<int16_t> out = run(once.handle(), rec);
    EXPECT_TRUE(run(twice.handle(), rec) == out);
    EXPECT_FALSE(run(other_edges.handle(), rec) == out);
}

// Reset starts the core at 16000 Hz whatever the rate: a no-op at 16 kHz, not at 48 kHz.
TEST(Quirks, ResetStartsTheCoreAt16k) {
    for (int rate : {16000, 48000}) {
        const testkit::Recording rec = scene(rate);
        const testkit::Instance fresh(rec.layout), reset(rec.layout);
        AudioAecInit init = init_record(rec.layout);
        ASSERT_EQ(QenAec_Reset(static_cast<char *>(reset.handle()), &init), reset.handle());
        EXPECT_EQ(run(reset.handle(), rec) == run(fresh.handle(), rec), rate == 16000) << rate;
    }
}

// Reset starts the core over from whatever it held: its set-up leaves nothing behind but the
// per-frame pointers (the gaps of padding after the two short fields aside).
TEST(Quirks, CoreSetUpLeavesNothingOfTheOldState) {
    static aec_t core;
    const size_t fields[][2] = {
        {0, offsetof(aec_t, hNlMinCtr) + sizeof core.hNlMinCtr},
        {offsetof(aec_t, overDrive), offsetof(aec_t, divergeState) + sizeof core.divergeState},
        {offsetof(aec_t, xfBufBlockPos), offsetof(aec_t, noiseEstCtr) + sizeof core.noiseEstCtr}};
    std::vector<unsigned char> kept[2];
    for (unsigned char fill : {0xA5, 0x00}) {
        memset(&core, fill, sizeof core);
        aec_core_init(&core, 32000);
        for (const auto &[from, to] : fields) {
            const auto *bytes = reinterpret_cast<const unsigned char *>(&core);
            kept[fill != 0].insert(kept[fill != 0].end(), bytes + from, bytes + to);
        }
    }
    EXPECT_TRUE(kept[0] == kept[1]);
}

// Reset leaves the second near-end channel's buffer: a split that averaged the same shows after.
TEST(Quirks, ResetLeavesTheSecondNearEndChannel) {
    const testkit::Recording rec = scene(16000, 2, 0.5);
    testkit::Recording split = rec;
    for (size_t i = split.near.size() - 256; i < split.near.size(); i += 2) {
        split.near[i] = static_cast<int16_t>(split.near[i] + 1000);
        split.near[i + 1] = static_cast<int16_t>(split.near[i + 1] - 1000);
    }
    const testkit::Instance a(rec.layout), b(rec.layout);
    ASSERT_TRUE(run(a.handle(), rec) == run(b.handle(), split));
    AudioAecInit init = init_record(rec.layout);
    QenAec_Reset(static_cast<char *>(a.handle()), &init);
    QenAec_Reset(static_cast<char *>(b.handle()), &init);
    EXPECT_FALSE(run(a.handle(), rec) == run(b.handle(), rec));
}

// The far-end delay is stored and returned (Lifecycle reads it back), and applied by nothing.
TEST(Quirks, DelaySampleChangesNothing) {
    const testkit::Recording rec = scene(8000);
    std::vector<int16_t> out;
    for (int16_t delay : {int16_t{0}, int16_t{300}, int16_t{-32768}}) {
        const testkit::Instance aec(rec.layout);
        AudioAecInit init;
        AudioAecConfig cfg;
        QenAec_GetConfig(aec.handle(), &init, &cfg);
        cfg.delay_sample = delay;
        ASSERT_EQ(QenAec_Config(aec.handle(), &cfg), ALGO_AEC_RET_SUCCESS);
        const std::vector<int16_t> got = run(aec.handle(), rec);
        EXPECT_TRUE(got == (delay == 0 ? out = got : out)) << delay;
    }
}

// ADF_Run dumps its inputs only at switch value 1 (Run: any non-zero); 2 after 1 fails once.
TEST(Quirks, LinearRunDumpsItsInputsOnlyAtSwitchValueOne) {
    const qtest::TempDir dir;
    const qtest::ScopedEnv path("AUDIO_DUMP_PATH", dir.path());
    qtest::ScopedEnv on("AUDIO_AEC_DUMP", "1");
    const testkit::Recording rec = scene(16000, 1, 0.1);
    const testkit::Instance aec(rec.layout);
    std::vector<int16_t> near = rec.near;
    ASSERT_EQ(testkit::run_frame(aec.handle(), near.data(), rec.far.data(), Mode::kFull), 0);
    const auto sizes = [&] {
        fflush(nullptr);
        std::vector<long> s;
        for (const char *kind : {"near_end", "far_end", "output"}) {
            s.push_back(qtest::file_size(dir.path() + "/Audio_AEC_" + kind + "_data_0.pcm"));
        }
        return s;
    };
    EXPECT_EQ(sizes(), (std::vector<long>{256, 256, 256}));
    {
        const qtest::ScopedEnv two("AUDIO_AEC_DUMP", "2");
        qtest::capture_stdout([&] {
            EXPECT_EQ(testkit::run_frame(aec.handle(), near.data(), rec.far.data(), Mode::kFull),
                      ALGO_AEC_RET_INIT_ERROR);
            AudioAecInit init = init_record(rec.layout);
            QenAec_Reset(static_cast<char *>(aec.handle()), &init);
        });
        ASSERT_EQ(testkit::run_frame(aec.handle(), near.data(), rec.far.data(), Mode::kLinear), 0);
        EXPECT_EQ(sizes(), (std::vector<long>{256, 256, 512}));
        ASSERT_EQ(testkit::run_frame(aec.handle(), near.data(), rec.far.data(), Mode::kFull), 0);
        EXPECT_EQ(sizes(), (std::vector<long>{512, 512, 768}));
    }
}

// ADF_Run loads the far end per near-end channel: stereo mic, mono far end fills buffer 2.
TEST(Quirks, LinearRunLoadsTheFarEndPerNearEndChannel) {
    const testkit::Recording rec = scene(16000, 2, 0.1);
    for (Mode mode : {Mode::kLinear, Mode::kFull}) {
        const testkit::Instance aec(rec.layout);
        std::vector<int16_t> near = rec.near;
        testkit::run_frame(aec.handle(), near.data(), rec.far.data(), mode);
        const float *second = record(aec.handle())->AudioFarEnd[1];
        for (int i = 0; i < 128; ++i) {
            ASSERT_EQ(second[128 + i], mode == Mode::kLinear ? rec.far[i] : 0) << "sample " << i;
        }
    }
}

// ADF_Run skips its stage after a silent far-end block (the level lags a block): the error repeats.
TEST(Quirks, LinearRunSkipsItsStageAfterASilentFarEndBlock) {
    testkit::Recording rec = scene(16000, 1, 0.2);
    std::fill_n(rec.far.begin() + 3 * 128, 128, 0);
    const testkit::Instance aec(rec.layout);
    const std::vector<int16_t> out = run(aec.handle(), rec, Mode::kLinear);
    const auto block = [&](int f) {
        return std::vector<int16_t>(&out[f * 128], &out[f * 128 + 128]);
    };
    EXPECT_EQ(block(0), std::vector<int16_t>(128, 0));
    EXPECT_NE(block(2), block(3));
    EXPECT_EQ(block(4), block(3));
    EXPECT_NE(block(5), block(4));
}

// The preferred band is read at odd bins only; its sorted gains give the feedback gains at
// ((size - 1) 96) >> 7 and ((size - 1) 64) >> 7, its average the incoherence minimum.
TEST(Quirks, PreferredBandIsReadAtOddBinsOnly) {
    struct Rate {
        int mult, first, size, fb, low;  // first bin, band size, quantile indices
    };
    for (const Rate r : {Rate{1, 11, 48, 35, 23}, Rate{2, 5, 24, 17, 11}, Rate{4, 1, 12, 8, 5},
                         Rate{6, 1, 8, 5, 3}}) {
        std::vector<float> cohde(129, 1.0f), cohyd(129, 0.1f), hNl(129);
        double sum = 0;
        for (int n = 0; n < r.size; ++n) {
            const float gain = static_cast<float>((n * 7) % r.size + 1) / 100;  // scrambled
            cohyd[r.first + 2 * n] = 1.0f - gain;
            sum += gain;
        }
        float xd_min = 0.9f;
        float overdrive[7] = {}, floor[7] = {};
        const nlp_gain_t g =
            nlp_gains(cohde.data(), cohyd.data(), r.mult, &xd_min, floor, overdrive, hNl.data());
        EXPECT_NEAR(g.hNlFb, (r.fb + 1) / 100.0, 1e-6) << "mult " << r.mult;
        EXPECT_NEAR(g.hNlFbLow, (r.low + 1) / 100.0, 1e-6) << "mult " << r.mult;
        EXPECT_NEAR(xd_min, sum / r.size, 1e-6) << "mult " << r.mult;
    }
}

// Set-up and the divergence reset clear N x M (ring: N x (M + 1)) floats: the tails keep theirs.
TEST(Quirks, FilterClearsLeaveTheTailsOfItsArrays) {
    const testkit::Instance aec;
    aec_workingbuf_t *b = record(aec.handle());
    MdfEchoState &st = b->mdf_workingbuff;
    const auto fill = [&] {
        std::fill_n(b->aec_inst.wfBuf, 2064, 7.0f);
        std::fill_n(st.foreground, 2064, 7.0f);
        std::fill_n(st.X, 2322, 7.0f);
        std::fill_n(st.last_y, 256, 7.0f);
        std::fill_n(b->ef, 258, 7.0f);
    };
    const auto cleared = [](const float *p, int zeros, int total) {  // first index that is not
        int i = 0;
        while (i < total && p[i] == (i < zeros ? 0.0f : 7.0f)) {
            ++i;
        }
        return i < total ? i : -1;
    };
    fill();
    mdf_echo_state_init(b, 128, 1024);
    EXPECT_EQ(cleared(b->aec_inst.wfBuf, 2048, 2064), -1);
    fill();
    mdf_echo_state_reset(b);
    EXPECT_EQ(cleared(b->aec_inst.wfBuf, 2048, 2064), -1);
    EXPECT_EQ(cleared(st.foreground, 2048, 2064), -1);
    EXPECT_EQ(cleared(st.X, 2304, 2322), -1);
    EXPECT_EQ(cleared(st.last_y, 128, 256), -1);
    EXPECT_EQ(cleared(b->ef, 256, 258), -1);
}

// A filter step shifts the ring by 256 floats a spectrum, leaving the Nyquist pairs behind; the
// residual history holds the pre-emphasised far end until the filter adapts.
TEST(Quirks, FilterStepShiftsTheRingWithoutItsNyquistPairs) {
    const testkit::Instance aec;
    aec_workingbuf_t *b = record(aec.handle());
    MdfEchoState &st = b->mdf_workingbuff;
    for (int i = 0; i < 2322; ++i) {
        st.X[i] = static_cast<float>(i % 977);
    }
    const std::vector<float> X(st.X, st.X + 2322);
    float in[128] = {}, far[128], out[128], echo[128];
    for (int i = 0; i < 128; ++i) {
        far[i] = static_cast<float>((i * 37) % 200 - 100);
    }
    mdf_echo_cancellation(b, in, in, far, out, out, echo, echo);
    for (int j = 0; j < 8; ++j) {
        for (int t = 0; t < 258; ++t) {
            const float was = t < 256 ? X[j * 258 + t] : X[(j + 1) * 258 + t];
            ASSERT_EQ(st.X[(j + 1) * 258 + t], was) << "spectrum " << j + 1 << " float " << t;
        }
    }
    for (int i = 0; i < 128; ++i) {
        ASSERT_EQ(st.last_y[i], 0.0f);
        ASSERT_FLOAT_EQ(st.last_y[128 + i], far[i] - 0.9f * (i > 0 ? far[i - 1] : 0.0f));
    }
}

// The constraint visits partition 0 and, by the frame counter mod 7, 2, 3, 4, 5, 6, 7, 1, 1.
TEST(Quirks, GradientConstraintRotation) {
    const testkit::Instance aec;
    aec_workingbuf_t *b = record(aec.handle());
    float in[128] = {}, out[128], echo[128], block[256], w[258];
    for (int frame = 1; frame <= 8; ++frame) {
        for (int j = 0; j < 8; ++j) {  // every partition with a non-zero second half
            for (int t = 0; t < 256; ++t) {
                block[t] = static_cast<float>((t * (j + 3)) % 17 + 1);
            }
            fft_wrap(b, block, &b->aec_inst.wfBuf[j * 258]);
        }
        mdf_echo_cancellation(b, in, in, in, out, out, echo, echo);
        std::vector<int> constrained;
        for (int j = 0; j < 8; ++j) {
            std::copy_n(&b->aec_inst.wfBuf[j * 258], 258, w);
            ifft_wrap(b, w, block);
            if (std::fabs(block[200]) < 1e-3f) {
                constrained.push_back(j);
            }
        }
        const int turn[9] = {0, 2, 3, 4, 5, 6, 7, 1, 1};
        EXPECT_EQ(constrained, (std::vector<int>{0, turn[frame]})) << "frame " << frame;
    }
}

// The intensity table is not monotonic, on purpose; an intensity above 25 stops at its band.
TEST(Quirks, IntensityTableIsNotMonotonic) {
    const float table[26][2] = {{0, 0},    {-0.5, 0}, {-1, 0},    {0, 1},     {-3, 1},   {0, 2},
                                {-1.5, 2}, {-5, 1},   {0, 3},     {-1.5, 3},  {-6.9, 1}, {-6.9, 2},
                                {0, 4},    {0, 5},    {-11.5, 1}, {-11.5, 5}, {-15, 8},  {-20, 8},
                                {-25, 8},  {-30, 8},  {-45, 8},   {-50, 8},   {-55, 8},  {-60, 8},
                                {-70, 8},  {-80, 90}};
    const testkit::Instance aec;
    aec_t &core = record(aec.handle())->aec_inst;
    for (unsigned first = 0; first < 26; first += 7) {
        unsigned int modes[7];
        for (unsigned b = 0; b < 7; ++b) {
            modes[b] = (first + b) % 26;
        }
        ASSERT_EQ(_QenAec_SetAecMode_Band(record(aec.handle()), modes), 0);
        for (unsigned b = 0; b < 7; ++b) {
            EXPECT_EQ(core.targetSupp[b], table[modes[b]][0]) << "intensity " << modes[b];
            EXPECT_EQ(core.minOverDrive[b], table[modes[b]][1]) << "intensity " << modes[b];
        }
    }
    unsigned int bad[7] = {25, 25, 25, 26, 25, 25, 25};
    EXPECT_EQ(_QenAec_SetAecMode_Band(record(aec.handle()), bad), -1);
    EXPECT_EQ(core.minOverDrive[2], 90.0f);
    EXPECT_NE(core.minOverDrive[3], 90.0f);
}

// The feedback-gain minimum creeps up twice as fast as the incoherence one (0.0008, 0.0004 /
// mult); a new minimum sets overdrive = max(target / log min, floor) two blocks later.
TEST(Quirks, TheMinimaRiseAtTheirOwnRatesAndANewOneActsTwoBlocksLater) {
    const float target[7] = {-3, 0, -11.5f, -80, -1, -6.9f, 0}, floor[7] = {1, 2, 1, 90, 0, 1, 0};
    for (int mult : {1, 2, 6}) {
        float fb_min = 1.0f, local = 0.5f, xd = 0.5f, overdrive[7] = {5, 5, 5, 5, 5, 5, 5};
        int new_min = 0;
        uint16_t ctr = 0;
        const nlp_minima_t minima = {&fb_min, &local, &xd, &new_min, &ctr};
        nlp_track_minimum(0.9f, mult, minima, target, floor, overdrive);
        EXPECT_FLOAT_EQ(local, 0.5f + 0.0008f / mult);
        EXPECT_FLOAT_EQ(xd, 0.5f + 0.0004f / mult);
        local = xd = 1.0f;
        nlp_track_minimum(0.603f, mult, minima, target, floor, overdrive);  // only below 0.6
        nlp_track_minimum(0.3f, mult, minima, target, floor, overdrive);
        EXPECT_EQ(std::vector<float>(overdrive, overdrive + 7), std::vector<float>(7, 5.0f));
        nlp_track_minimum(0.9f, mult, minima, target, floor, overdrive);
        for (int b = 0; b < 7; ++b) {
            EXPECT_NEAR(overdrive[b], std::max<double>(target[b] / std::log(0.3), floor[b]), 1e-5)
                << mult;
        }
        EXPECT_EQ(new_min, 0);
    }
}

// The profile registry is process-wide: one Free clears it for all, any Init sets it again.
TEST(Quirks, OneFreeReleasesTheProfileForAllInstances) {
    std::optional<testkit::Instance> a(std::in_place), b(std::in_place);
    EXPECT_EQ(g_is_initialed, 1);
    a.reset();
    EXPECT_EQ(g_is_initialed, 0);
    const testkit::Instance c;
    EXPECT_EQ(g_is_initialed, 1);
    b.reset();
    AudioAecInit init = {128, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
    QenAec_Reset(static_cast<char *>(c.handle()), &init);  // releases, then creates again
    EXPECT_EQ(g_is_initialed, 1);
}

}  // namespace
