// Peak stack depth of QenAec_Run, by painting a thread's stack; an idle thread's depth (what
// the thread library keeps on a given stack) is subtracted.
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

// Stereo with comfort noise (the widest path); run once before so every symbol is bound.
TEST_P(StackDepth, OneRunStaysWithinEightKilobytes) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the address sanitizer moves and pads stack frames";
#endif
    const testkit::Recording in = testkit::noise_echo(
        {.rate = GetParam(), .near_channels = 2, .far_channels = 2, .seconds = 1.0});
    const testkit::Instance warm(in.layout, {.comfort_noise = true}),
        aec(in.layout, {.comfort_noise = true});
    Frames w{warm.handle(), in}, f{aec.handle(), in};
    run_frames(&w);
    const size_t idle = painted_depth([](void *) -> void * { return nullptr; }, nullptr);
    const size_t depth = painted_depth(run_frames, &f);
    ASSERT_LT(depth, kStackBytes) << "the frames used the whole painted stack";
    const size_t run_depth = depth - idle;
    printf("peak stack of QenAec_Run at %d Hz: %zu bytes\n", GetParam(), run_depth);
    EXPECT_LE(run_depth, kBudget);
    // A measurement that saw nothing would pass any budget.
    EXPECT_GT(run_depth, 256u);
}

INSTANTIATE_TEST_SUITE_P(Rates, StackDepth, testing::Values(8000, 16000, 32000, 48000));

}  // namespace
