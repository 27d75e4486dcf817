// Records the outputs of the three run modes on fixed scenes, or compares them with a
// recording, so a change to the library can be checked against the outputs before it:
// QenAec_ADF_Run must match bit for bit, QenAec_Run and the split ADF_Run + NLP_Run within
// an SNR tolerance (the nonlinear stage may use approximations).
//
//   qenaec_output_check record FILE
//   qenaec_output_check compare FILE [min_snr_db]
//
// The scenes of testkit/: the white-noise echo scene at every rate and layout, and the
// speech-like scene fading into digital silence (where flushing denormals may show).
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "quiet.h"
#include "testkit/frame_loop.h"
#include "testkit/signals.h"

namespace {

struct Case {
    std::string name;
    bool exact;  // bit-exact required
    std::vector<int16_t> out;
};

using testkit::Mode;

void add_modes(std::vector<Case> *cases, const std::string &name, const testkit::Recording &in) {
    const testkit::Settings settings = {.comfort_noise = true};
    cases->push_back({name + " ADF_Run", true, testkit::process(in, Mode::kLinear, settings)});
    cases->push_back({name + " Run", false, testkit::process(in, Mode::kFull, settings)});
    cases->push_back(
        {name + " ADF_Run+NLP_Run", false, testkit::process(in, Mode::kSplit, settings)});
}

void add_all(std::vector<Case> *cases) {
    for (int rate : {8000, 16000, 32000, 48000}) {
        for (int nc : {1, 2}) {
            for (int fc : {1, 2}) {
                testkit::Scenario s;
                s.rate = rate;
                s.near_channels = nc;
                s.far_channels = fc;
                s.seconds = 3.0;
                const std::string name = "noise " + std::to_string(rate) + " (" +
                                         std::to_string(nc) + "," + std::to_string(fc) + ")";
                add_modes(cases, name, testkit::noise_echo(s));
            }
        }
    }
    testkit::Scenario scene = testkit::speech_scenario();
    scene.seconds = 12.0;
    testkit::Recording sig = testkit::speech_echo(scene);
    testkit::fade_to_silence(sig, sig.frames() / 3, 1.0);
    add_modes(cases, "speech into silence 16000 (1,1)", sig);
}

// Instance set-up announces the message level even at the quietest level: standard output
// is discarded while the cases run.
std::vector<Case> run_cases() {
    std::vector<Case> cases;
    bench::without_stdout([&] { add_all(&cases); });
    return cases;
}

bool record(const char *path) {
    FILE *f = fopen(path, "wb");
    if (f == nullptr) {
        return false;
    }
    for (const Case &c : run_cases()) {
        const uint64_t n = c.out.size();
        fwrite(&n, sizeof n, 1, f);
        fwrite(c.out.data(), sizeof(int16_t), n, f);
    }
    return fclose(f) == 0;
}

int compare(const char *path, double min_snr) {
    FILE *f = fopen(path, "rb");
    if (f == nullptr) {
        fprintf(stderr, "cannot read %s\n", path);
        return 2;
    }
    int failures = 0;
    for (const Case &c : run_cases()) {
        uint64_t n = 0;
        std::vector<int16_t> ref;
        if (fread(&n, sizeof n, 1, f) == 1) {
            ref.resize(n);
            if (fread(ref.data(), sizeof(int16_t), n, f) != n) {
                ref.clear();
            }
        }
        if (ref.size() != c.out.size()) {
            printf("%-40s recording does not match the scene\n", c.name.c_str());
            ++failures;
            continue;
        }
        size_t differ = 0;
        double es = 0, en = 0;
        for (size_t i = 0; i < ref.size(); ++i) {
            const double d = double(c.out[i]) - ref[i];
            differ += d != 0;
            es += double(ref[i]) * ref[i];
            en += d * d;
        }
        const double snr = en > 0 ? 10 * std::log10(es / en) : INFINITY;
        const bool ok = c.exact ? differ == 0 : snr >= min_snr;
        failures += !ok;
        printf("%-40s %-9s samples differing %7zu   SNR %7.1f dB  %s\n", c.name.c_str(),
               c.exact ? "bit-exact" : "SNR", differ, snr, ok ? "ok" : "FAIL");
    }
    fclose(f);
    printf("%s\n", failures == 0 ? "outputs match" : "outputs DIFFER");
    return failures == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    bench::quiet_library_messages();
    if (argc >= 3 && strcmp(argv[1], "record") == 0) {
        return record(argv[2]) ? 0 : 2;
    }
    if (argc >= 3 && strcmp(argv[1], "compare") == 0) {
        return compare(argv[2], argc > 3 ? atof(argv[3]) : 40.0);
    }
    fprintf(stderr, "usage: %s record FILE | compare FILE [min_snr_db]\n", argv[0]);
    return 2;
}
