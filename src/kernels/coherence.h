// Per-bin kernels of the nonlinear stage's gain rule, on arrays of 129 bins: the coherences of
// near end with error and of echo estimate with near end, and the per-bin gains formed from
// them.
#pragma once

#include "kernels/suppress.h"

// cohde = |sde|^2 / (sd * se + 1e-10), cohyd = min(|syd|^2 / (sy * sd + 1e-10), 1); both 0
// where sd is exactly 0. A coherence is at most 1, but rounding in the smoothed spectra (and
// the approximate division) can put cohyd an ulp above, hence its bound.
void coherence(const psd_t &psd, float *cohde, float *cohyd);

// hNl = min(cohde, 1 - cohyd): the gain while echo is present.
void gains_min_of_coherences(const float *cohde, const float *cohyd, float *hNl);
// hNl = 1 - cohyd: the gain before any echo has been seen.
void gains_from_echo_coherence(const float *cohyd, float *hNl);
