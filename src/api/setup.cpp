// The instance's life: the size of the caller's block, the init-record check, Init, Reset
// and Free. The block holds the instance record followed by the FFT plan area.
#include "api/setup.h"

#include <cstring>

#include "core/aec_state.h"
#include "core/supp_mode.h"
#include "diag/dump.h"
#include "diag/log.h"
#include "diag/msglevel.h"
#include "diag/profile.h"
#include "instance.h"

namespace {

constexpr int kMdfSetSamplingRate = 24;
constexpr int kCoreInitLineInit = 425;
constexpr int kCoreInitLineReset = 544;
// Reset starts the core at this rate whatever the configured one (so its rate multiplier is
// 2), while the filter gets the configured rate. Intended: Reset differs from Init here.
constexpr int kResetCoreRate = 16000;

aec_workingbuf_t *as_instance(void *p) {
    return static_cast<aec_workingbuf_t *>(p);
}

void attach_fft_area(char *block) {
    aec_workingbuf_t *buf = as_instance(block);
    buf->FFT_workingBuff.fftSize = kAecFft;
    buf->FFT_workingBuff.fft_Ne10_cfg =
        reinterpret_cast<ne10_fft_r2c_cfg_float32_t>(block + sizeof(aec_workingbuf_t));
}

// The rate is kept in the core state, not with the other properties.
void store_init_record(const AudioAecInit *rec, aec_input_data_property_t *prop, int *sampFreq) {
    prop->point_number = rec->point_number;
    prop->nearend_channel = rec->nearend_channel;
    prop->farend_channel = rec->farend_channel;
    *sampFreq = rec->sample_rate;
}

void install_default_bands(aec_input_data_property_t *prop) {
    memcpy(prop->Supp_Mode, default_Supp_Mode, sizeof default_Supp_Mode);
    memcpy(prop->Supp_Mode_Frq, default_Supp_Mode_Freq, sizeof default_Supp_Mode_Freq);
}

void init_filter(aec_workingbuf_t *buf) {
    mdf_echo_state_init(buf, kAecBlock, kAecTaps);
    mdf_echo_ctl(buf, kMdfSetSamplingRate, &buf->aec_inst.sampFreq);
}

void announce_levels(int dbg_lv) {
    algo_log(dbg_lv, ALGO_MSG_ERR, "ALGO_MSG_ERR\t\n");
    algo_log(dbg_lv, ALGO_MSG_WRN, "ALGO_MSG_WRN\t\n");
    algo_log(dbg_lv, ALGO_MSG_MSG, "ALGO_MSG_MSG\t\n");
}

void print_banner(int dbg_lv) {
    char dashes[81];
    char blanks[81];
    memset(dashes, '-', 80);
    memset(blanks, ' ', 80);
    dashes[80] = blanks[80] = '\0';
    algo_log(dbg_lv, ALGO_MSG_MSG, "%s\n", dashes);
    algo_log(dbg_lv, ALGO_MSG_MSG, "%s\n", blanks);
    // "NEON ENABLE" is 11 characters: 35 blanks before and 34 after fill the 80 columns.
    algo_log(dbg_lv, ALGO_MSG_MSG, "%.35sNEON ENABLE%.34s\n", blanks, blanks);
    algo_log(dbg_lv, ALGO_MSG_MSG, "%s\n", blanks);
    algo_log(dbg_lv, ALGO_MSG_MSG, "%s\n", dashes);
}

void print_setting(uint32_t point_number, int dbg_lv) {
    algo_log(dbg_lv, ALGO_MSG_MSG, "[AEC]Setting: [%d][%d]\r\n", static_cast<int>(point_number),
             kAecPartitions);
}

void release_parts(aec_workingbuf_t *buf) {
    VelFuncAec_FreeAec(buf);
    ModuleProfile_Release();
    fft_Free(&buf->FFT_workingBuff);
}

}  // namespace

unsigned int _QenAec_GetBufferSize() {
    const int dbg_lv = DynamicMessageLevel();
    const unsigned int size =
        static_cast<unsigned int>(sizeof(aec_workingbuf_t)) + FFT_GetBufferSize(kAecFft);
    algo_log(dbg_lv, ALGO_MSG_MSG, "[%s]Working buffer size = %d bytes\n", "_QenAec_GetBufferSize",
             static_cast<int>(size));
    return size;
}

ALGO_AEC_RET _QenAec_CheckAudioAecInitElement(AudioAecInit *aec_init, int dbg_lv) {
    if (aec_init->point_number != kAecBlock) {
        algo_log(dbg_lv, ALGO_MSG_ERR, "[AEC]This AEC Lib only support point_number = %d....\r\n",
                 kAecBlock);
        return ALGO_AEC_RET_INVALID_POINT_NUMBER;
    }
    if (aec_init->nearend_channel != 1 && aec_init->nearend_channel != 2) {
        algo_log(dbg_lv, ALGO_MSG_ERR, "[AEC]The NearEnd Channel only support 1 or 2\t\n");
        return ALGO_AEC_RET_INVALID_CHANNEL;
    }
    if (aec_init->farend_channel != 1 && aec_init->farend_channel != 2) {
        algo_log(dbg_lv, ALGO_MSG_ERR, "[AEC]The FarEnd Channel only support 1 or 2\t\n");
        return ALGO_AEC_RET_INVALID_CHANNEL;
    }
    switch (aec_init->sample_rate) {
        case QEN_AEC_SAMPLE_RATE_8000:
        case QEN_AEC_SAMPLE_RATE_16000:
        case QEN_AEC_SAMPLE_RATE_32000:
        case QEN_AEC_SAMPLE_RATE_48000:
            return ALGO_AEC_RET_SUCCESS;
        default:
            algo_log(dbg_lv, ALGO_MSG_ERR,
                     "[AEC]The sample rate only support 48000, 32000, 16000, 8000.\t\n");
            return ALGO_AEC_RET_INVALID_SAMPLE_RATE;
    }
}

