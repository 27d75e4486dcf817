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

#include "scenario.h"
#include "qen_aec.h"

namespace {

constexpr int kThreads = 8;

struct Job {
    e2e::Scenario scenario;
    bool comfort_noise = false;
    e2e::Signals in;
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
        j.in = e2e::make_signals(j.scenario);
    }
    return jobs;
}

// Processes one job. `lifecycle` guards Init, Config and Free (the caller's duty); frames run
// without any lock.
void process(Job &j, std::mutex &lifecycle) {
    const e2e::Scenario &s = j.scenario;
    std::optional<e2e::Aec> aec;
    {
        std::lock_guard<std::mutex> lock(lifecycle);
        aec.emplace(s.rate, s.near_channels, s.far_channels, j.comfort_noise ? 1 : 0);
    }
    j.out = e2e::process_on(aec->get(), s, j.in, e2e::Mode::kFull, &j.first_error);
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
        const double erle = e2e::erle_db(j.scenario, j.in.near, j.out, 0.5);
        EXPECT_GT(erle, 15.0) << "instance " << k << " at " << j.scenario.rate << " Hz"
                              << (j.comfort_noise ? " with" : " without") << " comfort noise";
    }
}

}  // namespace
