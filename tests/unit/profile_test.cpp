// The process-wide profile registry under concurrent use: Init and Release from several threads
// at once (the tsan preset checks that this is race-free), and the once-per-process flag
// behaving as documented afterwards.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "diag/profile.h"

namespace {

TEST(ProfileRegistry, ConcurrentInitAndReleaseStayConsistent) {
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&failures, t] {
            for (int i = 0; i < 2000; ++i) {
                const ALGO_PROFILE_ERROR r =
                    (i + t) % 3 == 0 ? ModuleProfile_Release() : ModuleProfile_Init();
                if (r != ALGO_PROFILE_ERROR_NONE) {
                    failures.fetch_add(1);
                }
            }
        });
    }
    for (std::thread &th : threads) {
        th.join();
    }
    EXPECT_EQ(failures.load(), 0);
    // Once the threads are done the flag follows the last call, whoever made it.
    ModuleProfile_Init();
    EXPECT_EQ(g_is_initialed, 1);
    ModuleProfile_Release();
    EXPECT_EQ(g_is_initialed, 0);
}

}  // namespace
