// Denormals during silence: after speech has faded into exact zeros and a minute of digital
// silence has passed, none of the decaying state of an instance may hold a denormal value,
// because every frame runs with denormals flushed to zero. Without the flush about two
// thousand values settle there, and each operation on them can take a slow path. x86 only:
// ARMv7 NEON flushes by itself, and its scalar unit keeps denormals at full speed.
#include <gtest/gtest.h>

#include <cmath>

#include "float_state.h"
#include "testkit/frame_loop.h"

namespace {

TEST(DenormalFlush, SilenceAfterSpeechLeavesNoDenormalState) {
#if !defined(__SSE__)
    GTEST_SKIP() << "denormals are flushed here only where the library sets the mode";
#endif
    const testkit::Instance aec({16000, 1, 1}, testkit::Settings{.comfort_noise = true});
    ASSERT_NE(aec.handle(), nullptr);
    // Two seconds of a fading chirp with its echo, then a minute of zeros.
    short near[128], far[128];
    const int talk_frames = 250;
    for (int f = 0; f < talk_frames + 7500; ++f) {
        for (int i = 0; i < 128; ++i) {
            const double t = (f * 128 + i) / 16000.0;
            const double level = f < talk_frames ? 8000.0 * (1.0 - f / double(talk_frames)) : 0;
            far[i] = static_cast<short>(level * std::sin(2 * M_PI * (200 + 800 * t) * t));
            near[i] = static_cast<short>(far[i] / 4);
        }
        ASSERT_EQ(QenAec_Run(aec.handle(), near, far), ALGO_AEC_RET_SUCCESS);
    }
    const auto &b = *reinterpret_cast<const aec_workingbuf_t *>(aec.block());
    EXPECT_EQ(qtest::first_float(b, [](float v) { return std::fpclassify(v) == FP_SUBNORMAL; }),
              "");
}

}  // namespace
