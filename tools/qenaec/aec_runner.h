// The library as the tool drives it, through its public C API only: one instance in a
// block the tool owns, the tuning options applied through Config and SetRecursiveRatio, and
// a loop over whole frames in one of the three modes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "qen_aec.h"

namespace qtool {

enum class Mode { kFull, kLinear, kSplit };

const char *mode_name(Mode mode);

// Frames by which the output lags the input: the nonlinear stage's overlap-add completes a
// frame one frame later; the linear stage's error is current.
size_t output_latency_frames(Mode mode);

struct Tuning {
    bool cng = false;
    std::optional<std::array<uint32_t, 7>> intensity;
    std::optional<std::array<uint32_t, 6>> edges;
    std::optional<uint32_t> ratio;
};

struct Layout {
    int rate = 16000;
    int near_channels = 1;
    int far_channels = 1;
};

// "ALGO_AEC_RET_INVALID_SUP_MODE (0x10000408)"
std::string describe_code(ALGO_AEC_RET code);

// Called after every frame with the frames done so far.
using FrameProgress = std::function<void(size_t done)>;

class AecRunner {
public:
    // Initialises and configures; throws a failure naming the code and the rule when the
    // library refuses a value.
    AecRunner(const Layout &layout, const Tuning &tuning);
    ~AecRunner();
    AecRunner(const AecRunner &) = delete;
    AecRunner &operator=(const AecRunner &) = delete;

    // Processes `near` in place, whole frames only (sizes are multiples of 128 x channels).
    void process(std::vector<int16_t> &near, std::vector<int16_t> &far, Mode mode,
                 const FrameProgress &progress);

private:
    void configure(const Tuning &tuning);

    Layout layout_;
    std::vector<unsigned char> block_;
    AEC_HANDLE handle_ = nullptr;
};

}  // namespace qtool
