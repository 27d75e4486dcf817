// What `tune` scores a candidate on: the echo recording exactly as `process` would run it,
// and the same recording with the talker recording mixed in, where the talker's part of the
// output is known because the talker is. One candidate is two runs of the library; each run
// is scored on its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <complex>
#include <string>
#include <vector>

#include "aec_runner.h"
#include "metrics.h"
#include "process.h"

namespace qtool {

struct SceneRequest {
    ProcessRequest echo;  // the echo recording; out_path is not used
    std::string talker_path;
    double talker_level_db = 0.0;  // active level of the talker over that of the echo
};

// Short-time spectra: 256-sample Hann frames every 128 samples, bins 0..128.
constexpr size_t kSpectrumSize = 256;
constexpr size_t kSpectrumBins = kSpectrumSize / 2 + 1;

struct Scene {
    ProcessReport rep;  // the echo recording as `process` reports it
    Prepared echo;      // the echo recording as `process` runs it
    Layout layout;
    std::vector<int16_t> mixed;     // echo.near with the talker added, same layout
    std::vector<bool> double_talk;  // per 128-sample frame: the far end and the talker active
    // The talker as added (mean of the channels) in the double-talk spectra: the sample each
    // starts at, and kSpectrumBins values for each.
    std::vector<size_t> talker_starts;
    std::vector<std::complex<float>> talker_spectra;
    double double_talk_s = 0.0;
    double erle_s = 0.0;          // the echo recording's frames that ERLE is measured over
    double talker_gain_db = 0.0;  // applied to the talker recording: levels it to the echo
    double talker_s = 0.0;        // the talker recording's length
    size_t clipped_mix = 0;       // samples of the mix saturated to 16 bits
};

// Reads both recordings and refuses a talker recording of another rate or channel count, one
// shorter than a second, a silent one, and a pair with too little double talk to measure.
Scene make_scene(const SceneRequest &rq);

struct TalkerFigures {
    double loss_db = 0.0;  // talker power over that of the output's projection onto it
    double sdr_db = 0.0;   // the projection's power over the rest of the output
};

// Over the double-talk spectra, band by band (8 bins): the output (channel mean, moved back
// by the output latency of `mode`) is projected onto the talker, a least-squares gain that
// is never negative. Spectral shaping across bands is loss, not distortion; what is left in
// a band beside the talker's copy (shaping within it, residual echo, noise) is distortion.
TalkerFigures talker_figures(const Scene &sc, const std::vector<int16_t> &mixed_output, Mode mode);

// ERLE of the echo recording's output, by the rule and on the frames `process` uses.
Erle scene_erle(const Scene &sc, const std::vector<int16_t> &echo_output, Mode mode);

}  // namespace qtool
