// Runs a fixed number of QenAec_Run frames at 16 kHz mono (comfort noise on) over the
// speech-like echo scene, for instruction counting under callgrind: the frames run inside
// run_frames(), which the counting script selects, so set-up and signal generation are
// left out of the figure.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "qen_aec.h"
#include "signals.h"

namespace {

__attribute__((noinline)) void run_frames(AEC_HANDLE h, std::vector<int16_t> *near,
                                          std::vector<int16_t> *far, size_t frames,
                                          size_t scene_frames) {
    for (size_t f = 0; f < frames; ++f) {
        const size_t at = (f % scene_frames) * 128;
        QenAec_Run(h, near->data() + at, far->data() + at);
    }
}

}  // namespace

int main(int argc, char **argv) {
    bench::quiet_library_messages();
    const size_t frames = argc > 1 ? strtoul(argv[1], nullptr, 10) : 1000;
    e2e::Scenario scene = bench::speech_scene();
    scene.seconds = 4.0;
    e2e::Signals sig = bench::make_echo_scene(scene);

    std::vector<unsigned char> block(QenAec_GetBufferSize());
    AudioAecInit init = {128, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
    AudioAecConfig cfg = {QEN_AEC_TRUE, 0, {4, 6, 36, 49, 50, 51}, {5, 4, 4, 5, 10, 10, 10}};
    AEC_HANDLE h = nullptr;
    bench::without_stdout([&] {
        h = QenAec_Init(reinterpret_cast<char *>(block.data()), &init);
        QenAec_Config(h, &cfg);
    });
    if (h == nullptr) {
        return 1;
    }
    run_frames(h, &sig.near, &sig.far, frames, sig.frames);
    QenAec_Free(h);
    printf("ran %zu frames\n", frames);
    return 0;
}
