// Every way process, replay, tune and process --config refuse to run: bad options, settings
// the library rejects, hostile files, broken tune results. Each ends with its exit status and
// message on standard error, nothing on standard output, no output written, an existing
// result and the inputs untouched. The tool's refusal is the last line; the library's own
// error line comes before it where the library refused. "@" stands for the case's folder.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "cli_support.h"

namespace {

std::vector<int16_t> noise(size_t samples, int amplitude = 2048) {
    std::vector<int16_t> v(samples);
    uint32_t x = 12345;
    for (int16_t &s : v) {
        x = x * 1664525u + 1013904223u;
        s = static_cast<int16_t>(static_cast<int>(x >> 20) * amplitude / 2048 - amplitude);
    }
    return v;
}

std::string at(std::string s, const std::string &dir) {
    for (size_t i = s.find('@'); i != std::string::npos; i = s.find('@', i + dir.size())) {
        s.replace(i, 1, dir);
    }
    return s;
}

// The inputs every case can name: 1 s at 16 kHz unless the name says otherwise.
void fixtures(const cli::TempDir &t) {
    const std::vector<int16_t> second = noise(16000);
    for (const char *name : {"near.wav", "far.wav", "talker.wav"}) {
        cli::write_wav(t.path(name), 16000, 1, name[0] == 't' ? noise(24000, 800) : second);
    }
    cli::write_wav(t.path("far48k.wav"), 48000, 1, second);
    cli::write_wav(t.path("near44k.wav"), 44100, 1, second);
    cli::write_wav(t.path("far44k.wav"), 44100, 1, second);
    cli::write_wav(t.path("near3ch.wav"), 16000, 3, noise(48000));
    cli::write_wav(t.path("near4s.wav"), 16000, 1, noise(64000));
    cli::write_wav(t.path("talker8k.wav"), 8000, 1, noise(12000, 800));
    cli::write_wav(t.path("silent.wav"), 16000, 1, std::vector<int16_t>(24000, 0));
    cli::write_wav(t.path("short.wav"), 16000, 1, noise(8000, 800));
    cli::write_wav(t.path("stereo.wav"), 16000, 2, noise(48000, 800));
    cli::write_raw(t.path("near.raw"), noise(16001));
    cli::write_raw(t.path("far.raw"), noise(16001));
    t.write_file("empty", "");
    t.write_file("kept.json", "keep\n");
}

void dump(const cli::TempDir &t, const char *what, int id = 0) {
    cli::write_raw(
        t.path("Audio_AEC_" + std::string(what) + "_data_" + std::to_string(id) + ".pcm"),
        noise(1280));
}

std::string tuned(const std::string &from = "", const std::string &to = "") {
    std::string s =
        R"({"default": {"ratio": 99}, "tuned": {"erle_db": 30.5, "intensity": [5, 4, 25, 5, 10, )"
        R"(10, 1], "edges": [4, 6, 36, 49, 50, 51], "ratio": 4}})";
    return from.empty() ? s : s.replace(s.find(from), from.size(), to);
}

#define PROCESS "process --near @/near.wav --far @/far.wav -o @/out.wav "
#define RAW "process --raw --rate 16000 --near @/near.raw -o @/out.wav --far "
#define REPLAY "replay @ --rate 16000 -o @/out.wav"
#define TUNE "tune --near @/near.wav --far @/far.wav --json @/kept.json --talker "
#define CONFIG PROCESS "--config @/bad.json"
#define BAD "qenaec: error: '@/bad.json': "
const char *kIntensity = "[5, 4, 25, 5, 10, 10, 1]", *kEdges = "[4, 6, 36, 49, 50, 51]";

struct Case {
    const char *name;
    const char *args;
    int status;                         // 2: the command line itself is refused
    std::vector<std::string> messages;  // each must appear on standard error
    int lines = 1;                      // lines on standard error; 0: not checked
    std::function<void(const cli::TempDir &)> prepare = {};
    std::string json = {};  // written to bad.json
    cli::Env env = {};
};

const Case kCases[] = {
    // process: settings and options.
    {"MissingInput",
     "process --near @/none.wav --far @/far.wav -o @/out.wav",
     1,
     {"cannot read '@/none.wav'"}},
    {"OutputIsTheNearEnd",
     "process --near @/near.wav --far @/far.wav -o @/near.wav",
     1,
     {"refusing to write the output over the input '"}},
    {"OutputIsTheFarEndSpeltAnotherWay",
     "process --near @/near.wav --far @/far.wav -o @/./far.wav",
     1,
     {"refusing to write the output over the input '"}},
    {"RatesDiffer",
     "process --near @/near.wav --far @/far48k.wav -o @/out.wav",
     1,
     {"the near end is 16000 Hz but the far end is 48000 Hz: both must have the same rate"}},
    {"UnsupportedRate",
     "process --near @/near44k.wav --far @/far44k.wav -o @/out.wav",
     1,
     {"the inputs are 44100 Hz; the library takes 8000, 16000, 32000 or 48000 Hz (add "
      "--resample to convert to 48000 Hz and back)"}},
    // A header claiming 1 Hz would make a few bytes into hours of audio at 8000 Hz.
    {"RateTooLowToResample",
     "process --raw --rate 1 --resample --near @/near.raw --far @/far.raw -o @/out.wav",
     1,
     {"the inputs are 1 Hz; --resample converts 4000 to 384000 Hz only"}},
    {"ThreeChannels",
     "process --near @/near3ch.wav --far @/far.wav -o @/out.wav",
     1,
     {"the near end has 3 channels; the library takes 1 or 2"}},
    {"IntensityAbove25",
     PROCESS "--intensity 5,4,4,26,10,10,10",
     1,
     {"ALGO_AEC_RET_INVALID_SUP_MODE (0x10000408)",
      "every --intensity value must be 0..25 (got 5,4,4,26,10,10,10)"},
     2},
    {"EdgesOutOfOrder",
     PROCESS "--edges 10,9,20,30,40,50",
     1,
     {"ALGO_AEC_RET_INVALID_SUP_BAND (0x10000407)",
      "every --edges value must be an FFT bin in 1..126, in non-decreasing order (got "
      "10,9,20,30,40,50)"},
     2},
    {"RatioAbove10",
     PROCESS "--ratio 11",
     1,
     {"the library rejected --ratio 11 with ALGO_AEC_RET_INVALID_RECURSIVE_RATIO (0x10000411): "
      "the ratio must be 1..10"},
     2},
    {"DumpDirectoryMissing",
     PROCESS,
     1,
     {"the library failed at frame 0 with ALGO_AEC_RET_INIT_ERROR (0x10000401): it could not "
      "set up its dump files",
      "Fail! Dump path /no/such/dump/dir doesn't exist!"},
     2,
     {},
     {},
     {{"AUDIO_AEC_DUMP", "1"}, {"AUDIO_DUMP_PATH", "/no/such/dump/dir"}}},
    {"IntensityCount",
     PROCESS "--intensity 1,2,3",
     2,
     {"--intensity takes 7 comma-separated non-negative integers (got '1,2,3')"},
     0},
    {"NegativeEdge",
     PROCESS "--edges -1,6,36,49,50,51",
     2,
     {"--edges takes 6 comma-separated non-negative integers"},
     0},
    {"UnknownMode", PROCESS "--mode fast", 2, {"--mode", "Run with --help"}, 0},
    {"DelayAndAlignTogether", PROCESS "--far-delay 10 --align auto", 2, {"excludes"}, 0},
    {"RawWithoutRate", PROCESS "--raw", 2, {"--raw needs --rate"}, 0},
    {"MissingFar", "process --near @/near.wav -o @/out.wav", 2, {"--far is required"}, 0},
    {"NoSubcommand", "", 2, {"subcommand"}, 0},
    // process: hostile files.
    {"TruncatedWav",
     PROCESS,
     1,
     {"near.wav'", "truncated"},
     1,
     [](const cli::TempDir &t) {
         std::filesystem::resize_file(t.path("near.wav"), 44 + 2 * 6000);  // 16000 promised
     }},
    {"WavHeaderOfAnotherFormat",
     PROCESS,
     1,
     {"cannot read '@/far.wav'"},
     1,
     [](const cli::TempDir &t) {
         std::string bytes = qtest::read_file(t.path("far.wav"));
         bytes.replace(20, 2, "\x34\x12");  // format tag 0x1234: no such WAV encoding
         t.write_file("far.wav", bytes);
     }},
    {"WavHeaderWithoutData",
     PROCESS,
     1,
     {"far.wav'"},
     1,
     [](const cli::TempDir &t) {
         std::filesystem::resize_file(t.path("far.wav"), 36);  // RIFF and fmt, no data chunk
     }},
    {"FlacHeaderClaimingTerabytes",
     "process --near @/near.wav --far @/far.flac -o @/out.wav",
     1,
     {"far.flac'"},
     1,
     [](const cli::TempDir &t) {
         // STREAMINFO, last block: 16 kHz mono 16-bit, 2^36 - 1 samples, no audio.
         t.write_file("far.flac", std::string("fLaC\x80\x00\x00\x22\x10\x00\x10\x00\x00\x00\x00"
                                              "\x00\x00\x00\x03\xe8\x00\xff\xff\xff\xff\xff",
                                              26) +
                                      std::string(16, '\0'));
     }},
    {"EmptyNearEnd", "process --near @/empty --far @/far.wav -o @/out.wav", 1, {"@/empty'"}},
    {"EmptyRawFarEnd", RAW "@/empty", 1, {"@/empty'", "no audio"}},
    {"FarEndMuchShorter",
     "process --near @/near4s.wav --far @/far.wav -o @/out.wav",
     1,
     {"far end", "shorter than the near end"}},
    {"MonoRawReadAsStereo", RAW "@/far.raw --near-channels 2", 1, {"near.raw'", "2-channel"}},
    {"OutputIsADirectory",
     "process --near @/near.wav --far @/far.wav -o @",
     1,
     {"cannot write '@'"}},
    // replay.
    {"ReplayUnsupportedRate",
     "replay @ --rate 44100",
     1,
     {"--rate 44100: the library runs at 8000, 16000, 32000 or 48000 Hz"}},
    {"MonoDumpReplayedAsStereo",
     REPLAY " --near-channels 2",
     1,
     {"--near-channels", "--far-channels"},
     1,
     [](const cli::TempDir &t) {
         dump(t, "near_end");
         dump(t, "far_end");
     }},
    {"DumpFolderWithoutTheFarEnd",
     REPLAY,
     1,
     {"cannot read '@/Audio_AEC_far_end_data_0.pcm'"},
     1,
     [](const cli::TempDir &t) {
         dump(t, "near_end");
         dump(t, "output");
     }},
    {"DumpFolderOfAnotherInstance",
     REPLAY,
     1,
     {"cannot read '@/Audio_AEC_near_end_data_0.pcm'"},
     1,
     [](const cli::TempDir &t) {
         dump(t, "near_end", 3);
         dump(t, "far_end", 3);
     }},
    // tune.
    {"TalkerRate", TUNE "@/talker8k.wav", 1, {"is 8000 Hz but the near end is 16000 Hz"}},
    {"TalkerSilent", TUNE "@/silent.wav", 1, {"is silent"}},
    {"TalkerShort", TUNE "@/short.wav", 1, {"is 0.50 s long; at least 1 s"}},
    {"TalkerChannels", TUNE "@/stereo.wav", 1, {"has 2 channel(s) but the near end 1"}},
    {"NegativeLoss",
     TUNE "@/talker.wav --max-near-loss -1",
     2,
     {"--max-near-loss must be 0 dB or more"}},
    {"NoJobs", TUNE "@/talker.wav --jobs 0", 2, {"--jobs must be 1 to 256 (got 0)"}},
    {"TalkerLevel",
     TUNE "@/talker.wav --talker-level 100",
     2,
     {"--talker-level must be within +-40 dB"}},
    {"CsvOverInput",
     TUNE "@/talker.wav --csv @/far.wav",
     1,
     {"refusing to write --csv over the input"}},
    {"OneFileTwice",
     TUNE "@/talker.wav --csv @/kept.json",
     2,
     {"--json and --csv name the same file"}},
    {"CsvFolderMissing", TUNE "@/talker.wav --csv @/none/c.csv", 1, {"does not exist"}},
    // process --config: the file and the field named, one line, exact.
    {"ConfigIntensityAbove25",
     CONFIG,
     1,
     {BAD "tuned.intensity[2] must be an integer from 0 to 25 (got 26)\n"},
     1,
     {},
     tuned(kIntensity, "[5, 4, 26, 5, 10, 10, 1]")},
    {"ConfigIntensityFraction",
     CONFIG,
     1,
     {BAD "tuned.intensity[2] must be an integer from 0 to 25 (got 2.5)\n"},
     1,
     {},
     tuned(kIntensity, "[5, 4, 2.5, 5, 10, 10, 1]")},
    {"ConfigIntensityCount",
     CONFIG,
     1,
     {BAD "tuned.intensity must be an array of 7 integers (got an array of 6 values)\n"},
     1,
     {},
     tuned(kIntensity, "[5, 4, 25, 5, 10, 10]")},
    {"ConfigEdgeAbove126",
     CONFIG,
     1,
     {BAD "tuned.edges[5] must be an integer from 1 to 126 (got 127)\n"},
     1,
     {},
     tuned(kEdges, "[4, 6, 36, 49, 50, 127]")},
    {"ConfigEdgesDecrease",
     CONFIG,
     1,
     {BAD "tuned.edges must not decrease: edges[3] = 35 is below edges[2] = 36\n"},
     1,
     {},
     tuned(kEdges, "[4, 6, 36, 35, 50, 51]")},
    {"ConfigRatioZero",
     CONFIG,
     1,
     {BAD "tuned.ratio must be an integer from 1 to 10 (got 0)\n"},
     1,
     {},
     tuned("\"ratio\": 4", "\"ratio\": 0")},
    {"ConfigRatioString",
     CONFIG,
     1,
     {BAD "tuned.ratio must be an integer from 1 to 10 (got the string \"4\")\n"},
     1,
     {},
     tuned("\"ratio\": 4", "\"ratio\": \"4\"")},
    {"ConfigErleString",
     CONFIG,
     1,
     {BAD "tuned.erle_db must be a number (got the string \"high\")\n"},
     1,
     {},
     tuned("\"erle_db\": 30.5", "\"erle_db\": \"high\"")},
    {"ConfigWithoutTuned",
     CONFIG,
     1,
     {BAD "tuned is missing"},
     1,
     {},
     tuned("\"tuned\"", "\"tuning\"")},
    {"ConfigNotJson", CONFIG, 1, {BAD "not valid JSON"}, 1, {}, tuned("}}", "}")},
    {"ConfigAndAnOption", CONFIG " --ratio 2", 2, {"--ratio"}, 0, {}, tuned()},
};

class Refusals : public testing::TestWithParam<Case> {};

TEST_P(Refusals, ExitWithStatusAndMessageAndNoOutput) {
    const Case &c = GetParam();
    cli::TempDir tmp;
    fixtures(tmp);
    if (c.prepare) {
        c.prepare(tmp);
    }
    if (!c.json.empty()) {
        tmp.write_file("bad.json", c.json);
    }
    std::vector<std::string> args;
    std::istringstream words(at(c.args, tmp.dir()));
    for (std::string w; words >> w;) {
        args.push_back(w);
    }
    const std::string near_before = qtest::read_file(tmp.path("near.wav"));
    const cli::Result r = cli::run(args, c.env);
    EXPECT_EQ(r.status, c.status) << r.err;
    for (const std::string &m : c.messages) {
        EXPECT_NE(r.err.find(at(m, tmp.dir())), std::string::npos) << "no '" << m << "' in\n"
                                                                   << r.err;
    }
    if (c.lines > 0) {
        EXPECT_EQ(cli::count_lines(r.err), c.lines) << r.err;
        const size_t last = r.err.rfind('\n', r.err.size() - 2) + 1;  // 0 for a single line
        EXPECT_EQ(r.err.compare(last, 15, "qenaec: error: "), 0) << r.err;
    }
    EXPECT_EQ(r.out, "");
    EXPECT_LT(qtest::file_size(tmp.path("out.wav")), 0);
    EXPECT_EQ(qtest::read_file(tmp.path("kept.json")), "keep\n");
    EXPECT_EQ(qtest::read_file(tmp.path("near.wav")), near_before);
}

INSTANTIATE_TEST_SUITE_P(Cli, Refusals, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<Case> &info) { return info.param.name; });

}  // namespace
