// Records the outputs of the three run modes on fixed scenes, or compares them with a
// recording, so a change to the library can be checked against the outputs before it:
// QenAec_ADF_Run must match bit for bit, QenAec_Run and the split ADF_Run + NLP_Run within
// an SNR tolerance (the nonlinear stage may use approximations).
//
//   qenaec_output_check record FILE
//   qenaec_output_check compare FILE [min_snr_db]
//
// The scenes: the end-to-end test's white-noise echo scene at every rate and layout, and the
// speech-like scene fading into digital silence (where flushing denormals may show).
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "../tests/e2e/scenario.h"
#include "qen_aec.h"
#include "signals.h"

namespace {

struct Case {
    std::string name;
    bool exact;  // bit-exact required
    std::vector<int16_t> out;
};

enum class RunMode { kFull, kLinear, kSplit };

std::vector<int16_t> process(int rate, int near_ch, int far_ch, const std::vector<int16_t> &near,
                             const std::vector<int16_t> &far, size_t frames, RunMode mode) {
    std::vector<unsigned char> block(QenAec_GetBufferSize());
    AudioAecInit init = {128, static_cast<uint32_t>(near_ch), static_cast<uint32_t>(far_ch),
                         static_cast<QEN_AEC_SAMPLE_RATE>(rate)};
    AudioAecConfig cfg = {QEN_AEC_TRUE, 0, {4, 6, 36, 49, 50, 51}, {5, 4, 4, 5, 10, 10, 10}};
    AEC_HANDLE h = nullptr;
    bench::without_stdout([&] {
        h = QenAec_Init(reinterpret_cast<char *>(block.data()), &init);
        QenAec_Config(h, &cfg);
    });
    std::vector<int16_t> out = near;
    std::vector<int16_t> f = far;
    for (size_t i = 0; i < frames; ++i) {
        short *n = out.data() + i * 128 * near_ch;
        short *x = f.data() + i * 128 * far_ch;
        if (mode == RunMode::kFull) {
            QenAec_Run(h, n, x);
        } else {
            QenAec_ADF_Run(h, n, x);
            if (mode == RunMode::kSplit) {
                QenAec_NLP_Run(h, n);
            }
        }
    }
    QenAec_Free(h);
    return out;
}

void add_modes(std::vector<Case> *cases, const std::string &name, int rate, int nc, int fc,
               const std::vector<int16_t> &near, const std::vector<int16_t> &far, size_t frames) {
    cases->push_back(
        {name + " ADF_Run", true, process(rate, nc, fc, near, far, frames, RunMode::kLinear)});
    cases->push_back(
        {name + " Run", false, process(rate, nc, fc, near, far, frames, RunMode::kFull)});
    cases->push_back({name + " ADF_Run+NLP_Run", false,
                      process(rate, nc, fc, near, far, frames, RunMode::kSplit)});
}

std::vector<Case> run_cases() {
    std::vector<Case> cases;
    for (int rate : {8000, 16000, 32000, 48000}) {
        for (int nc : {1, 2}) {
            for (int fc : {1, 2}) {
                e2e::Scenario s;
                s.rate = rate;
                s.near_channels = nc;
                s.far_channels = fc;
                s.seconds = 3.0;
                const e2e::Signals in = e2e::make_signals(s);
                const std::string name = "noise " + std::to_string(rate) + " (" +
                                         std::to_string(nc) + "," + std::to_string(fc) + ")";
                add_modes(&cases, name, rate, nc, fc, in.near, in.far, in.frames);
            }
        }
    }
    e2e::Scenario scene = bench::speech_scene();
    scene.seconds = 12.0;
    e2e::Signals sig = bench::make_echo_scene(scene);
    bench::fade_to_silence(&sig, scene, sig.frames / 3, 1.0);
    add_modes(&cases, "speech into silence 16000 (1,1)", scene.rate, 1, 1, sig.near, sig.far,
              sig.frames);
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
