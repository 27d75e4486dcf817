// The three run functions through the public header: returns and messages, the run flag,
// dumps, the linear-only path, and in-place output.
#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "qen_aec.h"

namespace {

struct Instance {
    std::vector<unsigned char> block;
    AEC_HANDLE h = nullptr;
    Instance(int rate = 16000, uint32_t near_ch = 1, uint32_t far_ch = 1)
        : block(QenAec_GetBufferSize()) {
        AudioAecInit init = {128, near_ch, far_ch, static_cast<QEN_AEC_SAMPLE_RATE>(rate)};
        h = QenAec_Init(reinterpret_cast<char *>(block.data()), &init);
    }
    ~Instance() {
        if (h != nullptr) {
            QenAec_Free(h);
        }
    }
};

std::vector<short> noise_frame(unsigned seed, size_t samples, int amplitude = 3000) {
    std::vector<short> v(samples);
    unsigned x = seed * 2654435761u + 1;
    for (short &s : v) {
        x = x * 1664525u + 1013904223u;
        s = static_cast<short>(static_cast<int>(x >> 16) % (2 * amplitude + 1) - amplitude);
    }
    return v;
}

std::string captured(const std::function<void()> &fn) {
    fflush(stdout);
    testing::internal::CaptureStdout();
    fn();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

const ALGO_AEC_RET kFail = static_cast<ALGO_AEC_RET>(-1);

TEST(RunApi, NullHandlesReturnMinusOneWithTheirMessages) {
    std::vector<short> near(128), far(128);
    ALGO_AEC_RET r = ALGO_AEC_RET_SUCCESS;
    EXPECT_EQ(captured([&] { r = QenAec_Run(nullptr, near.data(), far.data()); }),
              "[ALGO_MSG_ERR] [AEC]Fail! The AecWorkingBuff is NULL\t\n");
    EXPECT_EQ(r, kFail);
    EXPECT_EQ(captured([&] { r = QenAec_ADF_Run(nullptr, near.data(), far.data()); }),
              "[ALGO_MSG_ERR] [AEC]Fail! The AecWorkingBuff is NULL\t\n");
    EXPECT_EQ(r, kFail);
    EXPECT_EQ(captured([&] { r = QenAec_NLP_Run(nullptr, near.data()); }),
              "[ALGO_MSG_ERR] The AecWorkingBuff is NULL\t\n");
    EXPECT_EQ(r, kFail);
}

TEST(RunApi, UninitialisedInstanceIsRefusedSilentlyAndUntouched) {
    std::vector<unsigned char> block(QenAec_GetBufferSize(), 0);
    std::vector<short> near = noise_frame(1, 128), far = noise_frame(2, 128);
    const std::vector<short> near_before = near;
    for (auto run : {QenAec_Run, QenAec_ADF_Run}) {
        ALGO_AEC_RET r = ALGO_AEC_RET_SUCCESS;
        EXPECT_EQ(captured([&] { r = run(block.data(), near.data(), far.data()); }), "");
        EXPECT_EQ(r, kFail);
    }
    EXPECT_EQ(near, near_before);
    for (unsigned char b : block) {
        ASSERT_EQ(b, 0);
    }
}

TEST(RunApi, FreedInstanceIsRefused) {
    Instance inst;
    ASSERT_NE(inst.h, nullptr);
    std::vector<short> near = noise_frame(1, 128), far = noise_frame(2, 128);
    ASSERT_EQ(QenAec_Free(inst.h), ALGO_AEC_RET_SUCCESS);
    EXPECT_EQ(QenAec_Run(inst.h, near.data(), far.data()), kFail);
    inst.h = nullptr;
}

TEST(RunApi, FarEndBufferIsOnlyRead) {
    for (auto layout : {std::pair<uint32_t, uint32_t>{1, 1}, {2, 2}, {2, 1}}) {
        Instance inst(16000, layout.first, layout.second);
        for (int f = 0; f < 20; ++f) {
            std::vector<short> near = noise_frame(f, 128 * layout.first);
            std::vector<short> far = noise_frame(100 + f, 128 * layout.second);
            const std::vector<short> far_before = far;
            ASSERT_EQ(QenAec_Run(inst.h, near.data(), far.data()), ALGO_AEC_RET_SUCCESS);
            ASSERT_EQ(far, far_before);
            ASSERT_EQ(QenAec_ADF_Run(inst.h, near.data(), far.data()), ALGO_AEC_RET_SUCCESS);
            ASSERT_EQ(far, far_before);
        }
    }
}

TEST(RunApi, StereoNearEndGetsTheSameOutputInBothChannels) {
    for (uint32_t far_ch : {1u, 2u}) {
        Instance inst(16000, 2, far_ch);
        for (int f = 0; f < 30; ++f) {
            std::vector<short> near = noise_frame(f, 256);
            std::vector<short> far = noise_frame(50 + f, 128 * far_ch);
            ASSERT_EQ(QenAec_Run(inst.h, near.data(), far.data()), ALGO_AEC_RET_SUCCESS);
            for (int i = 0; i < 128; ++i) {
                ASSERT_EQ(near[2 * i], near[2 * i + 1]) << "frame " << f << " sample " << i;
            }
        }
    }
}

TEST(RunApi, LinearOnlySkipsItsFirstFrameBecauseTheFarLevelLagsAFrame) {
    Instance inst;
    std::vector<short> far = noise_frame(7, 128);
    std::vector<short> near = noise_frame(8, 128);
    ASSERT_EQ(QenAec_ADF_Run(inst.h, near.data(), far.data()), ALGO_AEC_RET_SUCCESS);
    // The level is measured over the previous frame's half, still silent: no linear stage,
    // and the output is the (empty) error history.
    for (short s : near) {
        ASSERT_EQ(s, 0);
    }
    std::vector<short> near2 = noise_frame(9, 128);
    const std::vector<short> input2 = near2;
    ASSERT_EQ(QenAec_ADF_Run(inst.h, near2.data(), far.data()), ALGO_AEC_RET_SUCCESS);
    // With an empty filter the linear stage passes the (notched, emphasised) near end through.
    double in_energy = 0, out_energy = 0;
    for (int i = 0; i < 128; ++i) {
        in_energy += double(input2[i]) * input2[i];
        out_energy += double(near2[i]) * near2[i];
    }
    EXPECT_GT(out_energy, 0.1 * in_energy);
}

TEST(RunApi, SplitRunWritesTheBufferTwice) {
    Instance split;
    Instance linear;
    for (int f = 0; f < 40; ++f) {
        std::vector<short> far = noise_frame(200 + f, 128);
        std::vector<short> near_split = noise_frame(300 + f, 128);
        std::vector<short> near_linear = near_split;
        ASSERT_EQ(QenAec_ADF_Run(split.h, near_split.data(), far.data()), ALGO_AEC_RET_SUCCESS);
        ASSERT_EQ(QenAec_ADF_Run(linear.h, near_linear.data(), far.data()), ALGO_AEC_RET_SUCCESS);
        // First write: the linear-stage error, identical to the linear-only run.
        ASSERT_EQ(near_split, near_linear) << "frame " << f;
        ASSERT_EQ(QenAec_NLP_Run(split.h, near_split.data()), ALGO_AEC_RET_SUCCESS);
        if (f == 39) {
            // Second write: the suppressed signal replaces it.
            EXPECT_NE(near_split, near_linear);
        }
    }
}

TEST(RunApi, NonlinearStageOnAFreshInstanceRunsOnSilence) {
    Instance inst;
    std::vector<short> near = noise_frame(3, 128);
    ASSERT_EQ(QenAec_NLP_Run(inst.h, near.data()), ALGO_AEC_RET_SUCCESS);
    for (short s : near) {
        ASSERT_EQ(s, 0);
    }
}

// --- dumps ---------------------------------------------------------------------------------

class DumpEnv : public testing::Test {
protected:
    std::string dir;
    void SetUp() override {
        char pattern[] = "/tmp/qenaec-dump-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        setenv("AUDIO_DUMP_PATH", dir.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("AUDIO_AEC_DUMP");
        unsetenv("AUDIO_DUMP_PATH");
        if (DIR *d = opendir(dir.c_str())) {
            while (dirent *e = readdir(d)) {
                if (e->d_name[0] != '.') {
                    unlink((dir + "/" + e->d_name).c_str());
                }
            }
            closedir(d);
        }
        rmdir(dir.c_str());
    }
    std::vector<short> read_pcm(const std::string &kind, int id) const {
        std::ifstream in(dir + "/Audio_AEC_" + kind + "_data_" + std::to_string(id) + ".pcm",
                         std::ios::binary);
        std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
        std::vector<short> pcm(bytes.size() / 2);
        memcpy(pcm.data(), bytes.data(), pcm.size() * 2);
        EXPECT_EQ(bytes.size() % 2, 0u);
        return pcm;
    }
};

TEST_F(DumpEnv, UnknownSwitchValueFailsOnceThenConflicts) {
    Instance inst;
    setenv("AUDIO_AEC_DUMP", "2", 1);
    std::vector<short> near = noise_frame(1, 128), far = noise_frame(2, 128);
    ALGO_AEC_RET r = ALGO_AEC_RET_SUCCESS;
    EXPECT_EQ(captured([&] { r = QenAec_Run(inst.h, near.data(), far.data()); }),
              "[ALGO_MSG_ERR] [DebugDumpDataInit]Fail! Dump AEC export error.\t\n");
    EXPECT_EQ(r, ALGO_AEC_RET_INIT_ERROR);
    // The run flag was left set by the failure.
    EXPECT_EQ(QenAec_Run(inst.h, near.data(), far.data()), ALGO_AEC_RET_API_CONFLICT);
    EXPECT_EQ(QenAec_ADF_Run(inst.h, near.data(), far.data()), ALGO_AEC_RET_API_CONFLICT);
    AudioAecInit init = {128, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
    ASSERT_EQ(QenAec_Reset(reinterpret_cast<char *>(inst.h), &init), inst.h);
    EXPECT_EQ(QenAec_Run(inst.h, near.data(), far.data()), ALGO_AEC_RET_SUCCESS);
}

TEST_F(DumpEnv, FilesHoldExactlyWhatCameInAndWentOut) {
    for (int id : {0, 7}) {
        for (bool linear_only : {false, true}) {
            setenv("AUDIO_AEC_DUMP", "1", 1);
            std::vector<short> near_in, far_in, out;
            {
                Instance inst(16000, 2, 1);
                if (id != 0) {
                    ASSERT_EQ(QenAec_SetHandleId(inst.h, id), ALGO_AEC_RET_SUCCESS);
                }
                for (int f = 0; f < 6; ++f) {
                    std::vector<short> near = noise_frame(10 + f, 256);
                    std::vector<short> far = noise_frame(20 + f, 128);
                    near_in.insert(near_in.end(), near.begin(), near.end());
                    far_in.insert(far_in.end(), far.begin(), far.end());
                    const ALGO_AEC_RET r = linear_only
                                               ? QenAec_ADF_Run(inst.h, near.data(), far.data())
                                               : QenAec_Run(inst.h, near.data(), far.data());
                    ASSERT_EQ(r, ALGO_AEC_RET_SUCCESS);
                    out.insert(out.end(), near.begin(), near.end());
                }
            }  // Free closes the files
            EXPECT_EQ(read_pcm("near_end", id), near_in) << "id " << id;
            EXPECT_EQ(read_pcm("far_end", id), far_in) << "id " << id;
            EXPECT_EQ(read_pcm("output", id), out) << "id " << id;
            // One mono 128-sample echo frame per frame in which the linear stage ran; the
            // linear-only path skips its first frame (far level measured a frame late).
            const size_t linear_frames = linear_only ? 5 : 6;
            EXPECT_EQ(read_pcm("echo", id).size(), 128 * linear_frames) << "id " << id;
        }
    }
}

TEST_F(DumpEnv, NonlinearStageAloneWritesNoDumps) {
    setenv("AUDIO_AEC_DUMP", "1", 1);
    {
        Instance inst;
        std::vector<short> near = noise_frame(1, 128);
        ASSERT_EQ(QenAec_NLP_Run(inst.h, near.data()), ALGO_AEC_RET_SUCCESS);
    }
    DIR *d = opendir(dir.c_str());
    ASSERT_NE(d, nullptr);
    int files = 0;
    while (dirent *e = readdir(d)) {
        files += e->d_name[0] != '.';
    }
    closedir(d);
    EXPECT_EQ(files, 0);
}

}  // namespace
