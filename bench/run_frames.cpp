// Runs a fixed number of frames for instruction counting, so that only the frames are counted.
// Under callgrind (`make bench-instructions`) the script selects run_frames(); under qemu-arm
// (`make bench-arm`) two runs with different frame counts are subtracted, and start-up, set-up
// and scene loading cancel. The loop is its own, not testkit's: it cycles over the scene, so
// that any number of frames can be counted on the same 4 s of input.
//
//   qenaec_run_frames [FRAMES [RATE NEAR FAR CNG [DIR]]]
//       QenAec_Run frames over the speech-like echo scene (defaults: 1000 frames, 16000 Hz, one
//       near-end and one far-end channel, comfort noise on); with DIR the scene is read from
//       DIR/near.pcm and DIR/far.pcm instead of being generated.
//   qenaec_run_frames scene RATE NEAR FAR DIR
//       writes that scene to DIR: generating it costs far more than the frames when every
//       instruction is logged, so the emulated counting runs read it.
//   qenaec_run_frames FRAMES fft|floor
//       per frame, one forward and one inverse 256-point transform on the engine, or the floor
//       of one Run frame (the transforms and spectral kernels and nothing else).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "dsp/fft.h"
#include "instance.h"
#include "kernels/spectral.h"
#include "quiet.h"
#include "testkit/frame_loop.h"
#include "testkit/signals.h"

namespace {

constexpr double kSceneSeconds = 4.0;

// An instance with the defaults Init installs and comfort noise as asked, set up quietly.
struct Instance {
    std::optional<testkit::Instance> aec;

    Instance(const testkit::Layout &layout, bool comfort_noise) {
        bench::without_stdout(
            [&] { aec.emplace(layout, testkit::Settings{.comfort_noise = comfort_noise}); });
    }
    AEC_HANDLE h() const { return aec->handle(); }
    aec_workingbuf_t *buf() const { return static_cast<aec_workingbuf_t *>(h()); }
};

__attribute__((noinline)) void run_frames(AEC_HANDLE h, std::vector<int16_t> *near,
                                          std::vector<int16_t> *far, size_t frames,
                                          size_t scene_frames, int near_ch, int far_ch) {
    for (size_t f = 0; f < frames; ++f) {
        const size_t at = (f % scene_frames) * testkit::kFrame;
        QenAec_Run(h, near->data() + at * near_ch, far->data() + at * far_ch);
    }
}

// The engine's own entry points and the instance's plan: what the wrapper calls, without its
// copies.
__attribute__((noinline)) void fft_pairs(aec_workingbuf_t *b, size_t frames) {
    alignas(8) float time[256];  // the ARM engine reads and writes the signal as 8-byte pairs
    ne10_fft_cpx_float32_t spectrum[129];
    memcpy(time, b->AudioNearEnd[0], sizeof time);
    for (size_t f = 0; f < frames; ++f) {
        ne10_fft_r2c_1d_float32(spectrum, time, b->FFT_workingBuff.fft_Ne10_cfg);
        ne10_fft_c2r_1d_float32(time, spectrum, b->FFT_workingBuff.fft_Ne10_cfg);
    }
}

// The floor as the host benchmark defines it (bench/frame_bench.cpp, bm_floor): 11 forward
// and 5 inverse transforms, 2 multiply-accumulates over 8 partitions, 8 weighted conjugate
// products and 3 power spectra. A fresh instance's arrays do: the counts depend on no value.
__attribute__((noinline)) void floor_frames(aec_workingbuf_t *b, size_t frames) {
    MdfEchoState *st = &b->mdf_workingbuff;
    ne10_fft_r2c_cfg_float32_t plan = b->FFT_workingBuff.fft_Ne10_cfg;
    alignas(8) float time_in[256], time_out[256];
    float acc[258], prod[258], ps[129];
    ne10_fft_cpx_float32_t spectrum[129];
    memcpy(time_in, b->AudioNearEnd[0], sizeof time_in);
    for (size_t f = 0; f < frames; ++f) {
        for (int k = 0; k < 11; ++k) {
            ne10_fft_r2c_1d_float32(spectrum, time_in, plan);
        }
        for (int k = 0; k < 5; ++k) {
            ne10_fft_c2r_1d_float32(time_out, spectrum, plan);
        }
        for (int k = 0; k < 2; ++k) {
            SpectralMulAccum_Neon(st->X, b->aec_inst.wfBuf, acc, 258, 8);
        }
        for (int j = 0; j < 8; ++j) {
            WeightedSpectralMulConj_Neon(st->power_1, st->prop[j], st->X + 258 * (j + 1), b->ef,
                                         prod, 258);
        }
        for (int k = 0; k < 3; ++k) {
            PowerSpectrum_Neon(b->ef, ps, 258);
        }
        __asm__ volatile("" : : "r"(time_out), "r"(acc), "r"(prod), "r"(ps) : "memory");
    }
}

bool write_pcm(const std::string &path, const std::vector<int16_t> &v) {
    FILE *f = fopen(path.c_str(), "wb");
    if (f == nullptr) {
        return false;
    }
    const bool ok = fwrite(v.data(), sizeof(int16_t), v.size(), f) == v.size();
    return fclose(f) == 0 && ok;
}

bool read_pcm(const std::string &path, std::vector<int16_t> *v) {
    FILE *f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        return false;
    }
    int16_t chunk[4096];
    size_t got;
    while ((got = fread(chunk, sizeof(int16_t), 4096, f)) > 0) {
        v->insert(v->end(), chunk, chunk + got);
    }
    fclose(f);
    return !v->empty();
}

