// Per-bin kernels of the adaptive filter's step control, on arrays: the smoothed far-end power,
// the terms of the leak estimate with the smoothed error and echo powers, the per-bin step
// sizes, and the partition energies behind the proportional weights. Each element is computed
// exactly as its scalar formula, divisions included (exact in both widths).
#pragma once

// power[i] = (1 - ss) * power[i] + 1 + ss * Xf[i], evaluated left to right.
void smooth_far_power(float *power, const float *Xf, float ss, int bins);

// With dE = Rf[i] - Eh[i] and dY = Yf[i] - Yh[i] taken before the update: dE * dY added to
// *pey and dY * dY to *pyy, bin by bin from the top bin down; and Eh[i] = (1 - a) * Eh[i] +
// a * Rf[i], Yh[i] likewise from Yf.
void leak_sums(const float *Rf, const float *Yf, float a, float *Eh, float *Yh, int bins,
               float *pey, float *pyy);

// Step sizes once adapted: r = min(leak * Yf[i], 0.5 * e) with e = Rf[i] + 1, and
// power_1[i] = (0.7 * r + 0.3 * RER * e) / ((power[i] + 10) * e).
void step_sizes_adapted(const float *Rf, const float *Yf, const float *power, float leak, float RER,
                        float *power_1, int bins);
// Step sizes before adaptation: power_1[i] = rate / (power[i] + 10).
void step_sizes_fixed(const float *power, float rate, float *power_1, int bins);

// energy[i] = 1 + the sum of the squares of the n floats of partition i (W[i * n .. i * n + n),
// added in increasing order), for m partitions.
void partition_energies(const float *W, int n, int m, float *energy);
