// Every way `process` and `replay` refuse to run: exit status, the message on standard
// error, nothing on standard output, and no output file left behind.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "cli_support.h"

namespace {

struct Case {
    const char *name;
    // Writes what the case needs into the folder and returns the arguments.
    std::function<std::vector<std::string>(const cli::TempDir &)> setup;
    int status;
    std::vector<std::string> messages;  // each must appear on standard error
    bool one_line = false;              // the whole of standard error is one line
    cli::Env env = {};
};

std::vector<int16_t> tone(size_t samples, int channels = 1) {
    std::vector<int16_t> v(samples * channels);
    for (size_t i = 0; i < v.size(); ++i) {
        v[i] = static_cast<int16_t>((i * 7919) % 4001) - 2000;
    }
    return v;
}

// near.wav and far.wav at the given rates and channel counts.
void inputs(const cli::TempDir &t, int near_rate = 16000, int far_rate = 16000, int near_ch = 1) {
    cli::write_wav(t.path("near.wav"), near_rate, near_ch, tone(4000, near_ch));
    cli::write_wav(t.path("far.wav"), far_rate, 1, tone(4000));
}

std::vector<std::string> process(const cli::TempDir &t, std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {"process",         "--near", t.path("near.wav"), "--far",
                                     t.path("far.wav"), "-o",     t.path("out.wav")};
    args.insert(args.end(), extra.begin(), extra.end());
    return args;
}

const Case kCases[] = {
    {"MissingInput",
     [](const cli::TempDir &t) {
         cli::write_wav(t.path("far.wav"), 16000, 1, tone(4000));
         return process(t);
     },
     1,
     {"qenaec: error: cannot read '", "near.wav'"},
     true},
    {"InputNotAudio",
     [](const cli::TempDir &t) {
         inputs(t);
         cli::write_raw(t.path("far.wav"), {0x6568, 0x6c6c, 0x216f});
         return process(t);
     },
     1,
     {"cannot read '", "far.wav'"},
     true},
    {"UnwritableOutput",
     [](const cli::TempDir &t) {
         inputs(t);
         return std::vector<std::string>{
             "process",         "--near", t.path("near.wav"),           "--far",
             t.path("far.wav"), "-o",     t.path("no-such-dir/out.wav")};
     },
     1,
     {"qenaec: error: cannot write '", "no-such-dir/out.wav'"},
     true},
    {"OutputIsTheNearEnd",
     [](const cli::TempDir &t) {
         inputs(t);
         return std::vector<std::string>{"process",         "--near", t.path("near.wav"), "--far",
                                         t.path("far.wav"), "-o",     t.path("near.wav")};
     },
     1,
     {"refusing to write the output over the input '"},
     true},
    {"OutputIsTheFarEndSpeltAnotherWay",
     [](const cli::TempDir &t) {
         inputs(t);
         return std::vector<std::string>{
             "process",         "--near", t.path("near.wav"),    "--far",
             t.path("far.wav"), "-o",     t.dir() + "/./far.wav"};
     },
     1,
     {"refusing to write the output over the input '"},
     true},
    {"RatesDiffer",
     [](const cli::TempDir &t) {
         inputs(t, 16000, 48000);
         return process(t);
     },
     1,
     {"the near end is 16000 Hz but the far end is 48000 Hz: both must have the same rate"}},
    {"UnsupportedRate",
     [](const cli::TempDir &t) {
         inputs(t, 44100, 44100);
         return process(t);
     },
     1,
     {"the inputs are 44100 Hz; the library takes 8000, 16000, 32000 or 48000 Hz (add "
      "--resample to convert to 48000 Hz and back)"}},
    {"ThreeChannels",
     [](const cli::TempDir &t) {
         inputs(t, 16000, 16000, 3);
         return process(t);
     },
     1,
     {"the near end has 3 channels; the library takes 1 or 2"}},
    {"IntensityAbove25",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t, {"--intensity", "5,4,4,26,10,10,10"});
     },
     1,
     {"ALGO_AEC_RET_INVALID_SUP_MODE (0x10000408)",
      "every --intensity value must be 0..25 (got 5,4,4,26,10,10,10)"}},
    {"EdgesOutOfOrder",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t, {"--edges", "10,9,20,30,40,50"});
     },
     1,
     {"ALGO_AEC_RET_INVALID_SUP_BAND (0x10000407)",
      "every --edges value must be an FFT bin in 1..126, in non-decreasing order (got "
      "10,9,20,30,40,50)"}},
    {"EdgeZero",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t, {"--edges", "0,6,36,49,50,51"});
     },
     1,
     {"ALGO_AEC_RET_INVALID_SUP_BAND (0x10000407)"}},
    {"RatioAbove10",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t, {"--ratio", "11"});
     },
     1,
     {"the library rejected --ratio 11 with ALGO_AEC_RET_INVALID_RECURSIVE_RATIO (0x10000411): "
      "the ratio must be 1..10"}},
    {"RatioZero",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t, {"--ratio", "0"});
     },
     1,
     {"ALGO_AEC_RET_INVALID_RECURSIVE_RATIO (0x10000411)"}},
    {"DumpDirectoryMissing",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t);
     },
     1,
     {"the library failed at frame 0 with ALGO_AEC_RET_INIT_ERROR (0x10000401): it could not "
      "set up its dump files",
      "Fail! Dump path /no/such/dump/dir doesn't exist!"},
     false,
     {{"AUDIO_AEC_DUMP", "1"}, {"AUDIO_DUMP_PATH", "/no/such/dump/dir"}}},
    {"IntensityCount",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t, {"--intensity", "1,2,3"});
     },
     2,
     {"--intensity takes 7 comma-separated non-negative integers (got '1,2,3')"}},
    {"NegativeEdge",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t, {"--edges", "-1,6,36,49,50,51"});
     },
     2,
     {"--edges takes 6 comma-separated non-negative integers"}},
    {"UnknownMode",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t, {"--mode", "fast"});
     },
     2,
     {"--mode", "Run with --help"}},
    {"DelayAndAlignTogether",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t, {"--far-delay", "10", "--align", "auto"});
     },
     2,
     {"excludes"}},
    {"RawWithoutRate",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t, {"--raw"});
     },
     2,
     {"--raw needs --rate"}},
    {"MissingFar",
     [](const cli::TempDir &t) {
         inputs(t);
         return std::vector<std::string>{"process", "--near", t.path("near.wav"), "-o",
                                         t.path("out.wav")};
     },
     2,
     {"--far is required"}},
    {"NoSubcommand",
     [](const cli::TempDir &) { return std::vector<std::string>{}; },
     2,
     {"subcommand"}},
    {"ReplayWithoutDumps",
     [](const cli::TempDir &t) {
         return std::vector<std::string>{"replay", t.dir(), "--id", "4", "--rate", "16000"};
     },
     1,
     {"cannot read '", "/Audio_AEC_near_end_data_4.pcm'"},
     true},
    {"ReplayUnsupportedRate",
     [](const cli::TempDir &t) {
         return std::vector<std::string>{"replay", t.dir(), "--rate", "44100"};
     },
     1,
     {"--rate 44100: the library runs at 8000, 16000, 32000 or 48000 Hz"},
     true},
};

class Errors : public testing::TestWithParam<Case> {};

TEST_P(Errors, ExitWithStatusAndMessage) {
    const Case &c = GetParam();
    cli::TempDir tmp;
    const auto args = c.setup(tmp);
    const std::string near_before = cli::read_text(tmp.path("near.wav"));
    const cli::Result r = cli::run(args, c.env);
    EXPECT_EQ(r.status, c.status) << r.err;
    for (const std::string &m : c.messages) {
        EXPECT_NE(r.err.find(m), std::string::npos) << "missing '" << m << "' in:\n" << r.err;
    }
    if (c.one_line) {
        EXPECT_EQ(cli::count_lines(r.err), 1) << r.err;
    }
    EXPECT_EQ(r.out, "");
    EXPECT_FALSE(cli::file_exists(tmp.path("out.wav")));
    EXPECT_EQ(cli::read_text(tmp.path("near.wav")), near_before);
}

INSTANTIATE_TEST_SUITE_P(Cli, Errors, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<Case> &info) {
                             return std::string(info.param.name);
                         });

}  // namespace
