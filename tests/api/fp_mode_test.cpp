// The run functions may change the floating-point mode while they work (to flush denormals)
// but must hand the caller's own mode back: rounding direction and every control bit of
// MXCSR (x86) or FPSCR (ARMv7). Exception flags are not compared: ordinary arithmetic raises
// them.
#include <gtest/gtest.h>

#include <cfenv>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

#include "testkit/frame_loop.h"

namespace {

#if defined(__SSE__)
constexpr unsigned kMxcsrFlags = 0x3Fu;
unsigned control_bits() {
    return _mm_getcsr() & ~kMxcsrFlags;
}
#elif defined(__arm__)
// FPSCR without the cumulative exception flags (bits 0-7) and the comparison flags (27-31).
unsigned control_bits() {
    unsigned fpscr;
    __asm__ volatile("vmrs %0, fpscr" : "=r"(fpscr));
    return fpscr & 0x07FFFF00u;
}
#else
unsigned control_bits() {
    return 0;
}
#endif

class FpMode : public testing::TestWithParam<int> {};

// Each caller mode in turn: the default, upward rounding, and upward rounding with denormals
// already flushed (which the library must not clear on its way out either).
TEST_P(FpMode, RunFunctionsRestoreTheCallersMode) {
    const testkit::Instance aec;
    const AEC_HANDLE h = aec.handle();
    ASSERT_NE(h, nullptr);
    short near[128], far[128];
    for (int i = 0; i < 128; ++i) {
        far[i] = static_cast<short>((i * 97) % 2000 - 1000);
        near[i] = static_cast<short>(far[i] / 3);
    }

    const int saved_round = fegetround();
#if defined(__SSE__)
    const unsigned saved_csr = _mm_getcsr();
#endif
    if (GetParam() >= 1) {
        fesetround(FE_UPWARD);
    }
#if defined(__SSE__)
    if (GetParam() == 2) {
        _mm_setcsr(_mm_getcsr() | 0x8040u);
    }
#elif defined(__arm__)
    unsigned saved_fpscr;
    __asm__ volatile("vmrs %0, fpscr" : "=r"(saved_fpscr));
    if (GetParam() == 2) {
        __asm__ volatile("vmsr fpscr, %0" : : "r"(saved_fpscr | (1u << 24)));
    }
#endif
    const int round = fegetround();
    const unsigned bits = control_bits();

    for (testkit::Mode mode :
         {testkit::Mode::kFull, testkit::Mode::kLinear, testkit::Mode::kSplit}) {
        EXPECT_EQ(testkit::run_frame(h, near, far, mode), ALGO_AEC_RET_SUCCESS);
        EXPECT_EQ(fegetround(), round) << "mode " << int(mode);
        EXPECT_EQ(control_bits(), bits) << "mode " << int(mode);
    }

    fesetround(saved_round);
#if defined(__SSE__)
    _mm_setcsr(saved_csr);
#elif defined(__arm__)
    __asm__ volatile("vmsr fpscr, %0" : : "r"(saved_fpscr));
#endif
}

INSTANTIATE_TEST_SUITE_P(CallerModes, FpMode, testing::Values(0, 1, 2));

}  // namespace
