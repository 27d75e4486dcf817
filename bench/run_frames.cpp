// Runs a fixed number of QenAec_Run frames at 16 kHz mono (comfort noise on) over the
// speech-like echo scene, for instruction counting under callgrind: the frames run inside
// run_frames(), which the counting script selects, so set-up and signal generation are
// left out of the figure. The loop is its own, not testkit's: it cycles over the scene, so
// that any number of frames can be counted on the same 4 s of input.
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

#include "quiet.h"
#include "testkit/frame_loop.h"
#include "testkit/signals.h"

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
    testkit::Scenario scene = testkit::speech_scenario();
    scene.seconds = 4.0;
    testkit::Recording sig = testkit::speech_echo(scene);

    std::optional<testkit::Instance> aec;
    bench::without_stdout(
        [&] { aec.emplace(sig.layout, testkit::Settings{.comfort_noise = true}); });
    if (aec->handle() == nullptr) {
        return 1;
    }
    run_frames(aec->handle(), &sig.near, &sig.far, frames, sig.frames());
    aec.reset();
    printf("ran %zu frames\n", frames);
    return 0;
}
