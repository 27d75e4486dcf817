// The frame driver. Run and ADF_Run share their front half (flags, dumps, loading, saturation,
// far-end analysis, clipping check); the differences of ADF_Run are deliberate and kept. The
// stages are called through their documented entry points, which pick out of the instance what
// each stage reads and writes.
#include "api/run.h"

#include "core/linear_stage.h"
#include "core/nlp.h"
#include "diag/dump.h"
#include "diag/log.h"
#include "dsp/fp_mode.h"
#include "dsp/stream.h"
#include "instance.h"
#include "kernels/vector.h"

namespace {

constexpr int kSaturationThreshold = 32700;

enum class Mode { kFull, kLinearOnly };

// The four values are set in the order the stream tools document them.
void set_post_info(postInfo_t *info, int32_t length, uint32_t channels, int32_t bias,
                   int32_t flag) {
    info->length = length;
    info->channel_number = channels;
    info->bias = bias;
    info->flag = flag;
}

// A clipped frame marks itself and the frame after it as saturated.
void detect_saturation(const short *near, uint32_t samples, aec_saturated_flag_t *sat) {
    sat->is_saturate_ind =
        pcm_exceeds(near, static_cast<int>(samples), kSaturationThreshold) ? 1 : 0;
    sat->isCurrNearEndSat = (sat->is_saturate_ind_pre == 1 || sat->is_saturate_ind == 1) ? 1 : 0;
    sat->is_saturate_ind_pre = sat->is_saturate_ind;
}

// Steps shared by Run and ADF_Run up to the clipping check, on the whole instance as the entry
// points themselves. Returns SUCCESS to go on, or the code to return at once.
ALGO_AEC_RET run_front(aec_workingbuf_t *buf, short *near, short *far, Mode mode) {
    const aec_input_data_property_t &prop = buf->aec_data_property;
    if (buf->aec_status_flag.is_aec_init_status == 0) {
        return static_cast<ALGO_AEC_RET>(-1);
    }
    if (buf->aec_status_flag.is_run_status == 1) {
        return ALGO_AEC_RET_API_CONFLICT;
    }
    buf->aec_status_flag.is_run_status = 1;
    // On failure the run flag stays set: later frames report a conflict until Reset or Init.
    if (DebugDumpDataInit(buf) != 0) {
        return ALGO_AEC_RET_INIT_ERROR;
    }
    const bool dump_inputs = mode == Mode::kFull ? buf->dump_flag != 0 : buf->dump_flag == 1;
    if (dump_inputs) {
        DebugDumpDataWrite(buf->far_end_dump, far, prop.point_number * prop.farend_channel);
        DebugDumpDataWrite(buf->near_end_dump, near, prop.point_number * prop.nearend_channel);
    }

    set_post_info(&buf->postInfo, kAecFft, prop.nearend_channel,
                  static_cast<int32_t>(prop.point_number), 1);
    for (uint32_t ch = 0; ch < prop.nearend_channel; ++ch) {
        LoadStreamf(buf->AudioNearEnd[ch], near, static_cast<int>(ch), &buf->postInfo);
    }
    detect_saturation(near, prop.point_number * prop.nearend_channel, &buf->aec_saturated_flag);

    set_post_info(&buf->postInfo, kAecFft, prop.farend_channel,
                  static_cast<int32_t>(prop.point_number), 1);
    // The linear-only path bounds the far-end loop by the near-end channel count.
    const uint32_t far_loads = mode == Mode::kFull ? prop.farend_channel : prop.nearend_channel;
    for (uint32_t ch = 0; ch < far_loads; ++ch) {
        LoadStreamf(buf->AudioFarEnd[ch], far, static_cast<int>(ch), &buf->postInfo);
    }

    // Measured over the first half of the pair: the previous frame's samples.
    buf->FarEndMean = FarEndMean_Compute(buf->AudioFarEnd[0], static_cast<int>(prop.point_number));
    VelFuncAec_BufferFarendPartition(buf, buf->AudioFarEnd[0]);
    buf->postInfo.length = kAecBlock;
    Post_Clipping_Check(&buf->AudioNearEnd[0][kAecBlock], &buf->postInfo, buf->dbg_level);
    return ALGO_AEC_RET_SUCCESS;
}

// The output stage: `source` (a block) saturated into the caller's near-end buffer, the one
// processed channel into every near-end channel.
void write_output(const aec_input_data_property_t &prop, float *source, short *near,
                  postInfo_t *info) {
    set_post_info(info, static_cast<int32_t>(prop.point_number), prop.nearend_channel, 0, 1);
    Post_OLA_Process(source, nullptr, near, info);
}

ALGO_AEC_RET run_back(aec_workingbuf_t *buf, short *near) {
    const aec_input_data_property_t &prop = buf->aec_data_property;
    if (buf->dump_flag != 0) {
        DebugDumpDataWrite(buf->output_dump, near, prop.point_number * prop.nearend_channel);
    }
    buf->aec_status_flag.is_run_status = 0;
    return ALGO_AEC_RET_SUCCESS;
}

}  // namespace

