// `qenaec replay` on dumps the library wrote while the tool processed a file: the same
// library and settings reproduce the recorded output bit for bit, and a difference is
// located.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli_support.h"
#include "testkit/signals.h"

namespace {

class Replay : public testing::Test {
protected:
    // Processes a 2-near / 1-far recording whose length is not whole frames, with the
    // library dumping into dumps/ under id 0.
    void record(std::vector<std::string> extra = {}) {
        testkit::Scenario s;
        s.near_channels = 2;
        s.seconds = 1.5;
        const testkit::Recording sig = testkit::noise_echo(s);
        std::vector<int16_t> near(sig.near.begin(), sig.near.end() - 2 * 50);
        std::vector<int16_t> far(sig.far.begin(), sig.far.end() - 50);
        std::filesystem::create_directory(dumps());
        const cli::Result r =
            cli::process_files(tmp_, 16000, 2, near, 1, far, extra,
                               {{"AUDIO_AEC_DUMP", "1"}, {"AUDIO_DUMP_PATH", dumps()}});
        ASSERT_EQ(r.status, 0) << r.err;
    }

    cli::Result replay(std::vector<std::string> extra = {}) {
        std::vector<std::string> args = {
            "replay",          dumps(), "--id",           "0", "--rate", "16000",
            "--near-channels", "2",     "--far-channels", "1"};
        args.insert(args.end(), extra.begin(), extra.end());
        // Dumping stays switched on: the replay must neither fail on it nor rewrite the dumps.
        return cli::run(args, {{"AUDIO_AEC_DUMP", "1"}, {"AUDIO_DUMP_PATH", dumps()}});
    }

    std::string dumps() const { return tmp_.path("dumps"); }
    std::string dump(const char *what) const {
        return dumps() + "/Audio_AEC_" + what + "_data_0.pcm";
    }

    cli::TempDir tmp_;
};

TEST_F(Replay, DumpsOfAProcessedFileReplayBitExact) {
    record();
    const std::string output_before = qtest::read_file(dump("output"));
    const cli::Result r = replay({"-o", tmp_.path("replayed.pcm")});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("result: bit-exact\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("187 frames"), std::string::npos) << r.out;
    EXPECT_EQ(qtest::read_file(tmp_.path("replayed.pcm")), output_before);
    EXPECT_EQ(qtest::read_file(dump("output")), output_before);
    // The tool's own output is the recorded output without the padded tail.
    const std::vector<int16_t> recorded = cli::read_raw(dump("output"));
    const std::vector<int16_t> written = cli::read_wav(tmp_.path("out.wav")).samples;
    ASSERT_EQ(written.size(), recorded.size() - 2 * 50);
    EXPECT_TRUE(std::equal(written.begin(), written.end(), recorded.begin()));
}

TEST_F(Replay, ReportsTheFirstDifferingFrame) {
    record();
    std::vector<int16_t> recorded = cli::read_raw(dump("output"));
    const size_t sample = 5 * 128 + 17;  // frame 5, second channel
    recorded[2 * sample + 1] = static_cast<int16_t>(recorded[2 * sample + 1] + 300);
    recorded[2 * (9 * 128)] = static_cast<int16_t>(recorded[2 * (9 * 128)] - 1000);
    cli::write_raw(dump("output"), recorded);
    const cli::Result r = replay();
    EXPECT_EQ(r.status, 3) << r.err;
    EXPECT_NE(r.out.find("result: differs from the recorded output\n"), std::string::npos);
    EXPECT_NE(r.out.find("first differing frame: 5 (sample 657)\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("max difference: 1000\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("SNR: "), std::string::npos) << r.out;
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
