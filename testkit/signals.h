// Deterministic echo scenes for the tests, the benchmarks and the tool's tests: a loudspeaker
// signal (amplitude-modulated white noise, or speech-like syllables), its echo through one
// decaying random room response per microphone, and a little microphone noise. The same
// scene and seed give the same samples on every target.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "testkit/frame_loop.h"

namespace testkit {

struct Scenario {
    int rate = 16000;
    int near_channels = 1;
    int far_channels = 1;
    double seconds = 8.0;
    double far_dbfs = -20.0;
    double echo_below_far_db = 6.0;
    double noise_dbfs = -60.0;
    double path_ms = 30.0;
    unsigned seed = 1;
};

Layout layout_of(const Scenario &s);

// Rounded to the nearest integer and saturated to 16 bits.
int16_t to_pcm(double v);

// White noise under a slow 1.5 Hz swell on the loudspeaker (every far-end channel the same).
Recording noise_echo(const Scenario &s);

// The benchmarks' scene: 10 s of speech-like talk at -24 dBFS, echo 6 dB below it through a
// 30 ms room, microphone noise at -66 dBFS.
Scenario speech_scenario(int rate = 16000, int near_channels = 1, int far_channels = 1);

// Speech-like talk on the loudspeaker: glottal pulse trains with a gliding pitch through three
// formant resonators whose targets change per syllable, fricative noise bursts and pauses.
Recording speech_echo(const Scenario &s);

// Mono speech-like signal of `samples` samples with the given RMS, the same for the same seed.
std::vector<double> speech_like(int rate, size_t samples, double dbfs, unsigned seed);

// Both ends faded out over `fade_seconds` from the start of frame `from_frame`, exactly zero
// after: talk decaying into digital silence.
void fade_to_silence(Recording &rec, size_t from_frame, double fade_seconds);

}  // namespace testkit
