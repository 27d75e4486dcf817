// Hostile files against the tool: truncated or malformed audio, empty files, a far end much
// shorter than the near end, a mono file read as stereo, an output that cannot be written, a
// dump folder without the expected files. Each must end in exactly one error line and exit
// status 1: no crash, nothing on standard output, and no output file left behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
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

void write_bytes(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

void truncate_to(const std::string &path, size_t bytes) {
    std::filesystem::resize_file(path, bytes);
}

// A near end and a far end of 1 s at 16 kHz.
void inputs(const cli::TempDir &t) {
    cli::write_wav(t.path("near.wav"), 16000, 1, noise(16000));
    cli::write_wav(t.path("far.wav"), 16000, 1, noise(16000));
}

std::vector<std::string> process(const cli::TempDir &t, const std::string &out = "out.wav") {
    return {"process", "--near", t.path("near.wav"), "--far", t.path("far.wav"), "-o", t.path(out)};
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
    std::function<std::vector<std::string>(const cli::TempDir &)> setup;
    std::vector<std::string> messages;  // each must appear in the error line
};

const Case kCases[] = {
    {"TruncatedWav",
     [](const cli::TempDir &t) {
         inputs(t);
         truncate_to(t.path("near.wav"), 44 + 2 * 6000);  // header promises 16000 samples
         return process(t);
     },
     {"near.wav'", "truncated"}},
    {"WavHeaderOfAnotherFormat",
     [](const cli::TempDir &t) {
         inputs(t);
         std::string bytes = cli::read_text(t.path("far.wav"));
         bytes[20] = 0x34;  // format tag 0x1234: no such WAV encoding
         bytes[21] = 0x12;
         write_bytes(t.path("far.wav"), bytes);
         return process(t);
     },
     {"cannot read '", "far.wav'"}},
    {"WavHeaderWithoutData",
     [](const cli::TempDir &t) {
         inputs(t);
         truncate_to(t.path("far.wav"), 36);  // RIFF and fmt, no data chunk
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
         write_bytes(t.path("far.flac"), flac);
         return std::vector<std::string>{"process",          "--near", t.path("near.wav"), "--far",
                                         t.path("far.flac"), "-o",     t.path("out.wav")};
     },
     {"far.flac'"}},
    {"EmptyNearEnd",
     [](const cli::TempDir &t) {
         inputs(t);
         write_bytes(t.path("near.wav"), "");
         return process(t);
     },
     {"near.wav'"}},
    {"EmptyRawFarEnd",
     [](const cli::TempDir &t) {
         cli::write_raw(t.path("near.raw"), noise(16000));
         write_bytes(t.path("far.raw"), "");
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
         return process(t, "taken");
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

class Hostile : public testing::TestWithParam<Case> {};

TEST_P(Hostile, OneErrorLineAndNoOutputFile) {
    const Case &c = GetParam();
    cli::TempDir tmp;
    const cli::Result r = cli::run(c.setup(tmp));
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_EQ(cli::count_lines(r.err), 1) << r.err;
    EXPECT_EQ(r.err.rfind("qenaec: error: ", 0), 0u) << r.err;
    for (const std::string &m : c.messages) {
        EXPECT_NE(r.err.find(m), std::string::npos) << "missing '" << m << "' in: " << r.err;
    }
    EXPECT_EQ(r.out, "");
    EXPECT_FALSE(cli::file_exists(tmp.path("out.wav")));
}

INSTANTIATE_TEST_SUITE_P(Cli, Hostile, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<Case> &info) {
                             return std::string(info.param.name);
                         });

}  // namespace
