// Eight instances on eight threads, each processing its own echo scenario, through the public
// API. Set-up and release are serialised by the caller, as the header asks, but overlap the
// other threads' frames. With comfort noise off each output equals the instance's own
// single-threaded output bit for bit; instances with comfort noise on share the process-wide
// noise tables with the others and must still remove their echo. Run under the tsan preset,
// this is the check that the process-wide state is race-free.
#include <gtest/gtest.h>

#include <latch>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "testkit/erle.h"
#include "testkit/signals.h"

namespace {

constexpr int kThreads = 8;

struct Job {
    testkit::Scenario scenario;
    bool comfort_noise = false;
    testkit::Recording in;
    std::vector<int16_t> out;
    ALGO_AEC_RET first_error = ALGO_AEC_RET_SUCCESS;
};

// Every rate and channel layout, without comfort noise and then with it.
std::vector<Job> make_jobs() {
    static const int rates[] = {8000, 16000, 32000, 48000};
    std::vector<Job> jobs(kThreads);
    for (int k = 0; k < kThreads; ++k) {
        Job &j = jobs[k];
        j.scenario.rate = rates[k % 4];
        j.scenario.near_channels = 1 + k % 2;
        j.scenario.far_channels = 1 + (k / 2) % 2;
        j.scenario.seconds = 1.0;
        j.scenario.seed = 100 + k;
        j.comfort_noise = k >= 4;
        j.in = testkit::noise_echo(j.scenario);
    }
    return jobs;
}

// Processes one job. `lifecycle` guards Init, Config and Free (the caller's duty); frames run
// without any lock.
void process(Job &j, std::mutex &lifecycle) {
    std::optional<testkit::Instance> aec;
    {
        std::lock_guard<std::mutex> lock(lifecycle);
        aec.emplace(j.in.layout, testkit::Settings{.comfort_noise = j.comfort_noise});
    }
    j.out = j.in.near;
    j.first_error =
        testkit::run(aec->handle(), j.in.layout, j.out, j.in.far, testkit::Mode::kFull).code;
    std::lock_guard<std::mutex> lock(lifecycle);
    aec.reset();
}

void run_alone(std::vector<Job> &jobs) {
    std::mutex lifecycle;
    for (Job &j : jobs) {
        process(j, lifecycle);
    }
}

void run_together(std::vector<Job> &jobs) {
    std::mutex lifecycle;
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (Job &j : jobs) {
        threads.emplace_back([&j, &lifecycle, &start] {
            start.arrive_and_wait();
            process(j, lifecycle);
        });
    }
    for (std::thread &t : threads) {
        t.join();
    }
}

TEST(Threads, EightInstancesKeepTheirOwnOutputAndRemoveEcho) {
    std::vector<Job> alone = make_jobs();
    std::vector<Job> together = make_jobs();
    run_alone(alone);
    run_together(together);
    for (int k = 0; k < kThreads; ++k) {
        const Job &j = together[k];
        ASSERT_EQ(alone[k].first_error, ALGO_AEC_RET_SUCCESS);
        ASSERT_EQ(j.first_error, ALGO_AEC_RET_SUCCESS) << "instance " << k;
        if (!j.comfort_noise) {
            // A mismatch would mean state leaking between instances or a torn shared value.
            EXPECT_TRUE(j.out == alone[k].out) << "instance " << k;
        }
        const testkit::Erle erle = testkit::erle_between(
            {j.in.near, j.out, j.in.far, j.in.layout, testkit::output_delay(testkit::Mode::kFull)},
            0.5, 1.0);
        EXPECT_GT(erle.db, 15.0) << "instance " << k << " at " << j.scenario.rate << " Hz"
                                 << (j.comfort_noise ? " with" : " without") << " comfort noise";
    }
}

}  // namespace
