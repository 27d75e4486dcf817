// Every way process, replay, tune and process --config refuse to run. Each ends with its exit
// status and messages on standard error (the tool's last, after the library's own), nothing on
// standard output, and its folder as it was.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "cli_support.h"

namespace {

// name|status|lines on stderr (0: not checked)|arguments|messages...: "@" is the case's
// folder; leading NAME=value words set the environment. Status 2: the command line refused.
#define P "process --near @/near.wav --far @/far.wav -o @/out.wav "
#define RAW "process --raw --rate 16000 --near @/near.raw -o @/out.wav --far "
#define T "tune --near @/near.wav --far @/far.wav --json @/kept.json --talker "
#define C(file) "|1|1|" P "--config @/" file ".json|qenaec: error: '@/" file ".json': "
const char *const kCases[] = {
    "MissingInput|1|1|process --near @/none.wav --far @/far.wav -o @/out.wav|cannot read "
    "'@/none.wav'",
    "OutputIsTheNearEnd|1|1|" P "-o @/near.wav|refusing to write the output over the input '",
    "OutputIsTheFarEndSpeltAnotherWay|1|1|" P "-o @/./far.wav|refusing to write the output over "
    "the input '",
    "RatesDiffer|1|1|" P "--far @/far48k.wav|the near end is 16000 Hz but the far end is 48000 "
    "Hz: both must have the same rate",
    "UnsupportedRate|1|1|process --near @/44k.wav --far @/44k.wav -o @/out.wav|the inputs are "
    "44100 Hz; the library takes 8000, 16000, 32000 or 48000 Hz (add --resample to convert to "
    "48000 Hz and back)",
    // A header claiming 1 Hz would make a few bytes into hours of audio at 8000 Hz.
    "RateTooLowToResample|1|1|" RAW "@/far.raw --rate 1 --resample|the inputs are 1 Hz; "
    "--resample converts 4000 to 384000 Hz only",
    "ThreeChannels|1|1|" P "--near @/3ch.wav|the near end has 3 channels; the library takes 1 or 2",
    "IntensityAbove25|1|2|" P "--intensity 5,4,4,26,10,10,10|ALGO_AEC_RET_INVALID_SUP_MODE "
    "(0x10000408)|every --intensity value must be 0..25 (got 5,4,4,26,10,10,10)",
    "EdgesOutOfOrder|1|2|" P "--edges 10,9,20,30,40,50|ALGO_AEC_RET_INVALID_SUP_BAND (0x10000407)|"
    "every --edges value must be an FFT bin in 1..126, in non-decreasing order (got "
    "10,9,20,30,40,50)",
    "RatioAbove10|1|2|" P "--ratio 11|the library rejected --ratio 11 with "
    "ALGO_AEC_RET_INVALID_RECURSIVE_RATIO (0x10000411): the ratio must be 1..10",
    "DumpDirectoryMissing|1|2|AUDIO_AEC_DUMP=1 AUDIO_DUMP_PATH=/no/such/dump/dir " P
    "|the library failed at frame 0 with ALGO_AEC_RET_INIT_ERROR (0x10000401): it could not set "
    "up its dump files|Fail! Dump path /no/such/dump/dir doesn't exist!",
    "IntensityCount|2|0|" P "--intensity 1,2,3|--intensity takes 7 comma-separated non-negative "
    "integers (got '1,2,3')",
    "NegativeEdge|2|0|" P "--edges -1,6,36,49,50,51|--edges takes 6 comma-separated non-negative "
    "integers",
    "UnknownMode|2|0|" P "--mode fast|--mode|Run with --help",
    "DelayAndAlignTogether|2|0|" P "--far-delay 10 --align auto|excludes",
    "RawWithoutRate|2|0|" P "--raw|--raw needs --rate",
    "MissingFar|2|0|process --near @/near.wav -o @/out.wav|--far is required",
    "NoSubcommand|2|0||subcommand",
    // Hostile files.
    "TruncatedWav|1|1|" P "--near @/truncated.wav|truncated.wav'|truncated",
    "WavHeaderOfAnotherFormat|1|1|" P "--far @/tag1234.wav|cannot read '@/tag1234.wav'",
    "WavHeaderWithoutData|1|1|" P "--far @/nodata.wav|nodata.wav'",
    "FlacHeaderClaimingTerabytes|1|1|" P "--far @/huge.flac|huge.flac'",
    "EmptyNearEnd|1|1|" P "--near @/empty|@/empty'",
    "EmptyRawFarEnd|1|1|" RAW "@/empty|@/empty'|no audio",
    "FarEndMuchShorter|1|1|" P "--near @/4s.wav|far end|shorter than the near end",
    "MonoRawReadAsStereo|1|1|" RAW "@/far.raw --near-channels 2|near.raw'|2-channel",
    "OutputIsADirectory|1|1|" P "-o @/dumps|cannot write '@/dumps'",
    // replay.
    "ReplayUnsupportedRate|1|1|replay @ --rate 44100|--rate 44100: the library runs at 8000, "
    "16000, 32000 or 48000 Hz",
    "MonoDumpReplayedAsStereo|1|1|replay @/dumps --rate 16000 --near-channels 2 -o "
    "@/out.wav|--near-channels|--far-channels",
    "DumpFolderWithoutTheFarEnd|1|1|replay @/dumps --id 1 --rate 16000|cannot read "
    "'@/dumps/Audio_AEC_far_end_data_1.pcm'",
    "DumpFolderOfAnotherInstance|1|1|replay @/dumps --id 2 --rate 16000|cannot read "
    "'@/dumps/Audio_AEC_near_end_data_2.pcm'",
    // tune.
    "TalkerRate|1|1|" T "@/8k.wav|is 8000 Hz but the near end is 16000 Hz",
    "TalkerSilent|1|1|" T "@/silent.wav|is silent",
    "TalkerShort|1|1|" T "@/short.wav|is 0.50 s long; at least 1 s",
    "TalkerChannels|1|1|" T "@/stereo.wav|has 2 channel(s) but the near end 1",
    "NegativeLoss|2|1|" T "@/talker.wav --max-near-loss -1|--max-near-loss must be 0 dB or more",
    "NoJobs|2|1|" T "@/talker.wav --jobs 0|--jobs must be 1 to 256 (got 0)",
    "TalkerLevel|2|1|" T "@/talker.wav --talker-level 100|--talker-level must be within +-40 dB",
    "CsvOverInput|1|1|" T "@/talker.wav --csv @/far.wav|refusing to write --csv over the input",
    "OneFileTwice|2|1|" T "@/talker.wav --csv @/kept.json|--json and --csv name the same file",
    "CsvFolderMissing|1|1|" T "@/talker.wav --csv @/none/c.csv|does not exist",
    // process --config: the file and the field named, exactly.
    "ConfigIntensity26" C("i26") "tuned.intensity[2] must be an integer from 0 to 25 (got "
    "26)\n",
    "ConfigIntensityFraction" C("i2.5") "tuned.intensity[2] must be an integer from 0 to 25 "
    "(got 2.5)\n",
    "ConfigIntensityCount" C("i6") "tuned.intensity must be an array of 7 integers (got an "
    "array of 6 values)\n",
    "ConfigEdge127" C("e127") "tuned.edges[5] must be an integer from 1 to 126 (got 127)\n",
    "ConfigEdgesDecrease" C("e35") "tuned.edges must not decrease: edges[3] = 35 is below "
    "edges[2] = 36\n",
    "ConfigRatioZero" C("r0") "tuned.ratio must be an integer from 1 to 10 (got 0)\n",
    "ConfigRatioString" C("r4") "tuned.ratio must be an integer from 1 to 10 (got the string "
    "\"4\")\n",
    "ConfigErleString" C("high") "tuned.erle_db must be a number (got the string \"high\")\n",
    "ConfigWithoutTuned" C("tuning") "tuned is missing",
    "ConfigNotJson|1|1|" P "--config @/cut.json|qenaec: error: '@/cut.json': not valid JSON",
    "ConfigAndAnOption|2|0|" P "--config @/good.json --ratio 2|--ratio",
};

// The broken tune results the cases name: the good one with one change.
const char *const kConfigs[][3] = {{"i26", "25, 5, 10", "26, 5, 10"},
                                   {"i2.5", "25, 5, 10", "2.5, 5, 10"},
                                   {"i6", "10, 10, 1]", "10, 10]"},
                                   {"e127", "50, 51]", "50, 127]"},
                                   {"e35", "49, 50, 51", "35, 50, 51"},
                                   {"r0", "\"ratio\": 4", "\"ratio\": 0"},
                                   {"r4", "\"ratio\": 4", "\"ratio\": \"4\""},
                                   {"high", "30.5", "\"high\""},
                                   {"tuning", "\"tuned\"", "\"tuning\""},
                                   {"cut", "}}", "}"},
                                   {"good", "", ""}};

std::vector<std::string> split(const std::string &s, char sep) {
    std::vector<std::string> parts(1);
    for (char c : s) {
        c == sep ? void(parts.emplace_back()) : parts.back().push_back(c);
    }
    return parts;
}

// `s` with every "@" replaced by `dir`.
std::string at(std::string s, const std::string &dir) {
    for (size_t i = s.find('@'); i != std::string::npos; i = s.find('@', i + dir.size())) {
        s.replace(i, 1, dir);
    }
    return s;
}

std::vector<int16_t> noise(size_t samples, int amplitude = 2048) {
    std::mt19937 rng(12345);
    std::uniform_int_distribution<int> uniform(-amplitude, amplitude);
    std::vector<int16_t> v(samples);
    std::ranges::generate(v, [&] { return static_cast<int16_t>(uniform(rng)); });
    return v;
}

// Everything a case can name; 1 s at 16 kHz unless the name says otherwise.
void fixtures(const cli::TempDir &t) {
    const struct {
        const char *name;
        int rate, channels, half_seconds, amplitude;
    } wavs[] = {{"near", 16000, 1, 2, 2048},    {"far", 16000, 1, 2, 2048},
                {"talker", 16000, 1, 3, 800},   {"far48k", 48000, 1, 2, 2048},
                {"44k", 44100, 1, 2, 2048},     {"3ch", 16000, 3, 2, 2048},
                {"4s", 16000, 1, 8, 2048},      {"8k", 8000, 1, 3, 800},
                {"silent", 16000, 1, 3, 0},     {"short", 16000, 1, 1, 800},
                {"stereo", 16000, 2, 3, 800},   {"truncated", 16000, 1, 2, 2048},
                {"tag1234", 16000, 1, 2, 2048}, {"nodata", 16000, 1, 2, 2048}};
    for (const auto &w : wavs) {
        cli::write_wav(t.path(w.name + std::string(".wav")), w.rate, w.channels,
                       noise(size_t(w.rate) * w.channels * w.half_seconds / 2, w.amplitude));
    }
    std::filesystem::resize_file(t.path("truncated.wav"), 44 + 2 * 6000);  // 16000 promised
    std::filesystem::resize_file(t.path("nodata.wav"), 36);  // RIFF and fmt, no data chunk
    std::string wav = qtest::read_file(t.path("tag1234.wav"));
    t.write_file("tag1234.wav", wav.replace(20, 2, "\x34\x12"));  // no such WAV encoding
    // FLAC STREAMINFO, the last block: 16 kHz mono 16-bit, 2^36 - 1 samples, and no audio.
    t.write_file("huge.flac", std::string("fLaC\x80\x00\x00\x22\x10\x00\x10\x00\x00\x00\x00"
                                          "\x00\x00\x00\x03\xe8\x00\xff\xff\xff\xff\xff",
                                          26) +
                                  std::string(16, '\0'));
    cli::write_raw(t.path("near.raw"), noise(16001));
    cli::write_raw(t.path("far.raw"), noise(16001));
    t.write_file("empty", "");
    t.write_file("kept.json", "keep\n");
    // Dumps of instance 0 (mono), 1 (no far end) and 3 (none of 2).
    std::filesystem::create_directory(t.path("dumps"));
    for (const char *name : {"near_end_data_0", "far_end_data_0", "near_end_data_1",
                             "output_data_1", "near_end_data_3", "far_end_data_3"}) {
        cli::write_raw(t.path("dumps/Audio_AEC_" + std::string(name) + ".pcm"), noise(1280));
    }
    for (const auto &[name, from, to] : kConfigs) {
        std::string good =
            R"({"default": {"ratio": 99}, "tuned": {"erle_db": 30.5, "intensity": [5, 4, 25, )"
            R"(5, 10, 10, 1], "edges": [4, 6, 36, 49, 50, 51], "ratio": 4}})";
        t.write_file(name + std::string(".json"),
                     *from ? good.replace(good.find(from), strlen(from), to) : good);
    }
}

std::map<std::string, std::string> snapshot(const std::string &dir) {
    std::map<std::string, std::string> files;
    for (const auto &e : std::filesystem::recursive_directory_iterator(dir)) {
        files[e.path().string()] = e.is_directory() ? "/" : qtest::read_file(e.path().string());
    }
    return files;
}

class Refusals : public testing::TestWithParam<const char *> {};

TEST_P(Refusals, ExitWithStatusAndMessageAndLeaveTheFolderAsItWas) {
    cli::TempDir tmp;
    fixtures(tmp);
    const std::vector<std::string> c = split(at(GetParam(), tmp.path()), '|');
    std::vector<std::string> args;
    cli::Env env;
    for (const std::string &word : split(c[3], ' ')) {
        const size_t eq = word.find('=');
        if (args.empty() && eq != std::string::npos) {
            env.emplace_back(word.substr(0, eq), word.substr(eq + 1));
        } else if (!word.empty()) {
            args.push_back(word);
        }
    }
    for (const char *option : {"-o", "--near", "--far", "--rate"}) {  // the last one counts
        const auto first = std::find(args.begin(), args.end(), option);
        if (first != args.end() && std::find(first + 1, args.end(), option) != args.end()) {
            args.erase(first, first + 2);
        }
    }
    const auto before = snapshot(tmp.path());
    const cli::Result r = cli::run(args, env);
    EXPECT_EQ(r.status, std::stoi(c[1])) << r.err;
    for (size_t i = 4; i < c.size(); ++i) {
        EXPECT_NE(r.err.find(c[i]), std::string::npos) << "no '" << c[i] << "' in\n" << r.err;
    }
    if (c[2] != "0") {
        EXPECT_EQ(std::ranges::count(r.err, '\n'), std::stol(c[2])) << r.err;
        const size_t last = r.err.rfind('\n', r.err.size() - 2) + 1;  // 0 for a single line
        EXPECT_EQ(r.err.compare(last, 15, "qenaec: error: "), 0) << r.err;
    }
    EXPECT_EQ(r.out, "");
    EXPECT_TRUE(snapshot(tmp.path()) == before) << "something written or changed";
}

INSTANTIATE_TEST_SUITE_P(Cli, Refusals, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<const char *> &info) {
                             return split(info.param, '|')[0];
                         });

}  // namespace
