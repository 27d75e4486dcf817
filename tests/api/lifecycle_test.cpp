// The public API's invariants through the header and shared object only (refusals: messages_test).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfenv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>
#if defined(__SSE__)
#include <xmmintrin.h>
#endif

#include "scratch.h"
#include "testkit/signals.h"

namespace {

using testkit::Mode;
using Pcm = std::vector<int16_t>;

const AudioAecConfig kDefaults = {
    QEN_AEC_FALSE, 0, {4, 6, 36, 49, 50, 51}, {5, 4, 4, 5, 10, 10, 10}};

// The configuration the instance reads back is `b`.
bool config_is(AEC_HANDLE h, const AudioAecConfig &b) {
    AudioAecInit rec;
    AudioAecConfig a;
    return QenAec_GetConfig(h, &rec, &a) == ALGO_AEC_RET_SUCCESS &&
           a.comfort_noise_enable == b.comfort_noise_enable && a.delay_sample == b.delay_sample &&
           memcmp(a.suppression_mode_freq, b.suppression_mode_freq, 24) == 0 &&
           memcmp(a.suppression_mode_intensity, b.suppression_mode_intensity, 28) == 0;
}

testkit::Recording scene(testkit::Layout l, double seconds = 1.0) {
    return testkit::noise_echo({.rate = l.rate,
                                .near_channels = l.near_channels,
                                .far_channels = l.far_channels,
                                .seconds = seconds});
}

Pcm run(AEC_HANDLE h, const testkit::Recording &rec, Mode mode = Mode::kFull) {
    Pcm out = rec.near;
    EXPECT_EQ(testkit::run(h, rec.layout, out, rec.far, mode).code, ALGO_AEC_RET_SUCCESS);
    return out;
}

// Init needs no cleared block: on garbage every layout and mode behaves as on a zeroed one.
TEST(Lifecycle, InitNeedsNoClearedBlock) {
    for (int rate : {8000, 16000, 32000, 48000}) {
        for (testkit::Layout l :
             {testkit::Layout{rate, 1, 1}, {rate, 1, 2}, {rate, 2, 1}, {rate, 2, 2}}) {
            const testkit::Recording rec = scene(l, 0.3);
            for (Mode mode : {Mode::kFull, Mode::kLinear, Mode::kSplit}) {
                const testkit::Instance zeroed(l);
                std::vector<char> block(QenAec_GetBufferSize(), mode == Mode::kFull ? 0x5A : -1);
                AudioAecInit init = {128, uint32_t(l.near_channels), uint32_t(l.far_channels),
                                     static_cast<QEN_AEC_SAMPLE_RATE>(rate)};
                ASSERT_EQ(QenAec_Init(block.data(), &init), block.data());
                EXPECT_TRUE(config_is(block.data(), kDefaults));
                EXPECT_TRUE(run(block.data(), rec, mode) == run(zeroed.handle(), rec, mode))
                    << rate << " Hz " << l.near_channels << "x" << l.far_channels << " "
                    << testkit::mode_name(mode);
                QenAec_Free(block.data());
            }
        }
    }
}

// A refused record changes nothing (read back or output); an accepted one reads back whole.
TEST(Lifecycle, ConfigIsAllOrNothing) {
    const testkit::Recording rec = scene({16000, 1, 1});
    const AudioAecConfig good = {
        QEN_AEC_FALSE, -5, {10, 10, 20, 30, 40, 126}, {25, 0, 16, 20, 3, 7, 14}};
    const testkit::Instance reference;
    AudioAecConfig cfg = good;
    ASSERT_EQ(QenAec_Config(reference.handle(), &cfg), ALGO_AEC_RET_SUCCESS);
    EXPECT_TRUE(config_is(reference.handle(), good));
    const Pcm want = run(reference.handle(), rec);
    // Each valid but for one field: comfort noise, an intensity, the first, last or a middle edge.
    for (AudioAecConfig other :
         {AudioAecConfig{QEN_AEC_BOOL(2), 9, {1, 2, 3, 4, 5, 6}, {1, 1, 1, 1, 1, 1, 1}},
          {QEN_AEC_FALSE, 9, {1, 2, 3, 4, 5, 6}, {1, 1, 1, 1, 1, 1, 26}},
          {QEN_AEC_FALSE, 9, {0, 2, 3, 4, 5, 6}, {1, 1, 1, 1, 1, 1, 1}},
          {QEN_AEC_FALSE, 9, {1, 2, 3, 4, 5, 127}, {1, 1, 1, 1, 1, 1, 1}},
          {QEN_AEC_FALSE, 9, {1, 2, 30, 19, 40, 50}, {1, 1, 1, 1, 1, 1, 1}}}) {
        const testkit::Instance aec;
        cfg = good;
        ASSERT_EQ(QenAec_Config(aec.handle(), &cfg), ALGO_AEC_RET_SUCCESS);
        qtest::capture_stdout([&] { EXPECT_NE(QenAec_Config(aec.handle(), &other), 0); });
        EXPECT_TRUE(config_is(aec.handle(), good));
        EXPECT_TRUE(run(aec.handle(), rec) == want);
    }
}

// Ratio 1 is the default smoothing; another ratio changes the output, and Reset keeps it.
TEST(Lifecycle, RecursiveRatioOneIsTheDefaultAndResetKeepsTheRatio) {
    const testkit::Recording rec = scene({16000, 1, 1});
    const testkit::Instance plain, one({}, {.ratio = 1}), ten({}, {.ratio = 10}),
        reset({}, {.ratio = 10});
    const Pcm out = run(plain.handle(), rec);
    EXPECT_TRUE(run(one.handle(), rec) == out);
    const Pcm out10 = run(ten.handle(), rec);
    EXPECT_FALSE(out10 == out);
    AudioAecInit init = {128, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
    ASSERT_EQ(QenAec_Reset(static_cast<char *>(reset.handle()), &init), reset.handle());
    EXPECT_TRUE(run(reset.handle(), rec) == out10);
}

// Reset keeps the delay, restores the default bands, and restarts the linear stage as Init does
// (its first frame repeats the last error, so compare from the second).
TEST(Lifecycle, ResetRestartsTheLinearStageAndKeepsTheDelay) {
    for (int rate : {8000, 48000}) {
        const testkit::Recording rec = scene({rate, 1, 1}, 0.5);
        testkit::Recording other = rec;
        for (size_t t = 0; t + 256 < other.near.size(); ++t) {
            other.near[t] = static_cast<int16_t>(other.near[t] / 2 + 50);
        }
        const testkit::Instance used({rate, 1, 1}), twin({rate, 1, 1}), fresh({rate, 1, 1});
        EXPECT_TRUE(config_is(used.handle(), kDefaults));
        AudioAecConfig cfg = {QEN_AEC_TRUE, 77, {3, 8, 20, 40, 60, 100}, {25, 0, 16, 20, 3, 7, 14}};
        ASSERT_EQ(QenAec_Config(used.handle(), &cfg), ALGO_AEC_RET_SUCCESS);
        run(used.handle(), rec, Mode::kFull);
        run(twin.handle(), other, Mode::kFull);
        AudioAecInit init = {128, 1, 1, static_cast<QEN_AEC_SAMPLE_RATE>(rate)};
        ASSERT_EQ(QenAec_Reset(static_cast<char *>(used.handle()), &init), used.handle());
        ASSERT_EQ(QenAec_Reset(static_cast<char *>(twin.handle()), &init), twin.handle());
        AudioAecConfig want = kDefaults;
        want.delay_sample = 77;
        EXPECT_TRUE(config_is(used.handle(), want));
        const Pcm a = run(used.handle(), rec, Mode::kLinear);
        for (const testkit::Instance *other_aec : {&twin, &fresh}) {
            const Pcm b = run(other_aec->handle(), rec, Mode::kLinear);
            EXPECT_TRUE(std::equal(a.begin() + 128, a.end(), b.begin() + 128)) << rate;
        }
    }
}

// The first far-end channel is the reference and near-end channels are averaged: duplicated
// stereo gives the mono output in each channel.
TEST(Lifecycle, StereoLayoutsWithDuplicatedChannelsGiveTheMonoOutput) {
    const testkit::Recording mono = scene({16000, 1, 1});
    for (Mode mode : {Mode::kFull, Mode::kLinear}) {
        const testkit::Instance m;
        const Pcm want = run(m.handle(), mono, mode);
        for (testkit::Layout l : {testkit::Layout{16000, 2, 1}, {16000, 1, 2}, {16000, 2, 2}}) {
            testkit::Recording rec{l, {}, {}};
            for (size_t t = 0; t < mono.near.size(); ++t) {
                rec.near.insert(rec.near.end(), l.near_channels, mono.near[t]);
                rec.far.push_back(mono.far[t]);
                if (l.far_channels == 2) {
                    rec.far.push_back(mono.near[mono.near.size() - 1 - t]);
                }
            }
            const testkit::Instance aec(l);
            const Pcm out = run(aec.handle(), rec, mode);
            for (size_t i = 0; i < out.size(); ++i) {
                ASSERT_EQ(out[i], want[i / l.near_channels])
                    << l.near_channels << "x" << l.far_channels << " " << testkit::mode_name(mode);
            }
        }
    }
}

// A near-end sample beyond +-32700 marks its frame and the next as saturated (the average of
// two microphones is the same either way).
TEST(Lifecycle, SaturatedMicrophoneMarksItsFrameAndTheNext) {
    const testkit::Recording rec = scene({16000, 2, 1}, 0.6);
    const auto output = [&](std::initializer_list<std::array<int, 3>> samples, size_t frames) {
        testkit::Recording r = rec;
        for (const auto &[frame, a, b] : samples) {
            r.near[(frame * 128 + 10) * 2] = static_cast<int16_t>(a);
            r.near[(frame * 128 + 10) * 2 + 1] = static_cast<int16_t>(b);
        }
        r.near.resize(frames * 256);
        r.far.resize(frames * 128);
        const testkit::Instance aec(rec.layout);
        return run(aec.handle(), r);
    };
    const size_t all = rec.frames();
    const Pcm calm = output({{60, 32700, 32700}, {61, 32700, 32700}}, all);
    const Pcm once = output({{60, 32701, 32699}, {61, 32700, 32700}}, all);
    const Pcm twice = output({{60, 32701, 32699}, {61, 32701, 32699}}, all);
    EXPECT_TRUE(std::equal(calm.begin(), calm.begin() + 60 * 256, once.begin()));
    EXPECT_FALSE(std::equal(calm.begin(), calm.begin() + 61 * 256, once.begin()));
    // Frame 61 of `once` is saturated by the frame before, as `twice`'s by itself.
    EXPECT_TRUE(std::equal(once.begin(), once.begin() + 62 * 256, twice.begin()));
    EXPECT_FALSE(once == twice);
    EXPECT_FALSE(output({{60, -32768, -32632}}, 61) == output({{60, -32700, -32700}}, 61));
}

// Comfort noise fills the suppressed echo near the noise floor (rms 33; echo rms 1700).
TEST(Lifecycle, ComfortNoiseFillsTheSuppressedEcho) {
    const testkit::Recording rec = scene({16000, 1, 1}, 4.0);
    for (bool on : {false, true}) {
        const testkit::Instance aec(rec.layout, {.comfort_noise = on});
        const Pcm out = run(aec.handle(), rec);
        double sum = 0;
        for (size_t t = out.size() - 16000; t < out.size(); ++t) {
            sum += double(out[t]) * out[t];
        }
        const double rms = std::sqrt(sum / 16000);
        EXPECT_TRUE(on ? rms > 10 && rms < 430 : rms < 1) << "rms " << rms;
    }
}

// The files hold the inputs and the output, named by the handle id (echo: one block a frame).
// Switched off and on they start over; with no directory named they are in the current one.
TEST(Lifecycle, DumpsHoldWhatCameInAndWentOut) {
    const qtest::TempDir dir;
    const auto file = [&](const std::string &kind, int id) {
        return qtest::read_pcm(
            dir.path("Audio_AEC_" + kind + "_data_" + std::to_string(id) + ".pcm"));
    };
    const testkit::Recording rec = scene({16000, 2, 1}, 0.05);
    for (Mode mode : {Mode::kFull, Mode::kLinear}) {
        const int id = mode == Mode::kFull ? 0 : 100;
        Pcm out = rec.near;
        {
            const qtest::ScopedEnv path("AUDIO_DUMP_PATH", dir.path()), on("AUDIO_AEC_DUMP", "1");
            const testkit::Instance aec(rec.layout);
            qtest::capture_stdout([&] { QenAec_SetHandleId(aec.handle(), id == 0 ? -4 : 250); });
            testkit::run(aec.handle(), rec.layout, out, rec.far, mode);
        }
        EXPECT_EQ(file("output", id), out);
        EXPECT_EQ(file("echo", id).size(), 128 * (rec.frames() - (mode == Mode::kLinear)));
    }
    const auto cwd = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    {
        const qtest::ScopedEnv no_path("AUDIO_DUMP_PATH", std::nullopt);
        const testkit::Instance aec(rec.layout);
        for (const char *value : {"1", "1", "0", "1"}) {
            const qtest::ScopedEnv on("AUDIO_AEC_DUMP", value);
            testkit::run_frame(aec.handle(), Pcm(rec.near).data(), rec.far.data(), Mode::kFull);
        }
    }
    std::filesystem::current_path(cwd);
    EXPECT_EQ(file("far_end", 0), Pcm(rec.far.begin(), rec.far.begin() + 128));
}

// The floating-point control register, its flush-to-zero bits and its flag bits (which ordinary
// arithmetic sets, and which are therefore not compared).
#if defined(__SSE__)
const auto fp_get = [] { return _mm_getcsr(); };  // MXCSR
const auto fp_set = [](unsigned v) { _mm_setcsr(v); };
constexpr unsigned kFlush = 0x8040u, kFlags = 0x3Fu;  // FTZ and DAZ; exceptions
#elif defined(__arm__)
const auto fp_get = [] {
    unsigned v;
    __asm__ volatile("vmrs %0, fpscr" : "=r"(v));
    return v;
};
const auto fp_set = [](unsigned v) { __asm__ volatile("vmsr fpscr, %0" : : "r"(v)); };
constexpr unsigned kFlush = 1u << 24, kFlags = 0xF80000FFu;  // FZ; comparison, exceptions
#else
const auto fp_get = [] { return 0u; };
const auto fp_set = [](unsigned) {};
constexpr unsigned kFlush = 0, kFlags = 0;
#endif

// The run functions hand the caller's floating-point mode back (rounding, the control bits).
TEST(Lifecycle, RunFunctionsRestoreTheCallersFloatingPointMode) {
    const testkit::Recording rec = scene({16000, 1, 1}, 0.05);
    const testkit::Instance aec;
    const int saved = fegetround();
    const unsigned saved_register = fp_get();
    for (int setup = 0; setup < 3; ++setup) {
        fesetround(setup == 0 ? FE_TONEAREST : FE_UPWARD);
        fp_set(setup == 2 ? fp_get() | kFlush : fp_get() & ~kFlush);
        const unsigned controls = fp_get() & ~kFlags;
        const int round = fegetround();
        for (Mode mode : {Mode::kFull, Mode::kLinear, Mode::kSplit}) {
            Pcm near = rec.near;
            testkit::run_frame(aec.handle(), near.data(), rec.far.data(), mode);
            EXPECT_EQ(fegetround(), round);
            EXPECT_EQ(fp_get() & ~kFlags, controls) << "caller set-up " << setup;
        }
    }
    fesetround(saved);
    fp_set(saved_register);
}

}  // namespace
