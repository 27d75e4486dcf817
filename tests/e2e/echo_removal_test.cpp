// Echo is actually removed: a synthetic echo scenario at every rate and channel layout,
// through the public API, with floors on the echo return loss enhancement of the last 3 s.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <tuple>

#include "scenario.h"

namespace {

using Layout = std::tuple<int, int, int>;  // rate, near channels, far channels

class EchoRemoval : public testing::TestWithParam<Layout> {
protected:
    e2e::Scenario scenario() const {
        e2e::Scenario s;
        std::tie(s.rate, s.near_channels, s.far_channels) = GetParam();
        return s;
    }

    // Both tests of a layout share its signals: under an emulator, making them costs about as
    // much as processing them.
    const e2e::Signals &signals() const {
        static std::map<Layout, e2e::Signals> made;
        auto it = made.find(GetParam());
        if (it == made.end()) {
            it = made.emplace(GetParam(), e2e::make_signals(scenario())).first;
        }
        return it->second;
    }
};

TEST_P(EchoRemoval, FullPipelineReachesItsFloor) {
    const e2e::Scenario s = scenario();
    const e2e::Signals &in = signals();
    ALGO_AEC_RET err;
    const auto out = e2e::process(s, in, e2e::Mode::kFull, &err);
    ASSERT_EQ(err, ALGO_AEC_RET_SUCCESS);
    const double erle = e2e::erle_db(s, in.near, out, 3.0);
    // At 48 kHz a 30 ms path is longer than the filter's 1024 taps.
    const double floor = s.rate == 48000 ? 25.0 : 40.0;
    printf("ERLE Run %5d Hz near %d far %d: %.1f dB\n", s.rate, s.near_channels, s.far_channels,
           erle);
    EXPECT_GE(erle, floor) << "Run at " << s.rate << " Hz, layout (" << s.near_channels << ","
                           << s.far_channels << "): " << erle << " dB";
}

TEST_P(EchoRemoval, LinearStageAloneReachesItsFloor) {
    const e2e::Scenario s = scenario();
    if (s.rate == 48000) {
        GTEST_SKIP() << "no floor for the linear stage where the path exceeds the filter";
    }
    const e2e::Signals &in = signals();
    ALGO_AEC_RET err;
    const auto out = e2e::process(s, in, e2e::Mode::kLinear, &err);
    ASSERT_EQ(err, ALGO_AEC_RET_SUCCESS);
    const double erle = e2e::erle_db(s, in.near, out, 3.0);
    printf("ERLE ADF_Run %5d Hz near %d far %d: %.1f dB\n", s.rate, s.near_channels, s.far_channels,
           erle);
    EXPECT_GE(erle, 20.0) << "ADF_Run at " << s.rate << " Hz, layout (" << s.near_channels << ","
                          << s.far_channels << "): " << erle << " dB";
}

INSTANTIATE_TEST_SUITE_P(RatesAndLayouts, EchoRemoval,
                         testing::Combine(testing::Values(8000, 16000, 32000, 48000),
                                          testing::Values(1, 2), testing::Values(1, 2)),
                         [](const testing::TestParamInfo<Layout> &info) {
                             return std::to_string(std::get<0>(info.param)) + "Hz_near" +
                                    std::to_string(std::get<1>(info.param)) + "_far" +
                                    std::to_string(std::get<2>(info.param));
                         });

}  // namespace
