// Instance lifecycle, configuration errors spelt out, and the per-frame loop.
#include "aec_runner.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "errors.h"
#include "frame.h"

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

const char *mode_name(Mode mode) {
    switch (mode) {
        case Mode::kFull:
            return "full";
        case Mode::kLinear:
            return "linear";
        case Mode::kSplit:
            return "split";
    }
    return "?";
}

size_t output_latency_frames(Mode mode) {
    return mode == Mode::kLinear ? 0 : 1;
}

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

AecRunner::AecRunner(const Layout &layout, const Tuning &tuning)
    : layout_(layout), block_(QenAec_GetBufferSize()) {
    AudioAecInit init = {kFrame, static_cast<uint32_t>(layout.near_channels),
                         static_cast<uint32_t>(layout.far_channels),
                         static_cast<QEN_AEC_SAMPLE_RATE>(layout.rate)};
    handle_ = QenAec_Init(reinterpret_cast<char *>(block_.data()), &init);
    if (handle_ == nullptr) {
        throw failure("the library refused to initialise at " + std::to_string(layout.rate) +
                      " Hz with " + std::to_string(layout.near_channels) + " near and " +
                      std::to_string(layout.far_channels) + " far channels");
    }
    configure(tuning);
}

AecRunner::~AecRunner() {
    QenAec_Free(handle_);
}

void AecRunner::configure(const Tuning &tuning) {
    if (tuning.cng || tuning.intensity || tuning.edges) {
        AudioAecInit init;
        AudioAecConfig cfg;
        QenAec_GetConfig(handle_, &init, &cfg);  // starts from the installed defaults
        cfg.comfort_noise_enable = tuning.cng ? QEN_AEC_TRUE : QEN_AEC_FALSE;
        if (tuning.intensity) {
            std::copy(tuning.intensity->begin(), tuning.intensity->end(),
                      cfg.suppression_mode_intensity);
        }
        if (tuning.edges) {
            std::copy(tuning.edges->begin(), tuning.edges->end(), cfg.suppression_mode_freq);
        }
        const ALGO_AEC_RET r = QenAec_Config(handle_, &cfg);
        if (r != ALGO_AEC_RET_SUCCESS) {
            throw failure("the library rejected the configuration with " + describe_code(r) + ": " +
                          config_rule(r, cfg));
        }
    }
    if (tuning.ratio) {
        const ALGO_AEC_RET r = QenAec_SetRecursiveRatio(handle_, *tuning.ratio);
        if (r != ALGO_AEC_RET_SUCCESS) {
            throw failure("the library rejected --ratio " + std::to_string(*tuning.ratio) +
                          " with " + describe_code(r) +
                          ": the ratio must be 1..10, in tenths of the smoothing factor");
        }
    }
}

void AecRunner::process(std::vector<int16_t> &near, std::vector<int16_t> &far, Mode mode,
                        const FrameProgress &progress) {
    const size_t near_step = static_cast<size_t>(kFrame) * layout_.near_channels;
    const size_t far_step = static_cast<size_t>(kFrame) * layout_.far_channels;
    const size_t frames = near.size() / near_step;
    for (size_t f = 0; f < frames; ++f) {
        short *n = near.data() + f * near_step;
        short *x = far.data() + f * far_step;
        ALGO_AEC_RET r = ALGO_AEC_RET_SUCCESS;
        if (mode == Mode::kFull) {
            r = QenAec_Run(handle_, n, x);
        } else {
            r = QenAec_ADF_Run(handle_, n, x);
            if (r == ALGO_AEC_RET_SUCCESS && mode == Mode::kSplit) {
                r = QenAec_NLP_Run(handle_, n);
            }
        }
        if (r != ALGO_AEC_RET_SUCCESS) {
            throw run_failure(r, f);
        }
        if (progress) {
            progress(f + 1);
        }
    }
}

}  // namespace qtool
