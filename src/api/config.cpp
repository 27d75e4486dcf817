// Settings of a live instance: Config (all-or-nothing), GetConfig, the band-mode call, the
// recursive ratio of the spectral smoothing and the id used in dump file names.
#include <cstring>

#include "api/setup.h"
#include "core/supp_mode.h"
#include "diag/log.h"
#include "instance.h"

namespace {

constexpr uint32_t kMaxBandEdge = 126;
constexpr int kMaxHandleId = 100;

aec_workingbuf_t *as_instance(void *p) {
    return static_cast<aec_workingbuf_t *>(p);
}

// Every test of the record, in order, before anything is stored.
ALGO_AEC_RET check_config(const AudioAecConfig *cfg, int dbg_lv) {
    if (cfg->comfort_noise_enable != QEN_AEC_FALSE && cfg->comfort_noise_enable != QEN_AEC_TRUE) {
        algo_log(dbg_lv, ALGO_MSG_ERR, " [AEC]Fail! Please Config the CngMode!\t%d\n",
                 static_cast<int>(cfg->comfort_noise_enable));
        return ALGO_AEC_RET_INVALID_COMFORT_NOISE;
    }
    for (int k = 0; k < kAecBands; ++k) {
        if (cfg->suppression_mode_intensity[k] > kSuppModeMaxIntensity) {
            algo_log(dbg_lv, ALGO_MSG_ERR,
                     " [AEC]Fail! The SuppMode only support [0~25] for each element!\t\n");
            return ALGO_AEC_RET_INVALID_SUP_MODE;
        }
    }
    const uint32_t *edge = cfg->suppression_mode_freq;
    for (int k = 0; k < kAecBandEdges; ++k) {
        if (edge[k] == 0 || edge[k] > kMaxBandEdge) {
            algo_log(dbg_lv, ALGO_MSG_ERR,
                     " [AEC]Fail! The SuppMode_Band only support [1~126] for each element!\t\n");
            return ALGO_AEC_RET_INVALID_SUP_BAND;
        }
        // Equal neighbours are allowed: they make an empty band.
        if (k > 0 && edge[k] < edge[k - 1]) {
            algo_log(dbg_lv, ALGO_MSG_ERR,
                     " [AEC]Fail! The SuppMode_Band is not in order!\t%d\t%d\n",
                     static_cast<int>(edge[k - 1]), static_cast<int>(edge[k]));
            return ALGO_AEC_RET_INVALID_SUP_BAND;
        }
    }
    return ALGO_AEC_RET_SUCCESS;
}

}  // namespace

ALGO_AEC_RET _QenAec_Config(AEC_HANDLE handle, AudioAecConfig *aec_config) {
    if (handle == nullptr || aec_config == nullptr) {
        algo_log_always(ALGO_MSG_ERR, " [AEC]Fail! The handle or aec_config is null!\t\n");
        return ALGO_AEC_RET_INVALID_HANDLE;
    }
    aec_workingbuf_t *buf = as_instance(handle);
    const int dbg_lv = buf->dbg_level;
    if (buf->aec_status_flag.is_aec_init_status == 0) {
        algo_log(dbg_lv, ALGO_MSG_ERR, "[%s]Fail! Need init before QenAec_Config\t\n",
                 "_QenAec_Config");
        return ALGO_AEC_RET_INVALID_CALLING;
    }
    aec_input_data_property_t *prop = &buf->aec_data_property;
    AudioAecInit stored = {prop->point_number, prop->nearend_channel, prop->farend_channel,
                           static_cast<QEN_AEC_SAMPLE_RATE>(buf->aec_inst.sampFreq)};
    const ALGO_AEC_RET init_check = _QenAec_CheckAudioAecInitElement(&stored, dbg_lv);
    if (init_check != ALGO_AEC_RET_SUCCESS) {
        algo_log(dbg_lv, ALGO_MSG_ERR, " [%s]Fail! aec init parameter error\t\n", "_QenAec_Config");
        return init_check;
    }
    const ALGO_AEC_RET config_check = check_config(aec_config, dbg_lv);
    if (config_check != ALGO_AEC_RET_SUCCESS) {
        return config_check;
    }

    prop->delay_sample = aec_config->delay_sample;
    prop->comfort_noise_channel = aec_config->comfort_noise_enable;
    if (prop->comfort_noise_channel == 1) {
        prop->comfort_noise_min_pwr = 0.0002f;
        prop->comfort_noise_mul_left_shift = -14;
    }
    // The targets come from the new intensities and never read the edges; the edges are
    // stored after them and the suppression kernel picks them up from the next frame.
    _QenAec_SetModeByFreqBand(handle, aec_config->suppression_mode_intensity);
    memcpy(prop->Supp_Mode_Frq, aec_config->suppression_mode_freq, sizeof prop->Supp_Mode_Frq);
    memcpy(prop->Supp_Mode, aec_config->suppression_mode_intensity, sizeof prop->Supp_Mode);
    return ALGO_AEC_RET_SUCCESS;
}

