// Deterministic test material for the benchmarks: a speech-like far end (voiced syllables
// through moving formants, fricative bursts, pauses), its echo through a decaying random room
// response with a little microphone noise, and a fade of speech into exact silence.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace bench {

struct EchoScene {
    int rate = 16000;
    int near_channels = 1;
    int far_channels = 1;
    double seconds = 10.0;
    double far_dbfs = -24.0;         // RMS of the speech over its whole length
    double echo_below_far_db = 6.0;  // echo level under the far end
    double noise_dbfs = -66.0;       // microphone noise
    double path_ms = 30.0;           // length of the room response
    unsigned seed = 7;
};

struct EchoSignals {
    std::vector<int16_t> near;  // interleaved, near_channels
    std::vector<int16_t> far;   // interleaved, far_channels
    size_t frames = 0;          // 128-sample frames
};

// Mono speech-like signal of `samples` samples with the given RMS, the same for the same seed.
std::vector<double> speech_like(int rate, size_t samples, double dbfs, unsigned seed);

// Far end and microphone of a single-talk echo scene; every channel of a layout carries the
// same far end, and each microphone has its own room response.
EchoSignals make_echo_scene(const EchoScene &scene);

// The scene's signals with both ends faded out over `fade_seconds` from the start of frame
// `from_frame` and exactly zero after: speech decaying into digital silence.
void fade_to_silence(EchoSignals *signals, const EchoScene &scene, size_t from_frame,
                     double fade_seconds);

// 10 log10(energy of `near` / energy of `out`) over the last `seconds` of the scene.
double erle_db(const EchoScene &scene, const std::vector<int16_t> &near,
               const std::vector<int16_t> &out, double seconds);

}  // namespace bench

namespace bench {

// Points the library's message-level file at errors only, unless the caller chose a file,
// so that instance set-up does not print its banner into the figures.
void quiet_library_messages();

// Runs fn with standard output discarded: instance set-up announces the message level even
// at the quietest level, which would interleave with the figures.
void without_stdout(const std::function<void()> &fn);

}  // namespace bench
