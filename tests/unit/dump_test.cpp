// PCM dump switching through AUDIO_AEC_DUMP and AUDIO_DUMP_PATH.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "diag/dump.h"
#include "fixture.h"
#include "scratch.h"

namespace {

const char *const kKinds[4] = {"near_end", "far_end", "echo", "output"};

std::string dump_file(const std::string &dir, const char *kind, int id) {
    return dir + "/Audio_AEC_" + kind + "_data_" + std::to_string(id) + ".pcm";
}

class Dump : public testing::Test {
protected:
    Dump() {
        buf()->dbg_level = 7;
        buf()->dump_id = 7;
    }
    aec_workingbuf_t *buf() { return block_.get(); }
    FILE *stream(int k) {
        FILE *streams[4] = {buf()->near_end_dump, buf()->far_end_dump, buf()->echo_dump,
                            buf()->output_dump};
        return streams[k];
    }
    int init_with(const char *value, std::string *out = nullptr) {
        qtest::ScopedEnv env("AUDIO_AEC_DUMP", value);
        int result = 0;
        const std::string text = qtest::capture_stdout([&] { result = DebugDumpDataInit(buf()); });
        if (out != nullptr) {
            *out = text;
        }
        return result;
    }

    qtest::TempDir dir_;
    qtest::ScopedEnv path_{"AUDIO_DUMP_PATH", dir_.path()};
    qtest::InstanceBlock block_;
};

TEST_F(Dump, UnsetSwitchOpensNothing) {
    qtest::ScopedEnv env("AUDIO_AEC_DUMP", std::nullopt);
    EXPECT_EQ(DebugDumpDataInit(buf()), 0);
    EXPECT_EQ(buf()->dump_flag, 0);
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(stream(k), nullptr);
        EXPECT_EQ(qtest::file_size(dump_file(dir_.path(), kKinds[k], 7)), -1);
    }
}

TEST_F(Dump, SwitchingOnOffOnTruncates) {
    std::string out;
    ASSERT_EQ(init_with("1", &out), 0);
    EXPECT_EQ(out, "");
    EXPECT_EQ(buf()->dump_flag, 1);
    for (int k = 0; k < 4; ++k) {
        ASSERT_NE(stream(k), nullptr) << kKinds[k];
    }
    const short frame[128] = {1, 2, 3};
    DebugDumpDataWrite(buf()->near_end_dump, frame, 128);
    DebugDumpDataWrite(buf()->output_dump, frame, 64);
    // Same value again: nothing is reopened, the bytes written so far stay.
    EXPECT_EQ(init_with("1"), 0);

    EXPECT_EQ(init_with("0"), 0);
    EXPECT_EQ(buf()->dump_flag, 0);
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(stream(k), nullptr) << kKinds[k];
    }
    EXPECT_EQ(qtest::file_size(dump_file(dir_.path(), "near_end", 7)), 256);
    EXPECT_EQ(qtest::file_size(dump_file(dir_.path(), "output", 7)), 128);
    EXPECT_EQ(qtest::file_size(dump_file(dir_.path(), "echo", 7)), 0);
    // Writing to a closed stream is skipped.
    DebugDumpDataWrite(buf()->near_end_dump, frame, 128);

    ASSERT_EQ(init_with("1"), 0);
    for (int k = 0; k < 4; ++k) {
        EXPECT_NE(stream(k), nullptr) << kKinds[k];
        EXPECT_EQ(qtest::file_size(dump_file(dir_.path(), kKinds[k], 7)), 0) << kKinds[k];
    }
    DebugDumpDataFree(buf());
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(stream(k), nullptr) << kKinds[k];
    }
}

TEST_F(Dump, FreeAfterSwitchingOffClosesNothingTwice) {
    ASSERT_EQ(init_with("1"), 0);
    ASSERT_EQ(init_with("0"), 0);
    // Would be a double fclose (caught by the sanitizers) if closing left the pointers.
    DebugDumpDataFree(buf());
    DebugDumpDataFree(buf());
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(stream(k), nullptr);
    }
}

TEST_F(Dump, MissingDirectoryFailsOnceAndIsNotRetried) {
    const std::string missing = dir_.path() + "/nope";
    qtest::ScopedEnv path("AUDIO_DUMP_PATH", missing);
    std::string out;
    EXPECT_EQ(init_with("1", &out), -1);
    EXPECT_EQ(out, "[ALGO_MSG_ERR] [DebugDumpDataInit]Fail! Dump path " + missing +
                       " doesn't exist!\t\n");
    EXPECT_EQ(buf()->dump_flag, 1);
    EXPECT_EQ(init_with("1", &out), 0);
    EXPECT_EQ(out, "");
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(stream(k), nullptr);
    }
    // Switching off after the failure has nothing to close.
    EXPECT_EQ(init_with("0"), 0);
    DebugDumpDataFree(buf());
}

TEST_F(Dump, ErrorMessageFollowsTheMask) {
    const std::string missing = dir_.path() + "/nope";
    qtest::ScopedEnv path("AUDIO_DUMP_PATH", missing);
    buf()->dbg_level = 0;
    std::string out;
    EXPECT_EQ(init_with("1", &out), -1);
    EXPECT_EQ(out, "");
}

TEST_F(Dump, OverlongDirectoryFailsLikeAMissingOne) {
    // An existing directory whose path does not fit the 64-byte text.
    const std::string deep = dir_.path() + "/" + std::string(70, 'd');
    ASSERT_EQ(mkdir(deep.c_str(), 0755), 0);
    qtest::ScopedEnv path("AUDIO_DUMP_PATH", deep);
    std::string out;
    EXPECT_EQ(init_with("1", &out), -1);
    EXPECT_EQ(out,
              "[ALGO_MSG_ERR] [DebugDumpDataInit]Fail! Dump path " + deep + " doesn't exist!\t\n");
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(stream(k), nullptr);
    }
}

TEST_F(Dump, UnknownValueFailsOnceWithNothingOpen) {
    std::string out;
    EXPECT_EQ(init_with("2", &out), -1);
    EXPECT_EQ(out, "[ALGO_MSG_ERR] [DebugDumpDataInit]Fail! Dump AEC export error.\t\n");
    EXPECT_EQ(buf()->dump_flag, 2);
    EXPECT_EQ(init_with("2", &out), 0);
    EXPECT_EQ(out, "");
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(stream(k), nullptr);
    }
    const short frame[128] = {};
    DebugDumpDataWrite(buf()->near_end_dump, frame, 128);
    EXPECT_EQ(init_with("0"), 0);
}

TEST_F(Dump, OnThenUnknownThenOnKeepsOneSetOfFiles) {
    ASSERT_EQ(init_with("1"), 0);
    EXPECT_EQ(init_with("2"), -1);
    ASSERT_EQ(init_with("1"), 0);
    for (int k = 0; k < 4; ++k) {
        EXPECT_NE(stream(k), nullptr);
    }
    DebugDumpDataFree(buf());
}

TEST_F(Dump, UnsetPathMeansCurrentDirectoryAndIdNamesFiles) {
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(chdir(dir_.path().c_str()), 0);
    qtest::ScopedEnv path("AUDIO_DUMP_PATH", std::nullopt);
    buf()->dump_id = 42;
    const int result = init_with("1");
    DebugDumpDataFree(buf());
    ASSERT_EQ(chdir(cwd), 0);
    EXPECT_EQ(result, 0);
    for (const char *kind : kKinds) {
        EXPECT_EQ(qtest::file_size(dump_file(dir_.path(), kind, 42)), 0) << kind;
    }
}

}  // namespace
