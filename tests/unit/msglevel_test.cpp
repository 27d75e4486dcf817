// The message mask read from the JSON file, and how it gates what an instance prints.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "api/setup.h"
#include "diag/msglevel.h"
#include "fixture.h"
#include "scratch.h"

namespace {

struct LevelCase {
    const char *name;
    const char *json;  // nullptr: no file at DML_PATH
    int expected;
};

class MessageLevelFile : public testing::TestWithParam<LevelCase> {};

TEST_P(MessageLevelFile, GivesTheAcceptedMaskOrSeven) {
    qtest::TempDir dir;
    const LevelCase &c = GetParam();
    const std::string path =
        c.json != nullptr ? dir.write_file("level.json", c.json) : dir.path() + "/absent.json";
    qtest::ScopedEnv env("DML_PATH", path);
    EXPECT_EQ(DynamicMessageLevel(), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Files, MessageLevelFile,
    testing::Values(LevelCase{"errors", R"({"debug_level": 1})", 1},
                    LevelCase{"warnings", R"({"debug_level": 3})", 3},
                    LevelCase{"all", R"({"debug_level": 7})", 7},
                    LevelCase{"fifteen", R"({"debug_level": 15})", 15},
                    LevelCase{"zero_is_not_silence", R"({"debug_level": 0})", 7},
                    LevelCase{"unlisted_value", R"({"debug_level": 5})", 7},
                    LevelCase{"other_members_kept", R"({"x": [1, 2], "debug_level": 3})", 3},
                    LevelCase{"missing_member", R"({"level": 1})", 7},
                    LevelCase{"text_value", R"({"debug_level": "3"})", 7},
                    LevelCase{"array_root", R"([1, 3])", 7},
                    LevelCase{"invalid_json", R"({"debug_level": 1)", 7},
                    LevelCase{"empty_file", "", 7}, LevelCase{"no_file", nullptr, 7}),
    [](const testing::TestParamInfo<LevelCase> &info) { return std::string(info.param.name); });

TEST(MessageLevel, OverlongPathIsCutNotOverrun) {
    // 300 characters do not fit the reader's path text: it must neither overflow nor find a
    // file, so the default applies.
    qtest::ScopedEnv env("DML_PATH", "/" + std::string(300, 'a'));
    EXPECT_EQ(DynamicMessageLevel(), 7);
}

std::string init_output(const std::string &json, AudioAecInit rec) {
    qtest::TempDir dir;
    qtest::ScopedEnv env("DML_PATH", dir.write_file("level.json", json));
    std::vector<char> block(_QenAec_GetBufferSize());
    return qtest::capture_stdout([&] { _QenAec_Init(block.data(), &rec); });
}

// Mask 1 shows only failures; mask 3 adds warnings but no information.
TEST(MessageLevel, MaskGatesWhatInitPrints) {
    const std::string err = "[ALGO_MSG_ERR] ALGO_MSG_ERR\t\n";
    EXPECT_EQ(init_output(R"({"debug_level": 1})", {128, 1, 1, QEN_AEC_SAMPLE_RATE_16000}), err);
    EXPECT_EQ(init_output(R"({"debug_level": 1})", {128, 3, 1, QEN_AEC_SAMPLE_RATE_16000}),
              err + "[ALGO_MSG_ERR] [AEC]The NearEnd Channel only support 1 or 2\t\n");
    EXPECT_EQ(init_output(R"({"debug_level": 3})", {128, 2, 2, QEN_AEC_SAMPLE_RATE_8000}),
              err + "[ALGO_MSG_WRN] ALGO_MSG_WRN\t\n");
}

TEST(MessageLevel, InstanceKeepsTheMaskReadAtInit) {
    qtest::TempDir dir;
    std::vector<char> block;
    AudioAecInit rec{128, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
    {
        qtest::ScopedEnv env("DML_PATH", dir.write_file("a.json", R"({"debug_level": 1})"));
        block.resize(_QenAec_GetBufferSize());
        qtest::capture_stdout([&] { ASSERT_NE(_QenAec_Init(block.data(), &rec), nullptr); });
    }
    // The file now says 7, but only the next Init reads it; the instance stays at 1 and its
    // handle-id message (information) stays silent.
    qtest::ScopedEnv env("DML_PATH", dir.write_file("b.json", R"({"debug_level": 7})"));
    EXPECT_EQ(qtest::capture_stdout([&] { _QenAec_SetHandleId(block.data(), 3); }), "");
    // The buffer-size query follows the file at once.
    EXPECT_NE(qtest::capture_stdout([&] { _QenAec_GetBufferSize(); }), "");
    _QenAec_Free(block.data());
}

}  // namespace
