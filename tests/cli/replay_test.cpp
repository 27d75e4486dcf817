// `qenaec replay` on dumps the library wrote while the tool processed a file: the same
// settings reproduce the recorded output bit for bit, and a difference is located.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli_support.h"
#include "testkit/signals.h"

namespace {

struct Replay : testing::Test {
    // Processes a 2-near / 1-far recording whose length is not whole frames, with the
    // library dumping into dumps/ under id 0.
    void record(std::vector<std::string> extra = {}) {
        testkit::Recording sig = testkit::noise_echo({.near_channels = 2, .seconds = 1.5});
        sig.near.resize(sig.near.size() - 2 * 50);
        sig.far.resize(sig.far.size() - 50);
        std::filesystem::create_directory(tmp.path("dumps"));
        const cli::Result r = cli::process_files(tmp, 16000, 2, sig.near, 1, sig.far, extra, env);
        ASSERT_EQ(r.status, 0) << r.err;
    }
    // Dumping stays switched on: the replay must neither fail on it nor rewrite the dumps.
    cli::Result replay(std::vector<std::string> extra = {}) {
        extra.insert(extra.begin(), {"replay", tmp.path("dumps"), "--id", "0", "--rate", "16000",
                                     "--near-channels", "2", "--far-channels", "1"});
        return cli::run(extra, env);
    }
    std::string output() const { return tmp.path("dumps/Audio_AEC_output_data_0.pcm"); }

    cli::TempDir tmp;
    cli::Env env = {{"AUDIO_AEC_DUMP", "1"}, {"AUDIO_DUMP_PATH", tmp.path("dumps")}};
};

TEST_F(Replay, DumpsOfAProcessedFileReplayBitExact) {
    record();
    const std::string recorded = qtest::read_file(output());
    const cli::Result r = replay({"-o", tmp.path("replayed.pcm")});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("result: bit-exact\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("187 frames"), std::string::npos) << r.out;
    EXPECT_EQ(qtest::read_file(tmp.path("replayed.pcm")), recorded);
    EXPECT_EQ(qtest::read_file(output()), recorded);
    // The tool's own output is the recorded output without the padded tail.
    std::vector<int16_t> tail_cut = cli::read_raw(output());
    tail_cut.resize(tail_cut.size() - 2 * 50);
    EXPECT_EQ(cli::read_wav(tmp.path("out.wav")).samples, tail_cut);
}

TEST_F(Replay, ReportsTheFirstDifferingFrame) {
    record();
    std::vector<int16_t> recorded = cli::read_raw(output());
    recorded[2 * (5 * 128 + 17) + 1] += 300;  // frame 5, second channel
    recorded[2 * (9 * 128)] -= 1000;
    cli::write_raw(output(), recorded);
    const cli::Result r = replay();
    EXPECT_EQ(r.status, 3) << r.err;
    for (const char *line :
         {"result: differs from the recorded output\n", "first differing frame: 5 (sample 657)\n",
          "max difference: 1000\n", "SNR: "}) {
        EXPECT_NE(r.out.find(line), std::string::npos) << r.out;
    }
}

TEST_F(Replay, NeedsTheSettingsTheDeviceUsed) {
    const std::vector<std::string> tuning = {"--ratio", "4", "--intensity", "9,9,9,9,9,9,9"};
    record(tuning);
    EXPECT_EQ(replay(tuning).status, 0);
    EXPECT_EQ(replay({"--ratio", "4"}).status, 3);
    EXPECT_EQ(replay().status, 3);
    record({"--mode", "linear"});
    EXPECT_EQ(replay({"--mode", "linear"}).status, 0);
    EXPECT_EQ(replay().status, 3);
}

}  // namespace
