// The real-FFT wrapper: transform contract, packed layout, plan memory and messages.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <random>
#include <vector>

#include "dsp/fft.h"
#include "fixture.h"
#include "signal_ref.h"

namespace {

struct Fft {
    std::vector<unsigned char> area;
    FFTHandle_t h{};
    int ip[128]{};
    float w[256]{};

    explicit Fft(size_t bytes = FFT_GetBufferSize(256)) : area(bytes) {
        ne10_init();
        h.fftSize = 256;
        h.fft_Ne10_cfg = reinterpret_cast<ne10_fft_r2c_cfg_float32_t>(area.data());
        fft_init(&h);
    }
    void forward(float *a) { VEL_rdft(&h, 256, 1, a, ip, w); }
    void inverse(float *a) { VEL_rdft(&h, 256, -1, a, ip, w); }
};

TEST(Fft, BufferSizeFormulaAndBothPlansFit) {
    EXPECT_EQ(FFT_GetBufferSize(256), 6028u);
    EXPECT_EQ(FFT_GetBufferSize(64), 18u * 64 + 96u * 3 + 556);
    Fft f;
    EXPECT_EQ(f.h.is_fft_init, 1);
    EXPECT_EQ(static_cast<void *>(f.h.fft_Ne10_cfg), static_cast<void *>(f.area.data()));
}

// Signal arrays at both float offsets of an 8-byte pair: the instance's arrays and the
// caller's block need only float alignment, which the ARM engine's own loads do not accept.
struct Signal {
    alignas(16) float storage[258 + 1] = {};
    float *a;
    explicit Signal(int offset) : a(storage + offset) {}
};

// Unscaled forward transform in the packed layout: bin k's real and imaginary parts at 2k
// and 2k + 1, the Nyquist value in its own pair (not the half-complex layout). A unit impulse,
// a constant 1 and noise.
TEST(Fft, ForwardMatchesTheDirectDft) {
    Fft f;
    std::vector<float> impulse(256, 0.0f), constant(256, 1.0f);
    impulse[0] = 1.0f;
    for (int offset : {0, 1}) {
        for (const std::vector<float> &x :
             {impulse, constant, qtest::uniform_noise(256, 1000.0f, 5)}) {
            Signal s(offset);
            std::copy(x.begin(), x.end(), s.a);
            f.forward(s.a);
            double largest = 0;  // no bin can exceed the sum of the magnitudes
            for (float v : x) {
                largest += std::fabs(v);
            }
            const double tol = 1e-6 * largest;
            for (int k = 0; k <= 128; ++k) {
                const std::complex<double> want = qtest::ref_dft_bin(x.data(), k);
                EXPECT_NEAR(s.a[2 * k], want.real(), tol) << "bin " << k << " offset " << offset;
                EXPECT_NEAR(s.a[2 * k + 1], want.imag(), tol)
                    << "bin " << k << " offset " << offset;
            }
        }
    }
}

TEST(Fft, RoundTripRestoresInputAndClearsTheLastPair) {
    Fft f;
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> d(-32768.0f, 32767.0f);
    for (int offset : {0, 1}) {
        float x[256];
        Signal s(offset);
        for (int t = 0; t < 256; ++t) {
            x[t] = s.a[t] = d(rng);
        }
        f.forward(s.a);
        s.a[256 + 1] = 0.0f;
        f.inverse(s.a);
        for (int t = 0; t < 256; ++t) {
            EXPECT_NEAR(s.a[t], x[t], 32768.0f * 1e-6f) << "sample " << t << " offset " << offset;
        }
        EXPECT_EQ(s.a[256], 0.0f);
        EXPECT_EQ(s.a[257], 0.0f);
    }
}

TEST(Fft, OtherDirectionsLeaveDataUntouched) {
    Fft f;
    for (int isgn : {0, 2, -2}) {
        float a[258];
        for (int j = 0; j < 258; ++j) {
            a[j] = static_cast<float>(j) - 100.0f;
        }
        std::string out = qtest::capture_stdout([&] { VEL_rdft(&f.h, 256, isgn, a, f.ip, f.w); });
        EXPECT_EQ(out, "");
        for (int j = 0; j < 258; ++j) {
            ASSERT_EQ(a[j], static_cast<float>(j) - 100.0f) << "isgn " << isgn;
        }
    }
}

TEST(Fft, InitMessagesAndFreeCycle) {
    Fft f;
    EXPECT_EQ(qtest::capture_stdout([&] { fft_init(&f.h); }), "[FFT]Ne10 has init already\n");
    EXPECT_EQ(f.h.is_fft_init, 1);
    fft_Free(&f.h);
    EXPECT_EQ(f.h.is_fft_init, 0);
    EXPECT_EQ(static_cast<void *>(f.h.fft_Ne10_cfg), static_cast<void *>(f.area.data()));
    EXPECT_EQ(qtest::capture_stdout([&] { fft_init(&f.h); }), "");
    EXPECT_EQ(f.h.is_fft_init, 1);

    EXPECT_EQ(qtest::capture_stdout([] { fft_init(nullptr); }), "[FFT]The handle is NULL\n");
    EXPECT_EQ(qtest::capture_stdout([] { fft_Free(nullptr); }), "handle is NULL in FFT_Free!\t\n");
    FFTHandle_t empty{};
    EXPECT_EQ(qtest::capture_stdout([&] { fft_init(&empty); }),
              "[FFT] Please assigned the begining address about FFT workingbuffer in Init.\n");
    float a[258] = {};
    EXPECT_EQ(qtest::capture_stdout([&] { VEL_rdft(nullptr, 256, 1, a, f.ip, f.w); }),
              "[Audio] Ne10_workingBufPtr is Null in fft\n");
}

TEST(Fft, MissingWorkArraysOnlyWarn) {
    Fft f;
    float a[258] = {};
    a[0] = 1.0f;
    const std::string out = qtest::capture_stdout([&] { VEL_rdft(&f.h, 256, 1, a, nullptr, f.w); });
    char expected[160];
    snprintf(expected, sizeof expected,
             "[Audio] input Null in Ne10_workingBufPtr->fft_Ne10_cfg\naddress = %p is NULL in "
             "VEL_rdft\n",
             static_cast<void *>(f.h.fft_Ne10_cfg));
    EXPECT_EQ(out, expected);
    EXPECT_NEAR(a[2 * 64], 1.0f, 1e-6f);  // the transform still ran
}

TEST(Fft, TooSmallAreaIsRefusedWithoutWritingPastIt) {
    const unsigned int needed = FFT_GetBufferSize(256);
    for (unsigned int bytes : {0u, 64u, needed / 2, 2900u}) {
        std::vector<unsigned char> area(bytes + 64, 0xA5);
        FFTHandle_t h{};
        h.fftSize = 256;
        h.fft_Ne10_cfg = reinterpret_cast<ne10_fft_r2c_cfg_float32_t>(area.data());
        EXPECT_EQ(qtest::capture_stdout([&] { fft_init_in(&h, bytes); }),
                  "[Audio] memory malloc failed\n");
        EXPECT_EQ(h.is_fft_init, 0);
        for (size_t k = bytes; k < area.size(); ++k) {
            ASSERT_EQ(area[k], 0xA5) << "byte " << k << " past an area of " << bytes;
        }
    }
}

#if defined(QENAEC_FFT_NE10)
// The plan built in the caller's area is the one Ne10's own allocator builds with malloc, bit
// for bit, and every array of it lies inside the area.
TEST(Fft, PlanInTheAreaIsNe10sOwn) {
    Fft f;
    const ne10_fft_r2c_state_float32_t *mine = f.h.fft_Ne10_cfg;
    ne10_fft_r2c_cfg_float32_t own = ne10_fft_alloc_r2c_float32(256);
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(mine->ncfft, own->ncfft);
    EXPECT_EQ(memcmp(mine->factors, own->factors, sizeof(ne10_int32_t) * 2 * NE10_MAXFACTORS), 0);
    size_t twiddles = 0;  // stage s > 0 of radix r and sub-length m has m (r - 1)
    for (int stage = 1; stage < own->factors[0]; ++stage) {
        twiddles += own->factors[2 * stage + 1] * (own->factors[2 * stage] - 1);
    }
    EXPECT_EQ(memcmp(mine->twiddles, own->twiddles, sizeof(ne10_fft_cpx_float32_t) * twiddles), 0);
    EXPECT_EQ(memcmp(mine->super_twiddles, own->super_twiddles,
                     sizeof(ne10_fft_cpx_float32_t) * own->ncfft / 2),
              0);
    ne10_fft_destroy_r2c_float32(own);

    const auto *begin = f.area.data();
    const auto *end = begin + f.area.size();
    auto inside = [&](const void *p, size_t bytes) {
        const auto *b = static_cast<const unsigned char *>(p);
        return b >= begin && b + bytes <= end;
    };
    EXPECT_TRUE(inside(mine, sizeof *mine));
    EXPECT_TRUE(inside(mine->factors, sizeof(ne10_int32_t) * 2 * NE10_MAXFACTORS));
    EXPECT_TRUE(inside(mine->twiddles, sizeof(ne10_fft_cpx_float32_t) * 128));
    EXPECT_TRUE(inside(mine->super_twiddles, sizeof(ne10_fft_cpx_float32_t) * 64));
    EXPECT_TRUE(inside(mine->buffer, sizeof(ne10_fft_cpx_float32_t) * 256));
}
#endif

}  // namespace
