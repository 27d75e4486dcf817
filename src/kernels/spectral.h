// Per-bin arithmetic of the adaptive filter on packed spectra (258 floats = 129 bins):
// power spectrum, multiply-accumulate over partitions, weighted conjugate product.
#pragma once

#include "dsp/vector_math.h"

AUDIO_MATH_RET VelFunAec_PowerSpectrum(const float *X, float *ps, int length);
AUDIO_MATH_RET VelFunc_SpectralMulAccum(const float *X, const float *Y, float *acc, int N, int M);
AUDIO_MATH_RET VelFunc_WeightedSpectralMulConj(const float *w, const float p, const float *X,
                                               const float *Y, float *prod, int N);

void PowerSpectrum_Neon(const float *X, float *ps, int length);
// X scaled by s in place, and the power spectrum of the scaled X into ps: the same values as
// a scaling pass followed by PowerSpectrum_Neon, in one pass.
void ScaledPowerSpectrum(float *X, float s, float *ps, int length);
void SpectralMulAccum_Neon(const float *X, const float *Y, float *acc, int N, int M);
void WeightedSpectralMulConj_Neon(const float *w, const float p, const float *X, const float *Y,
                                  float *prod, int N);
// The same product added to `acc` instead of stored: acc += prod, each product rounded first,
// as the filter's weight update takes it.
void WeightedSpectralMulConjAccum(const float *w, float p, const float *X, const float *Y,
                                  float *acc, int N);
