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
    bool all_closed() { return !stream(0) && !stream(1) && !stream(2) && !stream(3); }
    bool all_open() { return stream(0) && stream(1) && stream(2) && stream(3); }
    int init_with(std::optional<std::string> value, std::string *out = nullptr) {
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

TEST_F(Dump, SwitchingOnOffOnTruncatesAndClosesEachFileOnce) {
    EXPECT_EQ(init_with(std::nullopt), 0);  // unset: nothing opened
    EXPECT_EQ(buf()->dump_flag, 0);
    EXPECT_TRUE(all_closed());
    EXPECT_EQ(qtest::file_size(dump_file(dir_.path(), "near_end", 7)), -1);

    std::string out;
    ASSERT_EQ(init_with("1", &out), 0);
    EXPECT_EQ(out, "");
    EXPECT_EQ(buf()->dump_flag, 1);
    ASSERT_TRUE(all_open());
    const short frame[128] = {1, 2, 3};
    DebugDumpDataWrite(buf()->near_end_dump, frame, 128);
    DebugDumpDataWrite(buf()->output_dump, frame, 64);
    // Same value again: nothing is reopened, the bytes written so far stay.
    EXPECT_EQ(init_with("1"), 0);

    EXPECT_EQ(init_with("0"), 0);
    EXPECT_EQ(buf()->dump_flag, 0);
    EXPECT_TRUE(all_closed());
    EXPECT_EQ(qtest::file_size(dump_file(dir_.path(), "near_end", 7)), 256);
    EXPECT_EQ(qtest::file_size(dump_file(dir_.path(), "output", 7)), 128);
    EXPECT_EQ(qtest::file_size(dump_file(dir_.path(), "echo", 7)), 0);
    DebugDumpDataWrite(buf()->near_end_dump, frame, 128);  // a closed stream is skipped
    // Would be a double fclose (caught by the sanitizers) if closing left the pointers.
    DebugDumpDataFree(buf());

    ASSERT_EQ(init_with("1"), 0);
    EXPECT_TRUE(all_open());
    for (const char *kind : kKinds) {
        EXPECT_EQ(qtest::file_size(dump_file(dir_.path(), kind, 7)), 0) << kind;
    }
    // An unknown value in between leaves the open set alone.
    EXPECT_EQ(init_with("2"), -1);
    ASSERT_EQ(init_with("1"), 0);
    EXPECT_TRUE(all_open());
    DebugDumpDataFree(buf());
    EXPECT_TRUE(all_closed());
}

// A missing directory, or one whose path does not fit the 64-byte text, fails once (the
// message follows the mask) and is not retried while the switch stays on.
TEST_F(Dump, UnusableDirectoryFailsOnceAndIsNotRetried) {
    const std::string deep = dir_.path() + "/" + std::string(70, 'd');
    ASSERT_EQ(mkdir(deep.c_str(), 0755), 0);
    for (const std::string &path : {dir_.path() + "/nope", deep}) {
        for (int mask : {7, 0}) {
            SCOPED_TRACE(path + " mask " + std::to_string(mask));
            buf()->dbg_level = mask;
            qtest::ScopedEnv env("AUDIO_DUMP_PATH", path);
            std::string out;
            EXPECT_EQ(init_with("1", &out), -1);
            EXPECT_EQ(out, mask ? "[ALGO_MSG_ERR] [DebugDumpDataInit]Fail! Dump path " + path +
                                      " doesn't exist!\t\n"
                                : "");
            EXPECT_EQ(buf()->dump_flag, 1);
            EXPECT_EQ(init_with("1", &out), 0);
            EXPECT_EQ(out, "");
            EXPECT_TRUE(all_closed());
            EXPECT_EQ(init_with("0"), 0);  // nothing to close
            DebugDumpDataFree(buf());
        }
    }
}

TEST_F(Dump, UnknownValueFailsOnceWithNothingOpen) {
    std::string out;
    EXPECT_EQ(init_with("2", &out), -1);
    EXPECT_EQ(out, "[ALGO_MSG_ERR] [DebugDumpDataInit]Fail! Dump AEC export error.\t\n");
    EXPECT_EQ(buf()->dump_flag, 2);
    EXPECT_EQ(init_with("2", &out), 0);
    EXPECT_EQ(out, "");
    EXPECT_TRUE(all_closed());
    EXPECT_EQ(init_with("0"), 0);
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
