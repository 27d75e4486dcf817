// The three run functions through the public header: returns and messages, the run flag,
// dumps, the linear-only path, and in-place output.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "testkit/frame_loop.h"
#include "scratch.h"

namespace {

std::vector<short> noise_frame(unsigned seed, size_t samples, int amplitude = 3000) {
    std::vector<short> v(samples);
    unsigned x = seed * 2654435761u + 1;
    for (short &s : v) {
        x = x * 1664525u + 1013904223u;
        s = static_cast<short>(static_cast<int>(x >> 16) % (2 * amplitude + 1) - amplitude);
    }
    return v;
}

const ALGO_AEC_RET kFail = static_cast<ALGO_AEC_RET>(-1);

TEST(RunApi, NullHandlesReturnMinusOneWithTheirMessages) {
    std::vector<short> near(128), far(128);
    const std::string msg = "[ALGO_MSG_ERR] [AEC]Fail! The AecWorkingBuff is NULL\t\n";
    ALGO_AEC_RET r = ALGO_AEC_RET_SUCCESS;
    EXPECT_EQ(qtest::capture_stdout([&] { r = QenAec_Run(nullptr, near.data(), far.data()); }),
              msg);
    EXPECT_EQ(r, kFail);
    EXPECT_EQ(qtest::capture_stdout([&] { r = QenAec_ADF_Run(nullptr, near.data(), far.data()); }),
              msg);
    EXPECT_EQ(r, kFail);
    EXPECT_EQ(qtest::capture_stdout([&] { r = QenAec_NLP_Run(nullptr, near.data()); }),
              "[ALGO_MSG_ERR] The AecWorkingBuff is NULL\t\n");
    EXPECT_EQ(r, kFail);
}

// Never initialised (a zeroed block) or freed: refused silently, nothing read or written.
TEST(RunApi, UninitialisedOrFreedInstanceIsRefusedSilentlyAndUntouched) {
    std::vector<unsigned char> zeroed(QenAec_GetBufferSize(), 0);
    testkit::Instance freed;
    ASSERT_NE(freed.handle(), nullptr);
    const AEC_HANDLE handle = freed.handle();
    freed.release();
    const std::vector<unsigned char> freed_before(freed.block(), freed.block() + zeroed.size());
    std::vector<short> near = noise_frame(1, 128), far = noise_frame(2, 128);
    const std::vector<short> near_before = near;
    for (AEC_HANDLE h : {static_cast<AEC_HANDLE>(zeroed.data()), handle}) {
        for (auto run : {QenAec_Run, QenAec_ADF_Run}) {
            ALGO_AEC_RET r = ALGO_AEC_RET_SUCCESS;
            EXPECT_EQ(qtest::capture_stdout([&] { r = run(h, near.data(), far.data()); }), "");
            EXPECT_EQ(r, kFail);
        }
    }
    EXPECT_EQ(near, near_before);
    EXPECT_EQ(zeroed, std::vector<unsigned char>(zeroed.size(), 0));
    EXPECT_TRUE(std::equal(freed_before.begin(), freed_before.end(), freed.block()));
}

TEST(RunApi, FarEndIsOnlyReadAndStereoOutputIsTheSameInBothChannels) {
    for (auto layout : {std::pair<uint32_t, uint32_t>{1, 1}, {2, 2}, {2, 1}}) {
        testkit::Instance aec(
            {16000, static_cast<int>(layout.first), static_cast<int>(layout.second)});
        for (int f = 0; f < 30; ++f) {
            std::vector<short> near = noise_frame(f, 128 * layout.first);
            std::vector<short> far = noise_frame(100 + f, 128 * layout.second);
            const std::vector<short> far_before = far;
            ASSERT_EQ(QenAec_Run(aec.handle(), near.data(), far.data()), ALGO_AEC_RET_SUCCESS);
            ASSERT_EQ(far, far_before);
            for (uint32_t i = 0; layout.first == 2 && i < 128; ++i) {
                ASSERT_EQ(near[2 * i], near[2 * i + 1]) << "frame " << f << " sample " << i;
            }
            ASSERT_EQ(QenAec_ADF_Run(aec.handle(), near.data(), far.data()), ALGO_AEC_RET_SUCCESS);
            ASSERT_EQ(far, far_before);
        }
    }
}

TEST(RunApi, LinearOnlySkipsItsFirstFrameBecauseTheFarLevelLagsAFrame) {
    testkit::Instance aec;
    std::vector<short> far = noise_frame(7, 128);
    std::vector<short> near = noise_frame(8, 128);
    ASSERT_EQ(QenAec_ADF_Run(aec.handle(), near.data(), far.data()), ALGO_AEC_RET_SUCCESS);
    // The level is measured over the previous frame's half, still silent: no linear stage,
    // and the output is the (empty) error history.
    EXPECT_EQ(near, std::vector<short>(128, 0));
    std::vector<short> near2 = noise_frame(9, 128);
    const std::vector<short> input2 = near2;
    ASSERT_EQ(QenAec_ADF_Run(aec.handle(), near2.data(), far.data()), ALGO_AEC_RET_SUCCESS);
    // With an empty filter the linear stage passes the (notched, emphasised) near end through.
    double in_energy = 0, out_energy = 0;
    for (int i = 0; i < 128; ++i) {
        in_energy += double(input2[i]) * input2[i];
        out_energy += double(near2[i]) * near2[i];
    }
    EXPECT_GT(out_energy, 0.1 * in_energy);
}

TEST(RunApi, SplitRunWritesTheBufferTwice) {
    testkit::Instance split, linear;
    for (int f = 0; f < 40; ++f) {
        std::vector<short> far = noise_frame(200 + f, 128);
        std::vector<short> near_split = noise_frame(300 + f, 128);
        std::vector<short> near_linear = near_split;
        ASSERT_EQ(QenAec_ADF_Run(split.handle(), near_split.data(), far.data()),
                  ALGO_AEC_RET_SUCCESS);
        ASSERT_EQ(QenAec_ADF_Run(linear.handle(), near_linear.data(), far.data()),
                  ALGO_AEC_RET_SUCCESS);
        // First write: the linear-stage error, identical to the linear-only run.
        ASSERT_EQ(near_split, near_linear) << "frame " << f;
        ASSERT_EQ(QenAec_NLP_Run(split.handle(), near_split.data()), ALGO_AEC_RET_SUCCESS);
    }
    // Second write: the suppressed signal replaces it.
    std::vector<short> near = noise_frame(400, 128), near_before = near;
    ASSERT_EQ(QenAec_NLP_Run(split.handle(), near.data()), ALGO_AEC_RET_SUCCESS);
    EXPECT_NE(near, near_before);
}

// --- dumps ---------------------------------------------------------------------------------

class DumpEnv : public testing::Test {
protected:
    std::vector<short> read_pcm(const std::string &kind, int id) const {
        const std::string bytes = qtest::read_file(dir_.path() + "/Audio_AEC_" + kind + "_data_" +
                                                   std::to_string(id) + ".pcm");
        EXPECT_EQ(bytes.size() % 2, 0u);
        std::vector<short> pcm(bytes.size() / 2);
        memcpy(pcm.data(), bytes.data(), pcm.size() * 2);
        return pcm;
    }
    qtest::TempDir dir_;
    qtest::ScopedEnv path_{"AUDIO_DUMP_PATH", dir_.path()};
    qtest::ScopedEnv dump_{"AUDIO_AEC_DUMP", "1"};
};

TEST_F(DumpEnv, UnknownSwitchValueFailsOnceThenConflicts) {
    testkit::Instance aec;
    qtest::ScopedEnv unknown("AUDIO_AEC_DUMP", "2");
    std::vector<short> near = noise_frame(1, 128), far = noise_frame(2, 128);
    ALGO_AEC_RET r = ALGO_AEC_RET_SUCCESS;
    EXPECT_EQ(qtest::capture_stdout([&] { r = QenAec_Run(aec.handle(), near.data(), far.data()); }),
              "[ALGO_MSG_ERR] [DebugDumpDataInit]Fail! Dump AEC export error.\t\n");
    EXPECT_EQ(r, ALGO_AEC_RET_INIT_ERROR);
    // The run flag was left set by the failure.
    EXPECT_EQ(QenAec_Run(aec.handle(), near.data(), far.data()), ALGO_AEC_RET_API_CONFLICT);
    EXPECT_EQ(QenAec_ADF_Run(aec.handle(), near.data(), far.data()), ALGO_AEC_RET_API_CONFLICT);
    AudioAecInit init = {128, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
    ASSERT_EQ(QenAec_Reset(static_cast<char *>(aec.handle()), &init), aec.handle());
    EXPECT_EQ(QenAec_Run(aec.handle(), near.data(), far.data()), ALGO_AEC_RET_SUCCESS);
}

TEST_F(DumpEnv, FilesHoldExactlyWhatCameInAndWentOut) {
    for (int id : {0, 7}) {
        for (testkit::Mode mode : {testkit::Mode::kFull, testkit::Mode::kLinear}) {
            std::vector<short> near_in, far_in, out;
            {
                testkit::Instance aec({16000, 2, 1});
                if (id != 0) {
                    ASSERT_EQ(QenAec_SetHandleId(aec.handle(), id), ALGO_AEC_RET_SUCCESS);
                }
                for (int f = 0; f < 6; ++f) {
                    std::vector<short> near = noise_frame(10 + f, 256);
                    std::vector<short> far = noise_frame(20 + f, 128);
                    near_in.insert(near_in.end(), near.begin(), near.end());
                    far_in.insert(far_in.end(), far.begin(), far.end());
                    ASSERT_EQ(testkit::run_frame(aec.handle(), near.data(), far.data(), mode),
                              ALGO_AEC_RET_SUCCESS);
                    out.insert(out.end(), near.begin(), near.end());
                }
            }  // Free closes the files
            EXPECT_EQ(read_pcm("near_end", id), near_in) << "id " << id;
            EXPECT_EQ(read_pcm("far_end", id), far_in) << "id " << id;
            EXPECT_EQ(read_pcm("output", id), out) << "id " << id;
            // One mono 128-sample echo frame per frame in which the linear stage ran; the
            // linear-only path skips its first frame (far level measured a frame late).
            const size_t linear_frames = mode == testkit::Mode::kLinear ? 5 : 6;
            EXPECT_EQ(read_pcm("echo", id).size(), 128 * linear_frames) << "id " << id;
        }
    }
}

// NLP_Run alone needs no run before it, works on the zeroed analysis buffers, and dumps nothing.
TEST_F(DumpEnv, NonlinearStageOnAFreshInstanceRunsOnSilenceAndWritesNoDumps) {
    {
        testkit::Instance aec;
        std::vector<short> near = noise_frame(3, 128);
        ASSERT_EQ(QenAec_NLP_Run(aec.handle(), near.data()), ALGO_AEC_RET_SUCCESS);
        EXPECT_EQ(near, std::vector<short>(128, 0));
    }
    EXPECT_TRUE(std::filesystem::is_empty(dir_.path()));
}

}  // namespace
