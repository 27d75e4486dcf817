// Helpers for the tool's integration tests: run the built binary, temporary folders, audio
// files through libsndfile, and the output the tool should give, computed through the API.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "scratch.h"
#include "testkit/frame_loop.h"

namespace cli {

struct Result {
    int status = -1;
    std::string out, err;
};
using Env = std::vector<std::pair<std::string, std::string>>;

// Runs the tool with `args`; `env` entries are set for that run only.
Result run(const std::vector<std::string> &args, const Env &env = {});

using qtest::TempDir;

struct Wav {
    int rate = 0, channels = 0;
    std::vector<int16_t> samples;  // interleaved
};
// 16-bit, or 32-bit float at full scale +-1.0 (values beyond are stored as they are).
template <typename Sample>  // int16_t or float
void write_wav(const std::string &path, int rate, int channels, const std::vector<Sample> &samples);
Wav read_wav(const std::string &path);
void write_raw(const std::string &path, const std::vector<int16_t> &samples);

// A number in JSON by its path ("tuned.edges.2"); NaN when missing or not a number.
double json_number(const std::string &json, const std::string &key);

// `process` on near.wav and far.wav in `dir` into out.wav, metrics in m.json, then `extra`.
Result process(const TempDir &dir, const std::vector<std::string> &extra = {}, const Env &env = {});
// The same after writing the two files.
Result process_files(const TempDir &dir, int rate, int near_channels,
                     const std::vector<int16_t> &near, int far_channels,
                     const std::vector<int16_t> &far, const std::vector<std::string> &extra = {},
                     const Env &env = {});

// The inputs zero-padded to whole frames, run by a fresh instance, trimmed back.
inline std::vector<int16_t> reference_output(std::vector<int16_t> near, std::vector<int16_t> far,
                                             int rate, int near_ch, int far_ch) {
    const size_t samples = near.size() / near_ch;
    const size_t frames = (samples + testkit::kFrame - 1) / testkit::kFrame;
    testkit::Recording in = {{rate, near_ch, far_ch}, std::move(near), std::move(far)};
    in.near.resize(frames * testkit::kFrame * near_ch, 0);
    in.far.resize(frames * testkit::kFrame * far_ch, 0);
    std::vector<int16_t> out = testkit::process(in, testkit::Mode::kFull);
    out.resize(samples * near_ch);
    return out;
}

// `x` moved `samples` later, keeping its length.
inline std::vector<int16_t> delayed(const std::vector<int16_t> &x, int channels, size_t samples) {
    std::vector<int16_t> y(x.size(), 0);
    const size_t shift = std::min(x.size(), samples * channels);
    std::copy(x.begin(), x.end() - shift, y.begin() + shift);
    return y;
}

}  // namespace cli
