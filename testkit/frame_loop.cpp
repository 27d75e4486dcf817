// Instance set-up and the frame loop.
#include "testkit/frame_loop.h"

#include <algorithm>

namespace testkit {

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

Instance::Instance(const Layout &layout, const Settings &settings)
    : layout_(layout), block_(QenAec_GetBufferSize()) {
    AudioAecInit init = {kFrame, static_cast<uint32_t>(layout.near_channels),
                         static_cast<uint32_t>(layout.far_channels),
                         static_cast<QEN_AEC_SAMPLE_RATE>(layout.rate)};
    handle_ = QenAec_Init(reinterpret_cast<char *>(block_.data()), &init);
    if (handle_ == nullptr) {
        failure_.call = SetupFailure::kInit;
        return;
    }
    if (settings.comfort_noise || settings.intensity || settings.edges) {
        AudioAecConfig &cfg = failure_.config;
        QenAec_GetConfig(handle_, &init, &cfg);  // starts from the installed defaults
        if (settings.comfort_noise) {
            cfg.comfort_noise_enable = *settings.comfort_noise ? QEN_AEC_TRUE : QEN_AEC_FALSE;
        }
        if (settings.intensity) {
            std::copy(settings.intensity->begin(), settings.intensity->end(),
                      cfg.suppression_mode_intensity);
        }
        if (settings.edges) {
            std::copy(settings.edges->begin(), settings.edges->end(), cfg.suppression_mode_freq);
        }
        failure_.code = QenAec_Config(handle_, &cfg);
        failure_.call = SetupFailure::kConfig;
    }
    if (failure_.code == ALGO_AEC_RET_SUCCESS && settings.ratio) {
        failure_.code = QenAec_SetRecursiveRatio(handle_, *settings.ratio);
        failure_.call = SetupFailure::kRatio;
    }
    if (failure_.code == ALGO_AEC_RET_SUCCESS) {
        failure_.call = SetupFailure::kNone;
    } else {
        release();
    }
}

Instance::~Instance() {
    release();
}

void Instance::release() {
    if (handle_ != nullptr) {
        QenAec_Free(handle_);
        handle_ = nullptr;
    }
}

ALGO_AEC_RET run_frame(AEC_HANDLE h, int16_t *near, const int16_t *far, Mode mode,
                       std::span<int16_t> linear) {
    // The run functions only read the far end; their C signature just does not say so.
    short *x = const_cast<int16_t *>(far);
    if (mode == Mode::kFull) {
        return QenAec_Run(h, near, x);
    }
    const ALGO_AEC_RET r = QenAec_ADF_Run(h, near, x);
    if (r != ALGO_AEC_RET_SUCCESS || mode == Mode::kLinear) {
        return r;
    }
    std::copy_n(near, linear.size(), linear.begin());
    return QenAec_NLP_Run(h, near);
}

RunResult run(AEC_HANDLE h, const Layout &layout, std::span<int16_t> near,
              std::span<const int16_t> far, Mode mode, const FrameDone &done,
              std::span<int16_t> linear) {
    const size_t near_step = kFrame * layout.near_channels;
    const size_t far_step = kFrame * layout.far_channels;
    const size_t frames = std::min(near.size() / near_step, far.size() / far_step);
    RunResult result;
    for (size_t f = 0; f < frames; ++f) {
        const std::span<int16_t> keep =
            linear.empty() ? linear : linear.subspan(f * near_step, near_step);
        result.code =
            run_frame(h, near.data() + f * near_step, far.data() + f * far_step, mode, keep);
        if (result.code != ALGO_AEC_RET_SUCCESS) {
            break;
        }
        result.frames = f + 1;
        if (done) {
            done(result.frames);
        }
    }
    return result;
}

std::vector<int16_t> process(const Recording &rec, Mode mode, const Settings &settings,
                             ALGO_AEC_RET *code) {
    std::vector<int16_t> out = rec.near;
    const Instance aec(rec.layout, settings);
    const ALGO_AEC_RET r = aec.handle() == nullptr
                               ? ALGO_AEC_RET_INVALID_HANDLE
                               : run(aec.handle(), rec.layout, out, rec.far, mode).code;
    if (code != nullptr) {
        *code = r;
    }
    return out;
}

}  // namespace testkit
