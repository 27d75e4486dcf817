// What a user sees first: the help of the tool and of each subcommand, the demo on the
// bundled recordings, and a standard output that carries only the tool's own lines.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "cli_support.h"
#include "testkit/signals.h"

namespace {

// The tool's help and each subcommand's: what it covers and a worked example.
TEST(Help, EveryCommandDescribesItselfWithAnExample) {
    const std::vector<std::string> cases[][2] = {
        {{"--help"},
         {"process", "replay", "demo", "Example:", "qenaec process --near", "DML_PATH",
          "Exit status"}},
        {{"process", "--help"},
         {"--near-talk", "ERLE is measured", "Example:", "qenaec process --near"}},
        {{"replay", "--help"}, {"Audio_AEC_output_data_N.pcm", "Example:", "qenaec replay "}},
        {{"demo", "--help"}, {"--audio-dir", "Example:", "qenaec demo"}},
    };
    for (const auto &[args, words] : cases) {
        const cli::Result r = cli::run(args);
        EXPECT_EQ(r.status, 0) << args[0];
        for (const std::string &word : words) {
            EXPECT_NE(r.out.find(word), std::string::npos) << word << " missing:\n" << r.out;
        }
    }
}

TEST(Demo, RemovesAtLeast20dBOfEchoFromTheBundledRecording) {
    cli::TempDir tmp;
    const cli::Result r =
        cli::run({"demo", "-o", tmp.path("demo-out.wav"), "--metrics-json", tmp.path("m.json")});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string json = qtest::read_file(tmp.path("m.json"));
    EXPECT_GE(cli::json_number(json, "erle_db"), 20.0) << json;
    EXPECT_NE(r.out.find("\nERLE: "), std::string::npos) << r.out;
    const cli::Wav in = cli::read_wav(QENAEC_DEMO_AUDIO "/near.wav");
    const cli::Wav out = cli::read_wav(tmp.path("demo-out.wav"));
    EXPECT_EQ(std::tie(out.rate, out.channels), std::tie(in.rate, in.channels));
    EXPECT_EQ(out.samples.size(), in.samples.size());
}

// The library prints on standard output by default; the tool moves its lines to standard
// error and, unless DML_PATH says otherwise, keeps only its errors.
TEST(Output, LibraryMessagesNeverReachStandardOutput) {
    cli::TempDir tmp;
    const testkit::Recording sig = testkit::noise_echo({.seconds = 0.5});
    const cli::Result plain = cli::process_files(tmp, 16000, 1, sig.near, 1, sig.far);
    EXPECT_EQ(plain.status, 0);  // its streams are checked with the process cases
    const cli::Result chatty =
        cli::process_files(tmp, 16000, 1, sig.near, 1, sig.far, {},
                           {{"DML_PATH", tmp.write_file("level.json", "{\"debug_level\": 7}")}});
    EXPECT_EQ(chatty.status, 0);
    // The same summary (but for the measured speed), with the library's lines on stderr.
    auto without_speed = [](std::string text) {
        const size_t at = text.find("speed:");
        return at == std::string::npos ? text : text.erase(at, text.find('\n', at) - at);
    };
    EXPECT_EQ(without_speed(chatty.out), without_speed(plain.out));
    EXPECT_EQ(chatty.out.find("ALGO_MSG"), std::string::npos) << chatty.out;
    EXPECT_NE(chatty.err.find("[ALGO_MSG_MSG] [AEC]Floating point mode.\n"), std::string::npos)
        << chatty.err;
}

}  // namespace
