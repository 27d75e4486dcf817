// The same fixed 10 s echo scenario on every target, through the public API only: the
// synthetic echo of the end-to-end tests with a near-end talker from 4 s to 9 s, so that the
// suppressor passes signal (with echo alone its output is almost all zeros, and would match
// anywhere).
//   qenaec_crosscheck write DIR
//       writes the scenario's inputs and outputs as raw 16-bit PCM into DIR:
//       near.pcm, far.pcm, run.pcm (QenAec_Run), adf_run.pcm (QenAec_ADF_Run).
//   qenaec_crosscheck compare REFERENCE_DIR DIR FLOOR_DB
//       writes its own files into DIR, then compares them with the ones another target wrote
//       into REFERENCE_DIR: the inputs must be identical, and both outputs must match the
//       reference to at least FLOOR_DB of signal-to-difference ratio. Prints the ratios and
//       whether each output is bit-exact.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "testkit/frame_loop.h"
#include "testkit/signals.h"

namespace {

using Pcm = std::vector<int16_t>;

struct Files {
    Pcm near, far, run, adf_run;
};

const char *const kNames[] = {"near.pcm", "far.pcm", "run.pcm", "adf_run.pcm"};

Pcm *member(Files &f, int i) {
    Pcm *all[] = {&f.near, &f.far, &f.run, &f.adf_run};
    return all[i];
}

testkit::Scenario scenario() {
    testkit::Scenario s;
    s.seconds = 10.0;
    return s;
}

// A voiced talker: harmonics of a gliding 120..180 Hz pitch up to 3.4 kHz, in 4 Hz syllables.
void add_talker(const testkit::Scenario &s, testkit::Recording &in) {
    const double amplitude = 32768.0 * std::pow(10.0, -22.0 / 20);
    double phase = 0;
    for (size_t t = 0; t < in.frames() * testkit::kFrame; ++t) {
        const double sec = double(t) / s.rate;
        const double pitch = 150.0 + 30.0 * std::sin(2 * M_PI * 0.7 * sec);
        phase += 2 * M_PI * pitch / s.rate;
        if (sec < 4.0 || sec >= 9.0) {
            continue;
        }
        const double syllable = std::sin(M_PI * std::fmod(sec * 4.0, 1.0));
        double voice = 0;
        for (int k = 1; k * 180.0 < 3400.0; ++k) {
            voice += std::sin(k * phase) / k;
        }
        const double v = amplitude * syllable * syllable * voice;
        for (int ch = 0; ch < s.near_channels; ++ch) {
            int16_t &near = in.near[t * s.near_channels + ch];
            near = testkit::to_pcm(near + v);
        }
    }
}

Files produce() {
    const testkit::Scenario s = scenario();
    testkit::Recording in = testkit::noise_echo(s);
    add_talker(s, in);
    Files f;
    f.near = in.near;
    f.far = in.far;
    ALGO_AEC_RET err = ALGO_AEC_RET_SUCCESS;
    // Run first, then ADF_Run, in this order on every target: comfort noise draws from
    // process-wide table positions, so the order of the runs is part of the scenario.
    f.run = testkit::process(in, testkit::Mode::kFull, {}, &err);
    if (err == ALGO_AEC_RET_SUCCESS) {
        f.adf_run = testkit::process(in, testkit::Mode::kLinear, {}, &err);
    }
    if (err != ALGO_AEC_RET_SUCCESS) {
        std::fprintf(stderr, "crosscheck: processing failed with 0x%x\n", unsigned(err));
        std::exit(1);
    }
    return f;
}

bool write_files(Files &f, const std::string &dir) {
    for (int i = 0; i < 4; ++i) {
        const Pcm &pcm = *member(f, i);
        std::ofstream out(dir + "/" + kNames[i], std::ios::binary);
        out.write(reinterpret_cast<const char *>(pcm.data()), std::streamsize(pcm.size() * 2));
        if (!out) {
            std::fprintf(stderr, "crosscheck: cannot write %s/%s\n", dir.c_str(), kNames[i]);
            return false;
        }
    }
    return true;
}

bool read_files(Files &f, const std::string &dir) {
    for (int i = 0; i < 4; ++i) {
        std::ifstream in(dir + "/" + kNames[i], std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), {});
        if (!in.is_open()) {
            std::fprintf(stderr, "crosscheck: no reference %s/%s\n", dir.c_str(), kNames[i]);
            return false;
        }
        Pcm &pcm = *member(f, i);
        pcm.resize(bytes.size() / 2);
        std::memcpy(pcm.data(), bytes.data(), pcm.size() * 2);
    }
    return true;
}

// 10 log10(sum ref^2 / sum (ref - out)^2); infinite when the two are identical.
double snr_db(const Pcm &ref, const Pcm &out) {
    double signal = 0, diff = 0;
    for (size_t i = 0; i < ref.size(); ++i) {
        const double d = double(ref[i]) - out[i];
        signal += double(ref[i]) * ref[i];
        diff += d * d;
    }
    return diff == 0 ? INFINITY : 10.0 * std::log10(signal / diff);
}

// Prints one comparison line; true when the output clears the floor.
bool compare_output(const char *name, const Pcm &ref, const Pcm &out, double floor_db) {
    if (ref.size() != out.size()) {
        std::printf("%-8s length %zu, reference %zu\n", name, out.size(), ref.size());
        return false;
    }
    size_t differing = 0;
    int max_diff = 0;
    for (size_t i = 0; i < ref.size(); ++i) {
        const int d = std::abs(int(ref[i]) - int(out[i]));
        differing += d != 0;
        max_diff = d > max_diff ? d : max_diff;
    }
    const double snr = snr_db(ref, out);
    std::printf(
        "%-8s SNR against reference %7.1f dB (floor %.1f), %s: %zu of %zu samples "
        "differ, by at most %d\n",
        name, snr, floor_db, differing == 0 ? "bit-exact" : "not bit-exact", differing, ref.size(),
        max_diff);
    return snr >= floor_db;
}

int compare(const std::string &ref_dir, const std::string &dir, double floor_db) {
    Files own = produce();
    Files ref;
    if (!write_files(own, dir) || !read_files(ref, ref_dir)) {
        return 1;
    }
    if (own.near != ref.near || own.far != ref.far) {
        std::printf("inputs differ from the reference: the scenario is not reproducible here\n");
        return 1;
    }
    std::printf("inputs identical to the reference (%zu samples)\n", own.near.size());
    const bool run_ok = compare_output("Run", ref.run, own.run, floor_db);
    const bool adf_ok = compare_output("ADF_Run", ref.adf_run, own.adf_run, floor_db);
    return run_ok && adf_ok ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "write" && argc == 3) {
        Files f = produce();
        return write_files(f, argv[2]) ? 0 : 1;
    }
    if (mode == "compare" && argc == 5) {
        return compare(argv[2], argv[3], std::atof(argv[4]));
    }
    std::fprintf(stderr, "usage: %s write DIR\n       %s compare REFERENCE_DIR DIR FLOOR_DB\n",
                 argv[0], argv[0]);
    return 2;
}
