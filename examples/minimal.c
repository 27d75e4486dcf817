/* Cancels the echo of a synthetic loudspeaker signal: 2 s at 16 kHz, mono. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "qen_aec.h"

#define FRAME 128
#define FRAMES 250

int main(void) {
    unsigned int size = QenAec_GetBufferSize();
    char *block = malloc(size);
    AudioAecInit init = {FRAME, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
    AEC_HANDLE aec = QenAec_Init(block, &init);
    if (aec == NULL) {
        free(block);
        return 1;
    }

    short far[FRAME], mic[FRAME], history[FRAME + 16] = {0};
    double in_energy = 0, out_energy = 0;
    unsigned seed = 1;
    for (int f = 0; f < FRAMES; ++f) {
        for (int i = 0; i < FRAME; ++i) {
            seed = seed * 1664525u + 1013904223u;
            far[i] = (short)((int)(seed >> 20) - 2048); /* loudspeaker: white noise */
        }
        /* The microphone hears the loudspeaker 16 samples later at half amplitude. */
        for (int i = 0; i < FRAME; ++i) {
            history[16 + i] = far[i];
            mic[i] = (short)(history[i] / 2);
        }
        for (int i = 0; i < 16; ++i) {
            history[i] = history[FRAME + i];
        }
        for (int i = 0; i < FRAME && f >= FRAMES / 2; ++i) {
            in_energy += (double)mic[i] * mic[i];
        }
        if (QenAec_Run(aec, mic, far) != ALGO_AEC_RET_SUCCESS) {
            break;
        }
        for (int i = 0; i < FRAME && f >= FRAMES / 2; ++i) {
            out_energy += (double)mic[i] * mic[i]; /* mic now holds the echo-free frame */
        }
    }
    printf("echo reduced by %.1f dB\n", 10 * log10(in_energy / (out_energy + 1)));
    QenAec_Free(aec);
    free(block);
    return 0;
}
