// Peak stack depth of QenAec_Run, by painting a thread's stack; an idle thread's depth (what
// the thread library keeps on a given stack) is subtracted.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include "testkit/signals.h"

namespace {

constexpr size_t kStackBytes = 256 * 1024, kBudget = 8 * 1024;
constexpr unsigned char kPaint = 0xA5;

// Bytes of a painted stack that `fn` has written over.
size_t painted_depth(std::function<void()> fn) {
    std::vector<unsigned char> stack(kStackBytes + 4096, kPaint);
    unsigned char *base = stack.data() + (4096 - reinterpret_cast<uintptr_t>(stack.data()) % 4096);
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstack(&attr, base, kStackBytes);
    pthread_t thread;
    const auto call = [](void *f) -> void * {
        (*static_cast<std::function<void()> *>(f))();
        return nullptr;
    };
    size_t untouched = kStackBytes;
    if (pthread_create(&thread, &attr, call, &fn) == 0) {
        pthread_join(thread, nullptr);
        untouched = 0;
        while (untouched < kStackBytes && base[untouched] == kPaint) {
            ++untouched;
        }
    }
    pthread_attr_destroy(&attr);
    return kStackBytes - untouched;
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
    const auto run = [&](AEC_HANDLE h) {
        std::vector<int16_t> near = in.near;
        testkit::run(h, in.layout, near, in.far, testkit::Mode::kFull);
    };
    run(warm.handle());
    const size_t idle = painted_depth([] {});
    const size_t depth = painted_depth([&] { run(aec.handle()); });
    ASSERT_LT(depth, kStackBytes) << "the frames used the whole painted stack";
    const size_t run_depth = depth - idle;
    printf("peak stack of QenAec_Run at %d Hz: %zu bytes\n", GetParam(), run_depth);
    EXPECT_LE(run_depth, kBudget);
    // A measurement that saw nothing would pass any budget.
    EXPECT_GT(run_depth, 256u);
}

INSTANTIATE_TEST_SUITE_P(Rates, StackDepth, testing::Values(8000, 16000, 32000, 48000));

}  // namespace
