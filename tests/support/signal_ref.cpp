#include "signal_ref.h"

#include <cmath>
#include <numbers>
#include <random>

namespace qtest {

std::vector<float> uniform_noise(int n, float amp, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> dist(-amp, amp);
    std::vector<float> v(n);
    for (float &x : v) {
        x = dist(gen);
    }
    return v;
}

double ref_window(int n) {
    const int i = n < 128 ? n : 256 - n;
    return std::sin(std::numbers::pi * i / 256.0);
}

std::vector<double> ref_windowed(const float *pair) {
    std::vector<double> out(256);
    for (int n = 0; n < 256; ++n) {
        out[n] = pair[n] * ref_window(n);
    }
    return out;
}

std::complex<double> ref_dft_bin(const double *x, int k) {
    std::complex<double> sum = 0.0;
    for (int t = 0; t < 256; ++t) {
        sum += x[t] * std::polar(1.0, -2.0 * std::numbers::pi * k * t / 256.0);
    }
    return sum;
}

std::complex<double> ref_dft_bin(const float *x, int k) {
    std::vector<double> d(x, x + 256);
    return ref_dft_bin(d.data(), k);
}

}  // namespace qtest
