// The library driven through its public C API as every front end drives it: one instance in
// a block of its own, the settings applied through Config and SetRecursiveRatio, and one loop
// over the frames of a recording in each of the three run modes. In-memory interleaved 16-bit
// buffers in and out; nothing is read, written or printed here. An instance serves one thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "qen_aec.h"

namespace testkit {

// Samples per channel of one library frame.
constexpr size_t kFrame = 128;

// full: QenAec_Run; linear: QenAec_ADF_Run; split: QenAec_ADF_Run then QenAec_NLP_Run.
enum class Mode { kFull, kLinear, kSplit };

const char *mode_name(Mode mode);

// Samples by which the output lags the input: the nonlinear stage's overlap-add completes a
// block one frame later, while the linear stage's error is the current block.
constexpr size_t output_delay(Mode mode) {
    return mode == Mode::kLinear ? 0 : kFrame;
}

struct Layout {
    int rate = 16000;
    int near_channels = 1;
    int far_channels = 1;
};

// Config runs when comfort noise, intensities or edges are given, starting from the values
// Init installed (comfort noise off); SetRecursiveRatio runs when a ratio is given.
struct Settings {
    std::optional<bool> comfort_noise = std::nullopt;
    std::optional<std::array<uint32_t, 7>> intensity = std::nullopt;
    std::optional<std::array<uint32_t, 6>> edges = std::nullopt;
    std::optional<uint32_t> ratio = std::nullopt;
};

// Which set-up call the library refused, with its code and, for Config, the record it got.
struct SetupFailure {
    enum Call { kNone, kInit, kConfig, kRatio } call = kNone;
    ALGO_AEC_RET code = ALGO_AEC_RET_SUCCESS;  // Init gives no code, only a null handle
    AudioAecConfig config{};
};

// One instance in a block of its own, freed with the object. When the library refuses a
// set-up call, handle() is null and failure() says which.
class Instance {
public:
    explicit Instance(const Layout &layout = {}, const Settings &settings = {});
    ~Instance();
    Instance(const Instance &) = delete;
    Instance &operator=(const Instance &) = delete;

    AEC_HANDLE handle() const { return handle_; }
    const Layout &layout() const { return layout_; }
    const SetupFailure &failure() const { return failure_; }
    // The instance's memory, for tests that look inside it.
    const unsigned char *block() const { return block_.data(); }
    void release();

private:
    Layout layout_;
    std::vector<unsigned char> block_;
    AEC_HANDLE handle_ = nullptr;
    SetupFailure failure_;
};

// One frame in `mode`, the output written over `near`; the first failing call's code. In
// split mode `linear`, when given, receives the linear stage's output on the way.
ALGO_AEC_RET run_frame(AEC_HANDLE h, int16_t *near, const int16_t *far, Mode mode,
                       std::span<int16_t> linear = {});

struct RunResult {
    ALGO_AEC_RET code = ALGO_AEC_RET_SUCCESS;  // of the frame that failed
    size_t frames = 0;                         // frames run successfully
};

// Called after each frame with the number of frames done.
using FrameDone = std::function<void(size_t done)>;

// Runs the whole frames of `near` and `far` (interleaved, `layout`'s channels) through `h`,
// writing the output over `near`, and stops at the first failing frame. In split mode
// `linear`, when not empty, receives the linear stage's output in the layout of `near`.
RunResult run(AEC_HANDLE h, const Layout &layout, std::span<int16_t> near,
              std::span<const int16_t> far, Mode mode, const FrameDone &done = {},
              std::span<int16_t> linear = {});

// Both ends of a recording at the library's rate, interleaved, whole frames.
struct Recording {
    Layout layout;
    std::vector<int16_t> near;
    std::vector<int16_t> far;
    size_t frames() const { return near.size() / (kFrame * layout.near_channels); }
};

// The recording through a fresh instance with `settings`; the output. `code` receives the
// first failure (ALGO_AEC_RET_INVALID_HANDLE when set-up failed).
std::vector<int16_t> process(const Recording &rec, Mode mode, const Settings &settings = {},
                             ALGO_AEC_RET *code = nullptr);

}  // namespace testkit
