// PCM in and out of the float analysis buffers. Loading slides a 256-float buffer by one frame
// and de-interleaves one channel into its second half; the output stage saturates and
// truncates back into interleaved 16-bit PCM; the clipping check only warns. Samples are never
// scaled: 1000 in PCM is 1000.0 in float and back.
#include "dsp/stream.h"

#include <cmath>
#include <cstring>

#include "diag/log.h"
#include "kernels/vector.h"

void LoadStreamf(float *input, short *pss_audio_in, int channel_counter, postInfo_t *postInfo) {
    // Callers count stereo channels 1 and 2 as well as 0 and 1; 2 means the first.
    const int ch = channel_counter == 2 ? 0 : channel_counter;
    const uint32_t channels = postInfo->channel_number;
    if (channels != 1 && channels != 2) {
        return;
    }
    if (channels == 2 && postInfo->flag != 1 && ch != postInfo->flag) {
        return;
    }
    const int length = postInfo->length;
    const int bias = postInfo->bias;
    // The newest `bias` samples become the oldest; memmove keeps this defined should the two
    // ranges ever overlap (they do not at 256/128, which take the fast copy).
    if (bias <= length - bias) {
        copy_floats(input, input + (length - bias), bias);
    } else {
        memmove(input, input + (length - bias), sizeof(float) * bias);
    }
    vec_from_pcm(pss_audio_in, static_cast<int>(channels), ch, &input[length - bias], bias);
}

void Post_Clipping_Check(float *input, postInfo_t *postInfo, int dbg_level) {
    const int length = postInfo->length;
    if (count_clipped_pairs(input, length) > length / 3) {
        algo_log(dbg_level, ALGO_MSG_WRN, "Warning! The Microphone data is saturate.\t\n");
    }
}

void Post_OLA_Process(float *input, float *input2, short *output, postInfo_t *postInfo) {
    const int length = postInfo->length;
    const int channels = static_cast<int>(postInfo->channel_number);
    const int bias = postInfo->bias;
    const bool duplicate = postInfo->flag != 0 && channels == 2;
    if (input2 == nullptr && channels == 1) {
        vec_to_pcm(input, &output[bias], length);
        return;
    }
    if (input2 == nullptr) {
        // Converted a block at a time, then spread over the interleaved channels.
        constexpr int kChunk = 128;
        short pcm[kChunk];
        for (int k0 = 0; k0 < length; k0 += kChunk) {
            const int n = length - k0 < kChunk ? length - k0 : kChunk;
            vec_to_pcm(&input[k0], pcm, n);
            for (int k = 0; k < n; ++k) {
                output[(k0 + k) * channels + bias] = pcm[k];
                if (duplicate) {
                    output[(k0 + k) * channels + bias + 1] = pcm[k];
                }
            }
        }
        return;
    }
    for (int k = 0; k < length; ++k) {
        const float t = input2 != nullptr ? input[k] + input2[k] : input[k];
        const short s = saturate_to_pcm(t);
        output[k * channels + bias] = s;
        if (duplicate) {
            // One processed channel feeds both channels of a stereo output.
            output[k * channels + bias + 1] = s;
        }
    }
}
