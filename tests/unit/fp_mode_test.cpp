// Denormals during silence: after speech has faded into exact zeros and a minute of digital
// silence has passed, none of the decaying state of an instance may hold a denormal value,
// because every frame runs with denormals flushed to zero. Without the flush about two
// thousand values settle there, and each operation on them can take a slow path. x86 only:
// ARMv7 NEON flushes by itself, and its scalar unit keeps denormals at full speed.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "instance.h"
#include "qen_aec.h"

namespace {

struct Region {
    const char *name;
    const float *data;
    size_t count;
};

// A float array of the state (one- or two-dimensional) seen as consecutive floats.
template <typename Array>
Region region(const char *name, const Array &array) {
    return {name, reinterpret_cast<const float *>(&array), sizeof(array) / sizeof(float)};
}

size_t subnormals(const Region &r) {
    size_t n = 0;
    for (size_t i = 0; i < r.count; ++i) {
        n += std::fpclassify(r.data[i]) == FP_SUBNORMAL;
    }
    return n;
}

TEST(DenormalFlush, SilenceAfterSpeechLeavesNoDenormalState) {
#if !defined(__SSE__)
    GTEST_SKIP() << "denormals are flushed here only where the library sets the mode";
#endif
    std::vector<char> block(QenAec_GetBufferSize());
    AudioAecInit init = {128, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
    AEC_HANDLE h = QenAec_Init(block.data(), &init);
    ASSERT_NE(h, nullptr);
    AudioAecConfig cfg = {QEN_AEC_TRUE, 0, {4, 6, 36, 49, 50, 51}, {5, 4, 4, 5, 10, 10, 10}};
    ASSERT_EQ(QenAec_Config(h, &cfg), ALGO_AEC_RET_SUCCESS);

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
        ASSERT_EQ(QenAec_Run(h, near, far), ALGO_AEC_RET_SUCCESS);
    }

    auto *buf = static_cast<aec_workingbuf_t *>(h);
    const aec_t &a = buf->aec_inst;
    const MdfEchoState &m = buf->mdf_workingbuff;
    for (const Region &r : {region("eBuf", a.eBuf),
                            region("yBuf", a.yBuf),
                            region("dPow", a.dPow),
                            region("dMinPow", a.dMinPow),
                            region("dInitMinPow", a.dInitMinPow),
                            region("sd", a.sd),
                            region("se", a.se),
                            region("sy", a.sy),
                            region("sde", a.sde),
                            region("syd", a.syd),
                            region("outBuf", a.outBuf),
                            region("x", m.x),
                            region("input", m.input),
                            region("X", m.X),
                            region("Eh", m.Eh),
                            region("Yh", m.Yh),
                            region("Rf", m.Rf),
                            region("Yf", m.Yf),
                            region("power_1", m.power_1),
                            region("notch_mem", m.notch_mem),
                            region("efw", buf->efw),
                            region("dfw", buf->dfw),
                            region("hNl", buf->hNl)}) {
        EXPECT_EQ(subnormals(r), 0u) << r.name;
    }
    QenAec_Free(h);
}

}  // namespace
