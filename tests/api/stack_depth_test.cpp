// Peak stack depth of QenAec_Run, measured by painting: frames run on a thread whose stack
// is a block filled with a pattern beforehand, and the deepest byte that no longer holds the
// pattern gives the depth. An idle thread on the same kind of stack is measured too and
// subtracted, which removes what the thread library keeps at the top of a stack it is given
// (thread descriptor, thread-local storage) and the thread's own start-up.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "testkit/signals.h"

namespace {

constexpr size_t kStackBytes = 256 * 1024;
constexpr unsigned char kPaint = 0xA5;
constexpr size_t kBudget = 8 * 1024;

struct Frames {
    AEC_HANDLE handle;
    testkit::Recording rec;
};

void *run_frames(void *arg) {
    auto *f = static_cast<Frames *>(arg);
    std::vector<int16_t> near = f->rec.near;
    testkit::run(f->handle, f->rec.layout, near, f->rec.far, testkit::Mode::kFull);
    return nullptr;
}

// Bytes of a painted stack that `fn` has written over.
size_t painted_depth(void *(*fn)(void *), void *arg) {
    void *stack = nullptr;
    if (posix_memalign(&stack, 4096, kStackBytes) != 0) {
        return SIZE_MAX;
    }
    memset(stack, kPaint, kStackBytes);
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstack(&attr, stack, kStackBytes);
    pthread_t thread;
    size_t depth = SIZE_MAX;
    if (pthread_create(&thread, &attr, fn, arg) == 0) {
        pthread_join(thread, nullptr);
        const auto *bytes = static_cast<const unsigned char *>(stack);
        size_t untouched = 0;
        while (untouched < kStackBytes && bytes[untouched] == kPaint) {
            ++untouched;
        }
        depth = kStackBytes - untouched;
    }
    pthread_attr_destroy(&attr);
    free(stack);
    return depth;
}

class StackDepth : public testing::TestWithParam<int> {};

// One second of echo at each rate, stereo (the widest path), with comfort noise on; the
// same frames run once on the main thread first so that every library call they make is
// already bound and the measured thread sees only the frame's own stack.
TEST_P(StackDepth, OneRunStaysWithinEightKilobytes) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the address sanitizer moves and pads stack frames";
#endif
    testkit::Scenario s;
    s.rate = GetParam();
    s.near_channels = s.far_channels = 2;
    s.seconds = 1.0;
    const testkit::Recording in = testkit::noise_echo(s);

    size_t depth[2] = {};
    for (int pass = 0; pass < 2; ++pass) {
        const testkit::Instance aec(in.layout, testkit::Settings{.comfort_noise = true});
        Frames f{aec.handle(), in};
        if (pass == 0) {
            run_frames(&f);
        } else {
            depth[0] = painted_depth([](void *) -> void * { return nullptr; }, nullptr);
            depth[1] = painted_depth(run_frames, &f);
        }
    }
    ASSERT_LT(depth[1], kStackBytes) << "the frames used the whole painted stack";
    const size_t run_depth = depth[1] - depth[0];
    printf("peak stack of QenAec_Run at %d Hz: %zu bytes\n", s.rate, run_depth);
    EXPECT_LE(run_depth, kBudget);
    // A measurement that saw nothing would pass any budget.
    EXPECT_GT(run_depth, 256u);
}

INSTANTIATE_TEST_SUITE_P(Rates, StackDepth, testing::Values(8000, 16000, 32000, 48000));

}  // namespace
