// The library's codes by name, and its refusals and failures as the user reads them.
#include "aec_runner.h"

#include <cstdio>
#include <cstdlib>

#include "errors.h"

namespace qtool {

namespace {

struct CodeName {
    ALGO_AEC_RET code;
    const char *name;
};

constexpr CodeName kCodes[] = {
    {ALGO_AEC_RET_SUCCESS, "ALGO_AEC_RET_SUCCESS"},
    {ALGO_AEC_RET_INIT_ERROR, "ALGO_AEC_RET_INIT_ERROR"},
    {ALGO_AEC_RET_INVALID_HANDLE, "ALGO_AEC_RET_INVALID_HANDLE"},
    {ALGO_AEC_RET_INVALID_SAMPLE_RATE, "ALGO_AEC_RET_INVALID_SAMPLE_RATE"},
    {ALGO_AEC_RET_INVALID_POINT_NUMBER, "ALGO_AEC_RET_INVALID_POINT_NUMBER"},
    {ALGO_AEC_RET_INVALID_CHANNEL, "ALGO_AEC_RET_INVALID_CHANNEL"},
    {ALGO_AEC_RET_INVALID_ENABLE, "ALGO_AEC_RET_INVALID_ENABLE"},
    {ALGO_AEC_RET_INVALID_SUP_BAND, "ALGO_AEC_RET_INVALID_SUP_BAND"},
    {ALGO_AEC_RET_INVALID_SUP_MODE, "ALGO_AEC_RET_INVALID_SUP_MODE"},
    {ALGO_AEC_RET_INVALID_COMFORT_NOISE, "ALGO_AEC_RET_INVALID_COMFORT_NOISE"},
    {ALGO_AEC_RET_INVALID_DELAY_SAMPLE, "ALGO_AEC_RET_INVALID_DELAY_SAMPLE"},
    {ALGO_AEC_RET_INVALID_RECURSIVE_RATIO, "ALGO_AEC_RET_INVALID_RECURSIVE_RATIO"},
    {ALGO_AEC_RET_API_CONFLICT, "ALGO_AEC_RET_API_CONFLICT"},
    {ALGO_AEC_RET_INVALID_CALLING, "ALGO_AEC_RET_INVALID_CALLING"},
};

std::string join(const uint32_t *v, size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += (i > 0 ? "," : "") + std::to_string(v[i]);
    }
    return s;
}

// The rule behind each code Config can give, with the values the user passed.
std::string config_rule(ALGO_AEC_RET code, const AudioAecConfig &cfg) {
    switch (code) {
        case ALGO_AEC_RET_INVALID_SUP_MODE:
            return "every --intensity value must be 0..25 (got " +
                   join(cfg.suppression_mode_intensity, 7) + ")";
        case ALGO_AEC_RET_INVALID_SUP_BAND:
            return "every --edges value must be an FFT bin in 1..126, in non-decreasing order "
                   "(got " +
                   join(cfg.suppression_mode_freq, 6) + ")";
        case ALGO_AEC_RET_INVALID_COMFORT_NOISE:
            return "comfort noise is on or off";
        default:
            return "the instance refused the configuration";
    }
}

std::string dump_setting(const char *name, const char *fallback) {
    const char *v = std::getenv(name);
    return std::string(name) + "=" + (v != nullptr ? v : fallback);
}

// A run function's failure, explained as far as the code allows.
ToolError run_failure(ALGO_AEC_RET code, size_t frame) {
    std::string why =
        "the library failed at frame " + std::to_string(frame) + " with " + describe_code(code);
    if (code == ALGO_AEC_RET_INIT_ERROR) {
        why += ": it could not set up its dump files (" + dump_setting("AUDIO_AEC_DUMP", "unset") +
               ", " + dump_setting("AUDIO_DUMP_PATH", ".") +
               "; the switch takes 0 or 1 and the directory must exist)";
    }
    return failure(why);
}

}  // namespace

std::string describe_code(ALGO_AEC_RET code) {
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08X", static_cast<unsigned>(code));
    for (const CodeName &c : kCodes) {
        if (c.code == code) {
            return std::string(c.name) + " (" + hex + ")";
        }
    }
    return std::string("code ") + std::to_string(static_cast<int>(code)) + " (" + hex + ")";
}

AecRunner::AecRunner(const Layout &layout, const Settings &settings) : instance_(layout, settings) {
    const testkit::SetupFailure &f = instance_.failure();
    switch (f.call) {
        case testkit::SetupFailure::kNone:
            return;
        case testkit::SetupFailure::kInit:
            throw failure("the library refused to initialise at " + std::to_string(layout.rate) +
                          " Hz with " + std::to_string(layout.near_channels) + " near and " +
                          std::to_string(layout.far_channels) + " far channels");
        case testkit::SetupFailure::kConfig:
            throw failure("the library rejected the configuration with " + describe_code(f.code) +
                          ": " + config_rule(f.code, f.config));
        case testkit::SetupFailure::kRatio:
            throw failure("the library rejected --ratio " + std::to_string(*settings.ratio) +
                          " with " + describe_code(f.code) +
                          ": the ratio must be 1..10, in tenths of the smoothing factor");
    }
}

void AecRunner::process(std::vector<int16_t> &near, const std::vector<int16_t> &far, Mode mode,
                        const testkit::FrameDone &progress) {
    const testkit::RunResult r =
        testkit::run(instance_.handle(), instance_.layout(), near, far, mode, progress);
    if (r.code != ALGO_AEC_RET_SUCCESS) {
        throw run_failure(r.code, r.frames);
    }
}

}  // namespace qtool
