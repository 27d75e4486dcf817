// Every way `process` and `replay` refuse to run: bad options and settings the library
// rejects, and hostile files (truncated or malformed audio, empty files, a far end much
// shorter than the near end, a mono file read as stereo, an output that cannot be written, a
// dump folder without the expected files). Each must end with its exit status and message on
// standard error: no crash, nothing on standard output, no output file left behind, and the
// inputs untouched. The tool's refusal is one line, the last; the library's own error line
// comes before it where the library refused.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "cli_support.h"

namespace {

std::vector<int16_t> noise(size_t samples) {
    std::vector<int16_t> v(samples);
    uint32_t x = 12345;
    for (int16_t &s : v) {
        x = x * 1664525u + 1013904223u;
        s = static_cast<int16_t>(x >> 20) - 2048;
    }
    return v;
}

// A near end and a far end of 1 s.
void inputs(const cli::TempDir &t, int near_rate = 16000, int far_rate = 16000, int near_ch = 1) {
    cli::write_wav(t.path("near.wav"), near_rate, near_ch, noise(16000 * near_ch));
    cli::write_wav(t.path("far.wav"), far_rate, 1, noise(16000));
}

std::vector<std::string> process(const cli::TempDir &t, std::vector<std::string> extra = {},
                                 const std::string &out = "out.wav") {
    std::vector<std::string> args = {"process",         "--near", t.path("near.wav"), "--far",
                                     t.path("far.wav"), "-o",     t.path(out)};
    args.insert(args.end(), extra.begin(), extra.end());
    return args;
}

// `process` on near.wav and far.wav as they are written by `inputs` with these settings.
std::function<std::vector<std::string>(const cli::TempDir &)> settings(
    std::vector<std::string> extra) {
    return [extra](const cli::TempDir &t) {
        inputs(t);
        return process(t, extra);
    };
}

std::vector<std::string> replay(const cli::TempDir &t, std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {"replay", t.dir(), "--rate", "16000", "-o", t.path("out.wav")};
    args.insert(args.end(), extra.begin(), extra.end());
    return args;
}

std::string dump(const cli::TempDir &t, const char *what, int id = 0) {
    return t.path(std::string("Audio_AEC_") + what + "_data_" + std::to_string(id) + ".pcm");
}

struct Case {
    const char *name;
    // Writes what the case needs into the folder and returns the arguments.
    std::function<std::vector<std::string>(const cli::TempDir &)> setup;
    std::vector<std::string> messages;  // each must appear on standard error
    int status = 1;                     // 2: the command line itself is refused
    int lines = 1;                      // lines on standard error; 0: not checked
    cli::Env env = {};
};

const Case kCases[] = {
    // Settings and options.
    {"MissingInput",
     [](const cli::TempDir &t) {
         cli::write_wav(t.path("far.wav"), 16000, 1, noise(4000));
         return process(t);
     },
     {"cannot read '", "near.wav'"}},
    {"OutputIsTheNearEnd",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t, {}, "near.wav");
     },
     {"refusing to write the output over the input '"}},
    {"OutputIsTheFarEndSpeltAnotherWay",
     [](const cli::TempDir &t) {
         inputs(t);
         return process(t, {}, "./far.wav");
     },
     {"refusing to write the output over the input '"}},
    {"RatesDiffer",
     [](const cli::TempDir &t) {
         inputs(t, 16000, 48000);
         return process(t);
     },
     {"the near end is 16000 Hz but the far end is 48000 Hz: both must have the same rate"}},
    {"UnsupportedRate",
     [](const cli::TempDir &t) {
         inputs(t, 44100, 44100);
         return process(t);
     },
     {"the inputs are 44100 Hz; the library takes 8000, 16000, 32000 or 48000 Hz (add "
      "--resample to convert to 48000 Hz and back)"}},
    // A header claiming 1 Hz would make a few bytes into hours of audio at 8000 Hz.
    {"RateTooLowToResample",
     [](const cli::TempDir &t) {
         cli::write_raw(t.path("near.raw"), noise(400));
         cli::write_raw(t.path("far.raw"), noise(400));
         return std::vector<std::string>{"process",         "--raw",  "--rate",           "1",
                                         "--resample",      "--near", t.path("near.raw"), "--far",
                                         t.path("far.raw"), "-o",     t.path("out.wav")};
     },
     {"the inputs are 1 Hz; --resample converts 4000 to 384000 Hz only"}},
    {"ThreeChannels",
     [](const cli::TempDir &t) {
         inputs(t, 16000, 16000, 3);
         return process(t);
     },
     {"the near end has 3 channels; the library takes 1 or 2"}},
    {"IntensityAbove25",
     settings({"--intensity", "5,4,4,26,10,10,10"}),
     {"ALGO_AEC_RET_INVALID_SUP_MODE (0x10000408)",
      "every --intensity value must be 0..25 (got 5,4,4,26,10,10,10)"},
     1,
     2},
    {"EdgesOutOfOrder",
     settings({"--edges", "10,9,20,30,40,50"}),
     {"ALGO_AEC_RET_INVALID_SUP_BAND (0x10000407)",
      "every --edges value must be an FFT bin in 1..126, in non-decreasing order (got "
      "10,9,20,30,40,50)"},
     1,
     2},
    {"RatioAbove10",
     settings({"--ratio", "11"}),
     {"the library rejected --ratio 11 with ALGO_AEC_RET_INVALID_RECURSIVE_RATIO (0x10000411): "
      "the ratio must be 1..10"},
     1,
     2},
    {"DumpDirectoryMissing",
     settings({}),
     {"the library failed at frame 0 with ALGO_AEC_RET_INIT_ERROR (0x10000401): it could not "
      "set up its dump files",
      "Fail! Dump path /no/such/dump/dir doesn't exist!"},
     1,
     2,
     {{"AUDIO_AEC_DUMP", "1"}, {"AUDIO_DUMP_PATH", "/no/such/dump/dir"}}},
    {"IntensityCount",
     settings({"--intensity", "1,2,3"}),
     {"--intensity takes 7 comma-separated non-negative integers (got '1,2,3')"},
     2,
     0},
    {"NegativeEdge",
     settings({"--edges", "-1,6,36,49,50,51"}),
     {"--edges takes 6 comma-separated non-negative integers"},
     2,
     0},
    {"UnknownMode", settings({"--mode", "fast"}), {"--mode", "Run with --help"}, 2, 0},
    {"DelayAndAlignTogether",
     settings({"--far-delay", "10", "--align", "auto"}),
     {"excludes"},
     2,
     0},
    {"RawWithoutRate", settings({"--raw"}), {"--raw needs --rate"}, 2, 0},
    {"MissingFar",
     [](const cli::TempDir &t) {
         inputs(t);
         return std::vector<std::string>{"process", "--near", t.path("near.wav"), "-o",
                                         t.path("out.wav")};
     },
     {"--far is required"},
     2,
     0},
    {"NoSubcommand",
     [](const cli::TempDir &) { return std::vector<std::string>{}; },
     {"subcommand"},
     2,
     0},
    {"ReplayUnsupportedRate",
     [](const cli::TempDir &t) {
         return std::vector<std::string>{"replay", t.dir(), "--rate", "44100"};
     },
     {"--rate 44100: the library runs at 8000, 16000, 32000 or 48000 Hz"}},
    // Hostile files.
    {"TruncatedWav",
     [](const cli::TempDir &t) {
         inputs(t);
         std::filesystem::resize_file(t.path("near.wav"), 44 + 2 * 6000);  // 16000 promised
         return process(t);
     },
     {"near.wav'", "truncated"}},
    {"WavHeaderOfAnotherFormat",
     [](const cli::TempDir &t) {
         inputs(t);
         std::string bytes = qtest::read_file(t.path("far.wav"));
         bytes[20] = 0x34;  // format tag 0x1234: no such WAV encoding
         bytes[21] = 0x12;
         t.write_file("far.wav", bytes);
         return process(t);
     },
     {"cannot read '", "far.wav'"}},
    {"WavHeaderWithoutData",
     [](const cli::TempDir &t) {
         inputs(t);
         std::filesystem::resize_file(t.path("far.wav"), 36);  // RIFF and fmt, no data chunk
         return process(t);
     },
     {"far.wav'"}},
    {"FlacHeaderClaimingTerabytes",
     [](const cli::TempDir &t) {
         inputs(t);
         // STREAMINFO of 16 kHz mono 16-bit promising 2^36 - 1 samples, and no audio.
         std::string flac = "fLaC";
         flac += std::string("\x80\x00\x00\x22", 4);  // last block, 34 bytes
         flac += std::string("\x10\x00\x10\x00\x00\x00\x00\x00\x00\x00", 10);
         flac += std::string("\x03\xe8\x00\xff\xff\xff\xff\xff", 8);  // 16000 Hz ... length
         flac += std::string(16, '\0');                               // MD5
         t.write_file("far.flac", flac);
         return std::vector<std::string>{"process",          "--near", t.path("near.wav"), "--far",
                                         t.path("far.flac"), "-o",     t.path("out.wav")};
     },
     {"far.flac'"}},
    {"EmptyNearEnd",
     [](const cli::TempDir &t) {
         inputs(t);
         t.write_file("near.wav", "");
         return process(t);
     },
     {"near.wav'"}},
    {"EmptyRawFarEnd",
     [](const cli::TempDir &t) {
         cli::write_raw(t.path("near.raw"), noise(16000));
         t.write_file("far.raw", "");
         return std::vector<std::string>{
             "process",          "--raw", "--rate",          "16000", "--near",
             t.path("near.raw"), "--far", t.path("far.raw"), "-o",    t.path("out.wav")};
     },
     {"far.raw'", "no audio"}},
    {"FarEndMuchShorter",
     [](const cli::TempDir &t) {
         cli::write_wav(t.path("near.wav"), 16000, 1, noise(4 * 16000));
         cli::write_wav(t.path("far.wav"), 16000, 1, noise(16000));
         return process(t);
     },
     {"far end", "shorter than the near end"}},
    {"MonoRawReadAsStereo",
     [](const cli::TempDir &t) {
         cli::write_raw(t.path("near.raw"), noise(16001));
         cli::write_raw(t.path("far.raw"), noise(16001));
         return std::vector<std::string>{
             "process", "--raw",          "--rate",           "16000", "--near-channels",
             "2",       "--near",         t.path("near.raw"), "--far", t.path("far.raw"),
             "-o",      t.path("out.wav")};
     },
     {"near.raw'", "2-channel"}},
    {"MonoDumpReplayedAsStereo",
     [](const cli::TempDir &t) {
         cli::write_raw(dump(t, "near_end"), noise(128 * 100));
         cli::write_raw(dump(t, "far_end"), noise(128 * 100));
         return replay(t, {"--near-channels", "2"});
     },
     {"--near-channels", "--far-channels"}},
    {"OutputIsADirectory",
     [](const cli::TempDir &t) {
         inputs(t);
         std::filesystem::create_directory(t.path("taken"));
         return process(t, {}, "taken");
     },
     {"cannot write '", "taken'"}},
    {"DumpFolderWithoutTheFarEnd",
     [](const cli::TempDir &t) {
         cli::write_raw(dump(t, "near_end"), noise(128 * 10));
         cli::write_raw(dump(t, "output"), noise(128 * 10));
         return replay(t);
     },
     {"cannot read '", "Audio_AEC_far_end_data_0.pcm'"}},
    {"DumpFolderOfAnotherInstance",
     [](const cli::TempDir &t) {
         cli::write_raw(dump(t, "near_end", 3), noise(128 * 10));
         cli::write_raw(dump(t, "far_end", 3), noise(128 * 10));
         return replay(t);
     },
     {"cannot read '", "Audio_AEC_near_end_data_0.pcm'"}},
};

