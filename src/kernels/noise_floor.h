// Per-bin kernels of the near-end noise-floor tracker, on arrays of 129 bins.
#pragma once

// dPow += ((re / 2)^2 + (im / 2)^2 - dPow) * 0.1 from the packed 258-float `spectrum`.
void noise_smooth_power(float *dPow, const float *spectrum);
// The minimum creeps up by 1.0003, or first falls by 90% of its gap to a lower power.
void noise_track_minimum(float *dMinPow, const float *dPow);
// The start-up estimate takes a lower minimum at once and follows a higher one by 10% a block.
void noise_follow_minimum(float *dInitMinPow, const float *dMinPow);