testkit::Recording scene(const testkit::Layout &layout) {
    testkit::Scenario s =
        testkit::speech_scenario(layout.rate, layout.near_channels, layout.far_channels);
    s.seconds = kSceneSeconds;
    return testkit::speech_echo(s);
}

int usage() {
    fprintf(stderr,
            "usage: qenaec_run_frames [FRAMES [RATE NEAR FAR CNG [DIR]]]\n"
            "       qenaec_run_frames scene RATE NEAR FAR DIR\n"
            "       qenaec_run_frames FRAMES fft|floor\n");
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    bench::quiet_library_messages();
    if (argc == 6 && strcmp(argv[1], "scene") == 0) {
        const testkit::Recording sig = scene({atoi(argv[2]), atoi(argv[3]), atoi(argv[4])});
        const std::string dir = argv[5];
        if (!write_pcm(dir + "/near.pcm", sig.near) || !write_pcm(dir + "/far.pcm", sig.far)) {
            fprintf(stderr, "qenaec_run_frames: cannot write the scene to %s\n", dir.c_str());
            return 1;
        }
        return 0;
    }
    const size_t frames = argc > 1 ? strtoul(argv[1], nullptr, 10) : 1000;
    if (argc == 3) {
        const std::string what = argv[2];
        if (what != "fft" && what != "floor") {
            return usage();
        }
        Instance inst({}, true);
        if (inst.h() == nullptr) {
            return 1;
        }
        (what == "fft" ? fft_pairs : floor_frames)(inst.buf(), frames);
        printf("ran %zu frames of %s\n", frames, what.c_str());
        return 0;
    }
    if (argc != 1 && argc != 2 && argc != 6 && argc != 7) {
        return usage();
    }
    const testkit::Layout layout = {argc > 2 ? atoi(argv[2]) : 16000, argc > 3 ? atoi(argv[3]) : 1,
                                    argc > 4 ? atoi(argv[4]) : 1};
    const bool comfort_noise = argc > 5 ? atoi(argv[5]) != 0 : true;
    testkit::Recording sig;
    if (argc == 7) {
        const std::string dir = argv[6];
        sig.layout = layout;
        if (!read_pcm(dir + "/near.pcm", &sig.near) || !read_pcm(dir + "/far.pcm", &sig.far)) {
            fprintf(stderr, "qenaec_run_frames: cannot read the scene from %s\n", dir.c_str());
            return 1;
        }
    } else {
        sig = scene(layout);
    }
    Instance inst(layout, comfort_noise);
    if (inst.h() == nullptr || sig.frames() == 0) {
        return 1;
    }
    run_frames(inst.h(), &sig.near, &sig.far, frames, sig.frames(), layout.near_channels,
               layout.far_channels);
    printf("ran %zu frames\n", frames);
    return 0;
}
