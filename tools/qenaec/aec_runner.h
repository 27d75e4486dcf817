// The library as the tool drives it: the shared frame loop of testkit/ on one instance, with
// the library's refusals and failures spelt out for the user.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "qen_aec.h"
#include "testkit/frame_loop.h"

namespace qtool {

using testkit::kFrame;
using testkit::Layout;
using testkit::Mode;
using testkit::mode_name;
using testkit::Settings;

// "ALGO_AEC_RET_INVALID_SUP_MODE (0x10000408)"
std::string describe_code(ALGO_AEC_RET code);

class AecRunner {
public:
    // Initialises and configures; throws a failure naming the code and the rule when the
    // library refuses a value.
    AecRunner(const Layout &layout, const Settings &settings);

    // Processes `near` in place, whole frames only (sizes are multiples of 128 x channels);
    // throws a failure naming the frame and the code when a run function fails.
    void process(std::vector<int16_t> &near, const std::vector<int16_t> &far, Mode mode,
                 const testkit::FrameDone &progress);

private:
    testkit::Instance instance_;
};

}  // namespace qtool
