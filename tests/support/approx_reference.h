// Scalar, one-value-at-a-time restatement of the approximate power used by the grouped kernel
// paths, for checking the 4-lane versions lane by lane.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace qtest {

inline float bits_to_float(uint32_t u) {
    float f;
    memcpy(&f, &u, sizeof f);
    return f;
}

inline uint32_t float_to_bits(float f) {
    uint32_t u;
    memcpy(&u, &f, sizeof u);
    return u;
}

// n + (y - 1) * P(y) with n the unbiased exponent and y the mantissa in [1, 2).
inline float approx_log2(float a) {
    const uint32_t bits = float_to_bits(a);
    const float n = float(int((bits >> 23) & 0xFF) - 127);
    const float y = bits_to_float((bits & 0x007FFFFFu) | 0x3F800000u);
    const float c[6] = {3.1157899f,  -3.3241990f, 2.5988452f,
                        -1.2315303f, 0.31821337f, -0.034436006f};
    float p = c[5];
    for (int k = 4; k >= 0; --k) {
        p = p * y + c[k];
    }
    return n + (y - 1.0f) * p;
}

// 2^n * Q(z - n) with n = trunc(z - 0.5), z clamped to [-126.99999, 129].
inline float approx_exp2(float z) {
    z = std::min(std::max(z, -126.99999f), 129.0f);
    const int n = int(z - 0.5f);
    const float two_n = bits_to_float(uint32_t(n + 127) << 23);
    const float f = z - float(n);
    return two_n * ((0.33718944f * f + 0.65763628f) * f + 1.0017247f);
}

inline float approx_pow(float a, float b) {
    return approx_exp2(b * approx_log2(a));
}

}  // namespace qtest
