// Comfort noise: random-phase components shaped by the near-end noise floor, added to the
// suppressed error spectrum. The two table read positions are process-wide.
#pragma once

#include <cstdint>

#include "dims.h"

extern const int16_t comfortNoiseX[1024];
extern const int16_t comfortNoiseY[1024];

struct cng_t {
    float dMinPow[kAecBins];
    float comfort_noise_min_pwr;
    int comfort_noise_mul_left_shift;
};

// `lambda` (the suppression gains) is part of the signature and not read.
void ComfortNoise_Process(float *input, float *noisePow, float *lambda, int length,
                          float NOISE_MIN_PWR, int NOISE_MUL_LEFT_SHIFT);

// The process-wide read positions, for tests.
int comfort_noise_read_position();
int comfort_noise_offset_position();
void comfort_noise_set_positions(int ind, int ind_offset);