class Refusals : public testing::TestWithParam<Case> {};

TEST_P(Refusals, ExitWithStatusAndMessageAndNoOutputFile) {
    const Case &c = GetParam();
    cli::TempDir tmp;
    const auto args = c.setup(tmp);
    const std::string near_before = qtest::read_file(tmp.path("near.wav"));
    const cli::Result r = cli::run(args, c.env);
    EXPECT_EQ(r.status, c.status) << r.err;
    for (const std::string &m : c.messages) {
        EXPECT_NE(r.err.find(m), std::string::npos) << "missing '" << m << "' in:\n" << r.err;
    }
    if (c.lines > 0) {
        EXPECT_EQ(cli::count_lines(r.err), c.lines) << r.err;
        const size_t last = r.err.rfind('\n', r.err.size() - 2) + 1;  // 0 for a single line
        EXPECT_EQ(r.err.compare(last, 15, "qenaec: error: "), 0) << r.err;
    }
    EXPECT_EQ(r.out, "");
    EXPECT_FALSE(cli::file_exists(tmp.path("out.wav")));
    EXPECT_EQ(qtest::read_file(tmp.path("near.wav")), near_before);
}

INSTANTIATE_TEST_SUITE_P(Cli, Refusals, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<Case> &info) {
                             return std::string(info.param.name);
                         });

}  // namespace