int _QenAec_SetModeByFreqBand(AEC_HANDLE handle, unsigned int *Matrix_Mode) {
    if (handle == nullptr || Matrix_Mode == nullptr) {
        algo_log_always(ALGO_MSG_ERR, "[AEC]Fail! The AecWorkingBuff is NULL\t\n");
        return -1;
    }
    aec_workingbuf_t *buf = as_instance(handle);
    if (_QenAec_SetAecMode_Band(buf, Matrix_Mode) < 0) {
        // The full stop after the newline is part of the message as it has always printed.
        algo_log(buf->dbg_level, ALGO_MSG_ERR, "[AEC]Fail! Set mode error\n.");
        return -1;
    }
    return 0;
}

ALGO_AEC_RET _QenAec_GetConfig(AEC_HANDLE handle, AudioAecInit *aec_init,
                               AudioAecConfig *aec_config) {
    if (handle == nullptr || aec_config == nullptr) {
        algo_log_always(ALGO_MSG_ERR, " [AEC]Fail! The handle or aec_config is null!\t\n");
        return ALGO_AEC_RET_INVALID_HANDLE;
    }
    const aec_workingbuf_t *buf = as_instance(handle);
    const aec_input_data_property_t *prop = &buf->aec_data_property;
    // aec_init is the caller's to provide; only the handle and aec_config are checked.
    aec_init->farend_channel = prop->farend_channel;
    aec_init->nearend_channel = prop->nearend_channel;
    aec_init->point_number = prop->point_number;
    aec_init->sample_rate = static_cast<QEN_AEC_SAMPLE_RATE>(buf->aec_inst.sampFreq);
    aec_config->comfort_noise_enable = static_cast<QEN_AEC_BOOL>(prop->comfort_noise_channel);
    aec_config->delay_sample = prop->delay_sample;
    memcpy(aec_config->suppression_mode_freq, prop->Supp_Mode_Frq, sizeof prop->Supp_Mode_Frq);
    memcpy(aec_config->suppression_mode_intensity, prop->Supp_Mode, sizeof prop->Supp_Mode);
    return ALGO_AEC_RET_SUCCESS;
}

ALGO_AEC_RET _QenAec_SetRecursiveRatio(AEC_HANDLE handle, unsigned int recursive_ratio) {
    static const char *const kName = "_QenAec_SetRecursiveRatio";
    if (handle == nullptr) {
        algo_log_always(ALGO_MSG_ERR, "[%s]Fail! The AEC handle is NULL\t\n", kName);
        return ALGO_AEC_RET_INVALID_HANDLE;
    }
    aec_workingbuf_t *buf = as_instance(handle);
    const int dbg_lv = buf->dbg_level;
    if (buf->aec_status_flag.is_aec_init_status == 0) {
        algo_log(dbg_lv, ALGO_MSG_ERR, "[%s]Fail! Need init before QenAec_SetRecursiveRatio\t\n",
                 kName);
        return ALGO_AEC_RET_INVALID_CALLING;
    }
    if (recursive_ratio == 0 || recursive_ratio > 10) {
        algo_log(dbg_lv, ALGO_MSG_ERR, " [%s]Fail! The Recursive Ratio only support [1~10]!\t%d\n",
                 kName, static_cast<int>(recursive_ratio));
        return ALGO_AEC_RET_INVALID_RECURSIVE_RATIO;
    }
    buf->Recursive_Ratio = static_cast<float>(recursive_ratio / 10.0);
    return ALGO_AEC_RET_SUCCESS;
}

ALGO_AEC_RET _QenAec_SetHandleId(AEC_HANDLE handle, int id) {
    static const char *const kName = "_QenAec_SetHandleId";
    if (handle == nullptr) {
        algo_log_always(ALGO_MSG_ERR, "[%s]Fail! The aec handle is NULL.\t\n", kName);
        return ALGO_AEC_RET_INVALID_HANDLE;
    }
    aec_workingbuf_t *buf = as_instance(handle);
    const int dbg_lv = buf->dbg_level;
    if (id > kMaxHandleId) {
        algo_log(dbg_lv, ALGO_MSG_WRN, "[%s]Warning! The aec handle id exceed 100.\t\n", kName);
        id = kMaxHandleId;
    } else if (id < 0) {
        algo_log(dbg_lv, ALGO_MSG_WRN, "[%s]Warning! The aec handle id is negative number.\t\n",
                 kName);
        id = 0;
    }
    buf->dump_id = id;
    algo_log(dbg_lv, ALGO_MSG_MSG, "[%s]Set the aec handle id as %d.\t\n", kName, id);
    return ALGO_AEC_RET_SUCCESS;
}