ALGO_AEC_RET _QenAec_Run(AEC_HANDLE handle, short *pssAduioNearEndIn, short *pssAduioFarEndIn) {
    if (handle == nullptr) {
        algo_log_always(ALGO_MSG_ERR, "[AEC]Fail! The AecWorkingBuff is NULL\t\n");
        return static_cast<ALGO_AEC_RET>(-1);
    }
    auto *buf = static_cast<aec_workingbuf_t *>(handle);
    const fp_frame_mode_t fp_mode;
    const ALGO_AEC_RET front = run_front(buf, pssAduioNearEndIn, pssAduioFarEndIn, Mode::kFull);
    if (front != ALGO_AEC_RET_SUCCESS) {
        return front;
    }
    Aec_NLMS_process(buf, buf->AudioNearEnd[0], buf->AudioNearEnd[1]);
    Aec_NLP_process(buf, buf->AudioNearEnd[0], buf->AudioNearEnd[1]);
    write_output(buf->aec_data_property, buf->AudioNearEnd[0], pssAduioNearEndIn, &buf->postInfo);
    return run_back(buf, pssAduioNearEndIn);
}

ALGO_AEC_RET _QenAec_ADF_Run(AEC_HANDLE handle, short *pssAduioNearEndIn, short *pssAduioFarEndIn) {
    if (handle == nullptr) {
        algo_log_always(ALGO_MSG_ERR, "[AEC]Fail! The AecWorkingBuff is NULL\t\n");
        return static_cast<ALGO_AEC_RET>(-1);
    }
    auto *buf = static_cast<aec_workingbuf_t *>(handle);
    const fp_frame_mode_t fp_mode;
    const ALGO_AEC_RET front =
        run_front(buf, pssAduioNearEndIn, pssAduioFarEndIn, Mode::kLinearOnly);
    if (front != ALGO_AEC_RET_SUCCESS) {
        return front;
    }
    // A silent far end skips the linear stage for the frame.
    if (buf->FarEndMean > 0) {
        Aec_NLMS_process(buf, buf->AudioNearEnd[0], buf->AudioNearEnd[1]);
    }
    write_output(buf->aec_data_property, &buf->mdf_error[kAecBlock], pssAduioNearEndIn,
                 &buf->postInfo);
    return run_back(buf, pssAduioNearEndIn);
}

ALGO_AEC_RET _QenAec_NLP_Run(AEC_HANDLE handle, short *pssAduioNearEndIn) {
    if (handle == nullptr) {
        algo_log_always(ALGO_MSG_ERR, "The AecWorkingBuff is NULL\t\n");
        return static_cast<ALGO_AEC_RET>(-1);
    }
    auto *buf = static_cast<aec_workingbuf_t *>(handle);
    const fp_frame_mode_t fp_mode;
    Aec_NLP_process(buf, buf->AudioNearEnd[0], buf->AudioNearEnd[1]);
    write_output(buf->aec_data_property, buf->AudioNearEnd[0], pssAduioNearEndIn, &buf->postInfo);
    return ALGO_AEC_RET_SUCCESS;
}
