// Deterministic test material for the benchmarks: a speech-like far end (voiced syllables
// through moving formants, fricative bursts, pauses), its echo through a decaying random room
// response with a little microphone noise, and a fade of speech into exact silence.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "../tests/e2e/scenario.h"

namespace bench {

// The end-to-end test's scene description and signal record serve here too; only the far
// end differs. Defaults of the benchmarks' scene: 10 s, speech at -24 dBFS, echo 6 dB below
// it through a 30 ms room, microphone noise at -66 dBFS.
e2e::Scenario speech_scene(int rate = 16000, int near_channels = 1, int far_channels = 1);

// Mono speech-like signal of `samples` samples with the given RMS, the same for the same seed.
std::vector<double> speech_like(int rate, size_t samples, double dbfs, unsigned seed);

// Far end (speech-like) and microphone of a single-talk echo scene; every channel of a layout
// carries the same far end, and each microphone has its own room response.
e2e::Signals make_echo_scene(const e2e::Scenario &scene);

// The scene's signals with both ends faded out over `fade_seconds` from the start of frame
// `from_frame` and exactly zero after: speech decaying into digital silence.
void fade_to_silence(e2e::Signals *signals, const e2e::Scenario &scene, size_t from_frame,
                     double fade_seconds);

}  // namespace bench

namespace bench {

// Points the library's message-level file at errors only, unless the caller chose a file,
// so that instance set-up does not print its banner into the figures.
void quiet_library_messages();

// Runs fn with standard output discarded: instance set-up announces the message level even
// at the quietest level, which would interleave with the figures.
void without_stdout(const std::function<void()> &fn);

}  // namespace bench
