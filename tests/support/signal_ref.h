// Test signals and independent references for spectral tests: seeded uniform noise, a direct
// DFT of 256 real samples in double precision, and the square-root Hann window computed from
// its definition.
#pragma once

#include <complex>
#include <vector>

namespace qtest {

// n samples uniform in [-amp, amp], the same for the same seed.
std::vector<float> uniform_noise(int n, float amp, unsigned seed);

// sin(pi * i / 256) for i = 0..128, and its mirrored use on the second half of a pair.
double ref_window(int n);  // weight of sample n (0..255) of a block pair
std::vector<double> ref_windowed(const float *pair);
// Bin k (0..128) of the unscaled forward DFT of 256 samples.
std::complex<double> ref_dft_bin(const double *x, int k);
std::complex<double> ref_dft_bin(const float *x, int k);

}  // namespace qtest
