// Eight instances on eight threads (set-up serialised): bit-exact to running alone without
// comfort noise (its table positions are process-wide), echo removed with it; tsan: race-free.
#include <gtest/gtest.h>

#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "testkit/erle.h"
#include "testkit/signals.h"

namespace {

struct Job {
    testkit::Recording in;
    bool comfort_noise;
    std::vector<int16_t> out;
};

void process(Job &j, std::mutex &lifecycle) {
    std::optional<testkit::Instance> aec;
    {
        const std::lock_guard<std::mutex> lock(lifecycle);
        aec.emplace(j.in.layout, testkit::Settings{.comfort_noise = j.comfort_noise});
    }
    j.out = j.in.near;
    EXPECT_EQ(testkit::run(aec->handle(), j.in.layout, j.out, j.in.far, testkit::Mode::kFull).code,
              ALGO_AEC_RET_SUCCESS);
    const std::lock_guard<std::mutex> lock(lifecycle);
    aec.reset();
}

TEST(Threads, EightInstancesKeepTheirOwnOutputAndRemoveEcho) {
    std::vector<Job> jobs;
    for (int k = 0; k < 8; ++k) {
        const testkit::Scenario s = {.rate = k % 4 == 0 ? 8000 : 16000 * (k % 4),
                                     .near_channels = 1 + k % 2,
                                     .far_channels = 1 + (k / 2) % 2,
                                     .seconds = 1.0,
                                     .seed = 100u + k};
        jobs.push_back({testkit::noise_echo(s), k >= 4, {}});
    }
    std::vector<Job> alone = jobs;
    std::mutex lifecycle;
    for (Job &j : alone) {
        process(j, lifecycle);
    }
    std::vector<std::thread> threads;
    for (Job &j : jobs) {
        threads.emplace_back([&j, &lifecycle] { process(j, lifecycle); });
    }
    for (std::thread &t : threads) {
        t.join();
    }
    for (size_t k = 0; k < jobs.size(); ++k) {
        const Job &j = jobs[k];
        EXPECT_TRUE(j.comfort_noise || j.out == alone[k].out) << "instance " << k;
        const testkit::Erle e = testkit::erle_between(
            {j.in.near, j.out, j.in.far, j.in.layout, testkit::output_delay(testkit::Mode::kFull)},
            0.5, 1.0);
        EXPECT_GT(e.db, 15.0) << "instance " << k << " at " << j.in.layout.rate << " Hz";
    }
}

}  // namespace
