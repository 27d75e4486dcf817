// Moves PCM between the caller's interleaved 16-bit buffers and the float analysis buffers:
// sliding load, microphone clipping check, saturating output stage.
#pragma once

#include <cmath>
#include <cstdint>

struct postInfo_t {
    int32_t length;
    uint32_t channel_number;
    int32_t bias;
    int32_t flag;
};

void LoadStreamf(float *input, short *pss_audio_in, int channel_counter, postInfo_t *postInfo);
void Post_Clipping_Check(float *input, postInfo_t *postInfo, int dbg_level);
void Post_OLA_Process(float *input, float *input2, short *output, postInfo_t *postInfo);

// Float to 16-bit PCM: clamped to the 16-bit range, then truncated toward zero. A NaN has no
// integer value; it leaves as silence instead of undefined behaviour.
inline short saturate_to_pcm(float t) {
    if (std::isnan(t)) {
        return 0;
    }
    if (t > 32767.0f) {
        t = 32767.0f;
    } else if (t < -32768.0f) {
        t = -32768.0f;
    }
    return static_cast<short>(static_cast<int>(t));
}
