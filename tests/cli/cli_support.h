// Helpers for the tool's integration tests: run the built binary with arguments and
// environment, temporary folders, and audio files written and read with libsndfile.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "scratch.h"

namespace cli {

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

using Env = std::vector<std::pair<std::string, std::string>>;

// Runs the tool with `args`; `env` entries are set for that run only.
Result run(const std::vector<std::string> &args, const Env &env = {});

// A fresh temporary folder (removed with its contents), naming files inside it.
class TempDir : public qtest::TempDir {
public:
    std::string path(const std::string &name) const { return dir() + "/" + name; }
    const std::string &dir() const { return qtest::TempDir::path(); }
};

struct Wav {
    int rate = 0;
    int channels = 0;
    std::vector<int16_t> samples;  // interleaved
};

void write_wav(const std::string &path, int rate, int channels,
               const std::vector<int16_t> &samples);
// 32-bit float WAV, samples at full scale +-1.0 (values beyond are stored as they are).
void write_float_wav(const std::string &path, int rate, int channels,
                     const std::vector<float> &samples);
Wav read_wav(const std::string &path);

void write_raw(const std::string &path, const std::vector<int16_t> &samples);
std::vector<int16_t> read_raw(const std::string &path);

bool file_exists(const std::string &path);

// A number from a flat JSON object (one level of nesting with "outer.inner"); NaN when the
// key is missing or null.
double json_number(const std::string &json, const std::string &key);

// Writes near.wav and far.wav into `dir` and runs `process` on them, writing out.wav and
// m.json (the metrics) beside them; `extra` options follow.
Result process_files(const TempDir &dir, int rate, int near_channels,
                     const std::vector<int16_t> &near, int far_channels,
                     const std::vector<int16_t> &far, const std::vector<std::string> &extra = {},
                     const Env &env = {});

// Newline-terminated lines in `text`.
int count_lines(const std::string &text);

}  // namespace cli