AEC_HANDLE _QenAec_Init(char *block, AudioAecInit *aec_init) {
    const int dbg_lv = DynamicMessageLevel();
    if (block == nullptr || aec_init == nullptr) {
        algo_log(dbg_lv, ALGO_MSG_ERR,
                 "[AEC]Fail! The AecWorkingBuff or AudioAecProcessStruct is NULL\t\n");
        return nullptr;
    }
    announce_levels(dbg_lv);
    if (_QenAec_CheckAudioAecInitElement(aec_init, dbg_lv) != ALGO_AEC_RET_SUCCESS) {
        return nullptr;
    }

    aec_workingbuf_t *buf = as_instance(block);
    memset(buf, 0, sizeof *buf);
    attach_fft_area(block);
    buf->dbg_level = dbg_lv;
    buf->aec_status_flag.is_aec_init_status = 0;
    store_init_record(aec_init, &buf->aec_data_property, &buf->aec_inst.sampFreq);
    print_setting(buf->aec_data_property.point_number, dbg_lv);

    ne10_init();
    print_banner(dbg_lv);
    if (VelFuncAec_InitAec(buf->aec_inst.sampFreq, buf) != 0) {
        algo_log(dbg_lv, ALGO_MSG_ERR, "[AEC]Fail! Initialization Error at Line %d\r\n",
                 kCoreInitLineInit);
        return nullptr;
    }
    ModuleProfile_Init();

    // Only the table is installed: the per-band targets keep the core's start values until
    // the first Config computes them.
    buf->aec_data_property.comfort_noise_channel = 0;
    buf->aec_data_property.delay_sample = 0;
    install_default_bands(&buf->aec_data_property);
    buf->Recursive_Ratio = 0.1f;
    buf->FE_Level_Thr = 1.8426f;

    init_filter(buf);
    algo_log(dbg_lv, ALGO_MSG_MSG, "[AEC]Floating point mode.\n");

    buf->aec_status_flag.is_aec_config_status = 0;
    buf->aec_status_flag.is_run_status = 0;
    buf->aec_status_flag.is_aec_init_status = 1;
    return block;
}

AEC_HANDLE _QenAec_Reset(char *block, AudioAecInit *aec_init) {
    // Read for Reset's own messages only; the instance keeps the mask Init stored.
    const int dbg_lv = DynamicMessageLevel();
    if (block == nullptr || aec_init == nullptr) {
        algo_log_always(ALGO_MSG_ERR,
                        "[AEC]Fail! The WorkingBuff or AudioAecProcessStruct is NULL\t\n");
        return nullptr;
    }
    aec_workingbuf_t *buf = as_instance(block);
    if (buf->aec_status_flag.is_aec_init_status == 0) {
        algo_log(dbg_lv, ALGO_MSG_ERR,
                 "[AEC]Fail! Please run QenAec_Init before run QenAec_Reset\r\n");
        return nullptr;
    }

    // A record refused after this point leaves the instance released but still flagged
    // initialised; the caller must Init again.
    release_parts(buf);
    if (_QenAec_CheckAudioAecInitElement(aec_init, dbg_lv) != ALGO_AEC_RET_SUCCESS) {
        return nullptr;
    }
    store_init_record(aec_init, &buf->aec_data_property, &buf->aec_inst.sampFreq);
    print_setting(buf->aec_data_property.point_number, dbg_lv);
    attach_fft_area(block);
    if (VelFuncAec_InitAec(kResetCoreRate, buf) != 0) {
        algo_log(dbg_lv, ALGO_MSG_ERR, "[AEC]Fail! Initialization Error at Line %d\r\n",
                 kCoreInitLineReset);
        return nullptr;
    }
    ModuleProfile_Init();
    buf->aec_data_property.comfort_noise_channel = 0;
    install_default_bands(&buf->aec_data_property);

    // The core ran its set-up at 16000; the filter and every later reader of the rate see
    // the record's rate again.
    buf->aec_inst.sampFreq = aec_init->sample_rate;
    init_filter(buf);

    // Only the first channel's buffers are cleared; the second channels keep their samples.
    memset(buf->AudioNearEnd[0], 0, sizeof buf->AudioNearEnd[0]);
    memset(buf->AudioFarEnd[0], 0, sizeof buf->AudioFarEnd[0]);
    memset(buf->AudioNearEndSub, 0, sizeof buf->AudioNearEndSub);
    buf->FE_Level_Thr = 1.8426f;
    buf->aec_saturated_flag.is_saturate_ind = 0;
    buf->aec_saturated_flag.is_saturate_ind_pre = 0;
    buf->aec_status_flag.is_aec_config_status = 0;
    buf->aec_status_flag.is_run_status = 0;
    buf->aec_status_flag.is_aec_init_status = 1;
    return block;
}

ALGO_AEC_RET _QenAec_Free(AEC_HANDLE handle) {
    if (handle == nullptr) {
        algo_log_always(ALGO_MSG_ERR, "[AEC]Fail! The AecWorkingBuff is NULL\t\n");
        return static_cast<ALGO_AEC_RET>(-1);
    }
    aec_workingbuf_t *buf = as_instance(handle);
    release_parts(buf);
    DebugDumpDataFree(buf);
    buf->aec_status_flag.is_aec_init_status = 0;
    return ALGO_AEC_RET_SUCCESS;
}
