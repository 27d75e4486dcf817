// One fixed 10 s echo scene with a talker from 4 s (echo alone gives near silence, which matches
// anywhere). `write DIR` writes the inputs and both outputs as raw PCM; `compare REF DIR FLOOR_DB`
// also checks identical inputs and each output within FLOOR_DB of REF's.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "scratch.h"
#include "testkit/frame_loop.h"
#include "testkit/signals.h"

namespace {

using Pcm = std::vector<int16_t>;
const char *const kNames[4] = {"near.pcm", "far.pcm", "run.pcm", "adf_run.pcm"};

std::vector<Pcm> produce() {
    const testkit::Scenario s = {.seconds = 10.0};
    testkit::Recording in = testkit::noise_echo(s);
    // A talker from 4 to 9 s at -22 dBFS.
    const std::vector<double> talk = testkit::speech_like(s.rate, in.near.size(), -22.0, 7);
    for (size_t t = 4 * s.rate; t < size_t(9 * s.rate); ++t) {
        in.near[t] = testkit::to_pcm(in.near[t] + talk[t]);
    }
    // Run before ADF_Run everywhere: comfort noise's table positions are process-wide.
    ALGO_AEC_RET run = ALGO_AEC_RET_SUCCESS, adf = ALGO_AEC_RET_SUCCESS;
    std::vector<Pcm> f = {in.near, in.far, testkit::process(in, testkit::Mode::kFull, {}, &run),
                          testkit::process(in, testkit::Mode::kLinear, {}, &adf)};
    if (run != ALGO_AEC_RET_SUCCESS || adf != ALGO_AEC_RET_SUCCESS) {
        std::fprintf(stderr, "crosscheck: processing failed\n");
        std::exit(1);
    }
    return f;
}

bool write_files(const std::vector<Pcm> &f, const std::string &dir) {
    for (int i = 0; i < 4; ++i) {
        std::ofstream out(dir + "/" + kNames[i], std::ios::binary);
        out.write(reinterpret_cast<const char *>(f[i].data()), std::streamsize(f[i].size() * 2));
        if (!out) {
            std::fprintf(stderr, "crosscheck: cannot write %s/%s\n", dir.c_str(), kNames[i]);
            return false;
        }
    }
    return true;
}

// Prints the signal-to-difference ratio of `out` against `ref`; true when it clears the floor.
bool compare_output(const char *name, const Pcm &ref, const Pcm &out, double floor_db) {
    double signal = 0, diff = 0;
    size_t differing = 0;
    for (size_t i = 0; i < ref.size() && ref.size() == out.size(); ++i) {
        const double d = double(ref[i]) - out[i];
        signal += double(ref[i]) * ref[i];
        diff += d * d;
        differing += d != 0;
    }
    const double snr = ref.size() != out.size() ? -INFINITY : 10.0 * std::log10(signal / diff);
    std::printf("%-8s %7.1f dB against the reference (floor %.1f), %zu of %zu samples differ\n",
                name, snr, floor_db, differing, ref.size());
    return snr >= floor_db;
}

int compare(const std::string &ref_dir, const std::string &dir, double floor_db) {
    const std::vector<Pcm> own = produce();
    std::vector<Pcm> ref(4);
    for (int i = 0; i < 4; ++i) {
        ref[i] = qtest::read_pcm(ref_dir + "/" + kNames[i]);
    }
    if (!write_files(own, dir) || ref[0].empty()) {
        std::printf("no reference in %s\n", ref_dir.c_str());
        return 1;
    }
    if (own[0] != ref[0] || own[1] != ref[1]) {
        std::printf("inputs differ from the reference: the scene is not reproducible here\n");
        return 1;
    }
    const bool run_ok = compare_output("Run", ref[2], own[2], floor_db);
    return compare_output("ADF_Run", ref[3], own[3], floor_db) && run_ok ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "write" && argc == 3) {
        return write_files(produce(), argv[2]) ? 0 : 1;
    }
    if (mode == "compare" && argc == 5) {
        return compare(argv[2], argv[3], std::atof(argv[4]));
    }
    std::fprintf(stderr, "usage: %s write DIR\n       %s compare REFERENCE_DIR DIR FLOOR_DB\n",
                 argv[0], argv[0]);
    return 2;
}
